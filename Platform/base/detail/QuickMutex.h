#pragma once

#include <Platform/base/Export.h>

#include <atomic>
#include <cstdint>

namespace Platform::detail {

/// A mutex for critical sections of a few instructions: who finds it taken looks again for as long
/// as a few of them last, before the thread sleeps. (A `std::mutex` puts the thread to sleep at
/// once, which costs a hundred times the section.) For `std::lock_guard`.
class PLATFORM_EXPORT QuickMutex {
public:
    QuickMutex() = default;
    QuickMutex(const QuickMutex&) = delete;
    QuickMutex& operator=(const QuickMutex&) = delete;

    void lock() noexcept {
        std::uint32_t seen = free;
        if (!state_.compare_exchange_strong(seen, taken, std::memory_order_acquire)) lockSlowly();
    }

    void unlock() noexcept {
        if (state_.exchange(free, std::memory_order_release) == awaited) state_.notify_one();
    }

private:
    enum : std::uint32_t { free, taken, awaited };

    void lockSlowly() noexcept;

    std::atomic<std::uint32_t> state_{free};
};

} // namespace Platform::detail
