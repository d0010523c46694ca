#pragma once

#include <Platform/async/detail/Wait.h>
#include <Platform/base/Export.h>
#include <Platform/base/detail/QuickMutex.h>

#include <mutex>

namespace Platform {

/// Tasks wait for the next broadcast, which wakes all that wait at that moment. It is not
/// remembered: a broadcast that nobody waits for does nothing.
///
/// A wait begins when it is awaited: from then on no broadcast is missed. Tasks are woken in the
/// order in which they began to wait, each on its own executor. Operations allocate nothing, and
/// any thread may call them. The condition outlives the waits on it. A task whose frame is
/// destroyed while it waits is withdrawn.
class PLATFORM_EXPORT AsyncCond {
    class Wait;

public:
    AsyncCond() = default;
    AsyncCond(const AsyncCond&) = delete;
    AsyncCond& operator=(const AsyncCond&) = delete;
    ~AsyncCond() = default;

    /// Await the next broadcast: always suspends, unless the task is cancelled. Never fails.
    /// Returns also when the task is cancelled while it waits, so look at what you wait for after
    /// every return.
    detail::Operation<Wait, AsyncCond> wait() noexcept;

    /// Wakes every waiting task. That only schedules them, so this may be called under a lock.
    void broadcast() noexcept;

private:
    detail::QuickMutex mutex_;
    detail::WaiterList waiters_;
};

class AsyncCond::Wait final : public detail::Wait<Wait> {
public:
    explicit Wait(AsyncCond& condition) noexcept : condition_(condition) {}
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;
    ~Wait() { withdraw(); }

    void await_resume() noexcept { endWait(); }

private:
    friend detail::Wait<Wait>;

    detail::QuickMutex& mutex() const noexcept { return condition_.mutex_; }
    detail::WaiterList& line() const noexcept { return condition_.waiters_; }
    static bool mustWait(const detail::TaskContext&) noexcept { return true; }

    AsyncCond& condition_;
};

inline detail::Operation<AsyncCond::Wait, AsyncCond> AsyncCond::wait() noexcept {
    return detail::Operation<Wait, AsyncCond>(*this);
}

inline void AsyncCond::broadcast() noexcept {
    const std::lock_guard guard(mutex_);
    wakeAll(waiters_);
}

} // namespace Platform
