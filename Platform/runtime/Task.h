#pragma once

#include <Platform/runtime/detail/TaskPromise.h>

#include <coroutine>
#include <utility>

namespace Platform {

/// An asynchronous function's work: a coroutine that returns `Task<T>` ends with a `T` or an
/// exception.
///
/// Lazy: nothing runs before the task is awaited, or handed to `runMain`, `detached` or a task
/// group. Awaited once; a second time, or an empty task, is a `std::logic_error`. Awaiting costs no
/// trip through an executor, and any number of awaits, nested or in a row, need no stack.
///
/// Owns its coroutine's frame; move-only. Arguments of a coroutine are best taken by value: they
/// are kept in the frame, references are not extended. A capturing coroutine lambda must outlive
/// its task, unless it is handed to `detached`, a task group or another function here that says
/// that it keeps the callable. (g++ 12 destroys a temporary lambda or aggregate inside a `co_await`
/// expression twice: what it captures beyond references and plain values needs a name of its own, a
/// statement earlier.)
///
/// The awaited task runs as a part of the awaiting one: same executor, priority and cancellation.
/// Inside a `Task` only this library's awaitables can be awaited; `withCheckedContinuation` bridges
/// everything else.
template <class T = void>
class [[nodiscard]] Task : public detail::Awaitable {
public:
    using promise_type = detail::TaskPromise<T>;
    using Value = T;

    /// An empty task.
    Task() noexcept = default;
    Task(Task&& other) noexcept : coroutine_(std::exchange(other.coroutine_, nullptr)) {}
    Task& operator=(Task&& other) noexcept {
        std::swap(coroutine_, other.coroutine_);
        return *this;
    }
    ~Task() {
        if (coroutine_) coroutine_.destroy();
    }

    /// Whether there is a coroutine to await.
    explicit operator bool() const noexcept { return coroutine_ != nullptr; }

    auto operator co_await() {
        detail::PromiseBase::requireAwaitable(coroutine_ ? &coroutine_.promise() : nullptr);
        return Awaiter{coroutine_};
    }

private:
    friend promise_type;
    template <class, class>
    friend class detail::RootResult;

    struct Awaiter {
        std::coroutine_handle<promise_type> coroutine;

        bool await_ready() const noexcept { return false; }
        template <class Promise>
        void await_suspend(std::coroutine_handle<Promise> awaiting) const noexcept {
            coroutine.promise().startFrom(awaiting.promise(), awaiting, coroutine);
        }
        T await_resume() const { return coroutine.promise().takeResult(); }
    };

    explicit Task(std::coroutine_handle<promise_type> coroutine) noexcept : coroutine_(coroutine) {}

    std::coroutine_handle<promise_type> coroutine_;
};

namespace detail {

template <class T>
Task<T> TaskPromise<T>::get_return_object() noexcept {
    return Task<T>(std::coroutine_handle<TaskPromise>::from_promise(*this));
}

inline Task<void> TaskPromise<void>::get_return_object() noexcept {
    return Task<void>(std::coroutine_handle<TaskPromise>::from_promise(*this));
}

} // namespace detail

} // namespace Platform
