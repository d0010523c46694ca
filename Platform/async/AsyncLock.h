#pragma once

#include <Platform/async/detail/Wait.h>
#include <Platform/base/Export.h>
#include <Platform/runtime/Task.h>

#include <coroutine>
#include <mutex>
#include <utility>

namespace Platform {

/// Mutual exclusion among tasks: waiting suspends the task, it does not block a thread.
///
/// Unfair by design: `unlock` wakes every waiting task, and all of them, with any newcomer, compete
/// anew; the first to run gets the lock. Good for few waiters.
///
/// Not reentrant. Any thread may call any operation. The lock outlives the waits on it. Taking a
/// free lock neither suspends nor allocates; waiting for one that is held allocates a small frame,
/// and throws std::bad_alloc when there is no memory for it.
class PLATFORM_EXPORT AsyncLock {
    template <class Result>
    class Locking;

public:
    /// Holds the lock, and frees it at the end of the scope. Move-only.
    class [[nodiscard]] Guard {
    public:
        explicit Guard(AsyncLock& held) noexcept : lock_(&held) {}
        Guard(Guard&& other) noexcept : lock_(std::exchange(other.lock_, nullptr)) {}
        Guard& operator=(Guard&& other) noexcept {
            std::swap(lock_, other.lock_);
            return *this;
        }
        ~Guard() {
            if (lock_) lock_->unlock();
        }

    private:
        AsyncLock* lock_;
    };

    AsyncLock() = default;
    AsyncLock(const AsyncLock&) = delete;
    AsyncLock& operator=(const AsyncLock&) = delete;
    ~AsyncLock() = default;

    /// Await the lock. Ignores cancellation: returns only once the caller holds it.
    detail::Operation<Locking<void>, AsyncLock> lock() noexcept;

    /// The same, for a scope: `const auto guard = co_await lock.guard();`
    detail::Operation<Locking<Guard>, AsyncLock> guard() noexcept;

    /// Frees the lock, whoever holds it, and wakes all that wait. Does nothing when it is free.
    void unlock() noexcept;

private:
    class Turn;

    bool tryLock() noexcept {
        const std::lock_guard guard(mutex_);
        return !std::exchange(held_, true);
    }
    Task<> compete();

    std::mutex mutex_;
    bool held_ = false;
    detail::WaiterList waiters_;
};

/// Takes the lock at once if it is free; else goes on with a coroutine that competes for it.
template <class Result>
class AsyncLock::Locking {
public:
    explicit Locking(AsyncLock& lock) noexcept : lock_(lock) {}

    bool await_ready() const noexcept { return lock_.tryLock(); }
    template <class Promise>
    void await_suspend(std::coroutine_handle<Promise> awaiting) {
        competing_ = lock_.compete();
        competing_.operator co_await().await_suspend(awaiting);
    }
    Result await_resume() const noexcept {
        if constexpr (!std::is_void_v<Result>) return Result(lock_);
    }

private:
    AsyncLock& lock_;
    Task<> competing_;
};

inline detail::Operation<AsyncLock::Locking<void>, AsyncLock> AsyncLock::lock() noexcept {
    return detail::Operation<Locking<void>, AsyncLock>(*this);
}

inline detail::Operation<AsyncLock::Locking<AsyncLock::Guard>, AsyncLock>
AsyncLock::guard() noexcept {
    return detail::Operation<Locking<Guard>, AsyncLock>(*this);
}

} // namespace Platform
