#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace Platform::detail {

/// Knows which launches of children are under way. Until a child has become its program it holds a
/// copy of every descriptor that this process had when it was started: what was closed meanwhile
/// is still open for the other side.
class LaunchGate {
public:
    static LaunchGate& shared() noexcept;

    /// A launch is under way for as long as this lives.
    class Passage {
    public:
        Passage() noexcept : phase_(shared().enter()) {}
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;
        ~Passage() { shared().leave(phase_); }

    private:
        const std::size_t phase_;
    };

    /// Blocks until those launches are over that were under way: what was closed before is closed
    /// for everybody then.
    void waitForThoseUnderWay();

private:
    std::size_t enter() noexcept;
    void leave(std::size_t phase) noexcept;

    std::mutex turn_; ///< Of those who wait.
    std::mutex mutex_;
    std::condition_variable left_;
    std::size_t phase_ = 0;
    std::array<std::size_t, 2> underWay_{}; ///< Of this phase, and of the one before.
};

} // namespace Platform::detail
