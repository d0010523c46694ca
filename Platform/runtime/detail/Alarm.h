#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace Platform::detail {

/// Calls a function once, after a stated time, unless it is dropped before. Move-only.
class Alarm {
public:
    using Clock = std::chrono::steady_clock;

    /// Nothing to call.
    Alarm() noexcept = default;

    /// `function` is called on the process's one alarm thread: it must be quick, must not block,
    /// and must not throw. It is destroyed after the call, or with the alarm. A time that has
    /// passed is now. Throws std::bad_alloc, and std::system_error when there is no thread to be
    /// had.
    Alarm(std::chrono::milliseconds time, std::function<void()> function);

    Alarm(Alarm&&) noexcept = default;
    Alarm& operator=(Alarm&& other) noexcept;
    /// Once this has returned, the function neither runs nor will run, except where it is what
    /// drops the alarm. Blocks for as long as a call that has begun takes: hold no lock that it
    /// takes.
    ~Alarm();

    /// Lets the alarm go off by itself; it is no longer held from here.
    void detach() noexcept;

private:
    struct Entry;
    class Bell;

    std::shared_ptr<Entry> entry_;
};

} // namespace Platform::detail
