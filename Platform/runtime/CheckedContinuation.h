#pragma once

#include <Platform/runtime/detail/ContinuationState.h>

#include <exception>
#include <type_traits>
#include <utility>

namespace Platform {

/// The one-shot resume handle of a task that waits in `withCheckedContinuation`. Whoever holds it
/// (a callback, another thread, another task) ends the wait with a value or an error.
///
/// Copyable, so that any kind of callback can keep it; all copies mean the same wait, a moved-from
/// one none. To be resumed exactly once, from any thread, also while holding locks: resuming only
/// schedules the task, it never runs it inline. Resumed a second time, through whichever copy: the
/// program is aborted, with the label in the log. When the last copy goes without having been
/// resumed, the log says so, with the label; the task waits for ever.
template <class T = void>
class CheckedContinuation {
public:
    /// Ends the wait with a value.
    template <class U>
        requires(!std::is_void_v<T>)
    void resume(U&& value) const {
        state_->claim();
        state_->outcome.template emplace<1>(std::forward<U>(value));
        state_->publish();
    }

    /// Ends the wait.
    void resume() const
        requires std::is_void_v<T>
    {
        state_->claim();
        state_->outcome.template emplace<1>();
        state_->publish();
    }

    /// Ends the wait with an error, which the waiting task gets as an exception.
    void resumeThrowing(std::exception_ptr error) const {
        state_->claim();
        state_->outcome.template emplace<2>(std::move(error));
        state_->publish();
    }

private:
    template <class, class>
    friend class ContinuationWait;

    explicit CheckedContinuation(detail::ContinuationState<T>& state) noexcept : state_(state) {}

    detail::ContinuationOwner<T> state_;
};

/// What `withCheckedContinuation` returns, to be awaited at once.
template <class T, class Body>
class [[nodiscard]] ContinuationWait : public detail::Awaitable {
public:
    ContinuationWait(const char* label, Body body) : label_(label), body_(std::move(body)) {}
    ContinuationWait(ContinuationWait&&) = delete;
    ~ContinuationWait() {
        if (!state_) return;
        state_->giveUp();
        state_->release();
    }

    auto operator co_await() noexcept { return Awaiter{*this}; }

private:
    struct Awaiter {
        ContinuationWait& wait;

        bool await_ready() const noexcept { return false; }
        template <class Promise>
        bool await_suspend(std::coroutine_handle<Promise> awaiting) const {
            return wait.begin(awaiting, awaiting.promise().context());
        }
        T await_resume() const { return detail::takeOutcome<T>(wait.state_->outcome); }
    };

    bool begin(std::coroutine_handle<> awaiting, detail::TaskContext& task) {
        state_ = new detail::ContinuationState<T>(label_, task);
        task.suspendAt(awaiting);
        const CheckedContinuation<T> continuation(*state_);
        try {
            body_(CheckedContinuation<T>(continuation));
        } catch (...) {
            state_->giveUp();
            throw;
        }
        // Resumed meanwhile or not, the frame has stayed; from here on it may go at any moment.
        return continuation.state_->suspend();
    }

    const char* label_;
    Body body_;
    detail::ContinuationState<T>* state_ = nullptr;
};

/// Suspends the calling task until someone resumes the continuation that `body` is given:
///
///     bool accepted = co_await withCheckedContinuation<bool>("ask", [&](auto continuation) {
///         window.show(path, [continuation](bool answer) { continuation.resume(answer); });
///     });
///
/// `body` is called once, at once and on the calling thread; an exception that it throws is thrown
/// to the task. It may resume the continuation itself. The task goes on on its executor.
/// Cancellation of the task does not end the wait: combine with `withTaskCancellationHandler`.
///
/// `label` names the wait in diagnostics; it must be a literal, or live as long as any
/// continuation.
template <class T = void, class Body>
ContinuationWait<T, Body> withCheckedContinuation(const char* label, Body body) {
    return ContinuationWait<T, Body>(label, std::move(body));
}

/// The same with a label that says nothing.
template <class T = void, class Body>
ContinuationWait<T, Body> withCheckedContinuation(Body body) {
    return ContinuationWait<T, Body>("withCheckedContinuation", std::move(body));
}

} // namespace Platform
