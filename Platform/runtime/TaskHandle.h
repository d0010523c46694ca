#pragma once

#include <Platform/runtime/Task.h>
#include <Platform/runtime/detail/DefaultExecutor.h>
#include <Platform/runtime/detail/DetachedContext.h>
#include <Platform/runtime/detail/RootTask.h>

#include <stdexcept>
#include <type_traits>
#include <utility>

namespace Platform {

/// One's hold on a detached task: to cancel it, or to await its result. Move-only. Dropping the
/// handle changes nothing for the task, which runs on to its end.
///
/// `co_await handle` suspends until the task has ended, then gives its value or throws its error;
/// once, by one task (else `std::logic_error`). It goes on where the awaiting task runs. Cancelling
/// the awaiting task does not cut the wait short.
template <class T = void>
class TaskHandle : public detail::Awaitable {
public:
    /// An empty handle: nothing to cancel or await.
    TaskHandle() noexcept = default;
    TaskHandle(TaskHandle&& other) noexcept : state_(std::exchange(other.state_, nullptr)) {}
    TaskHandle& operator=(TaskHandle&& other) noexcept {
        std::swap(state_, other.state_);
        return *this;
    }
    ~TaskHandle() {
        if (state_) state_->release();
    }

    explicit operator bool() const noexcept { return state_ != nullptr; }

    /// Sets the task's cancellation flag and runs the cancellation handlers that it has entered,
    /// here and now. Does not wait for the task. From any thread; only the first call acts.
    void cancel() const noexcept {
        if (state_) state_->cancel();
    }

    /// Whether `cancel` was called. From any thread.
    bool isCancelled() const noexcept { return state_ && state_->isCancelled(); }

    /// Whether the task has ended. From any thread.
    bool hasEnded() const noexcept { return state_ && state_->hasEnded(); }

    auto operator co_await() {
        if (!state_) throw std::logic_error("TaskHandle: an empty handle was awaited");
        return Awaiter(*state_);
    }

private:
    using State = detail::RootResult<T, detail::DetachedContext>;

    class Awaiter {
    public:
        explicit Awaiter(State& state) noexcept : state_(state) {}
        Awaiter(const Awaiter&) = delete;
        Awaiter& operator=(const Awaiter&) = delete;
        ~Awaiter() {
            if (waiting_) state_.removeWaiter(*waiting_);
        }

        bool await_ready() const noexcept { return state_.hasEnded(); }
        template <class Promise>
        bool await_suspend(std::coroutine_handle<Promise> awaiting) {
            waiting_ = &awaiting.promise().context();
            waiting_->suspendAt(awaiting);
            return state_.addWaiter(*waiting_);
        }
        T await_resume() {
            waiting_ = nullptr;
            auto outcome = state_.takeOutcomeWhole();
            if (outcome.index() == 0) {
                throw std::logic_error("TaskHandle: the result was taken before");
            }
            return detail::takeOutcome<T>(outcome);
        }

    private:
        State& state_;
        detail::TaskContext* waiting_ = nullptr;
    };

    template <class F>
    friend auto detached(TaskPriority priority, F f)
        -> TaskHandle<typename std::invoke_result_t<F&>::Value>;

    explicit TaskHandle(State* state) noexcept : state_(state) {}

    State* state_ = nullptr;
};

/// Starts a task of its own on the shared cooperative pool. `f` is called there, without arguments,
/// and returns the `Task<T>` to run; it is kept until that task has ended, so a capturing coroutine
/// lambda is safe. Then `f` and the task's frame are destroyed, and only the result is left, for
/// the handle.
///
/// Nothing is inherited from the caller: neither its cancellation, nor its priority or executor. An
/// error of a task whose handle was dropped is dropped too.
///
/// From any thread. Throws std::bad_alloc; starting the pool's threads on the first use can throw
/// std::system_error.
template <class F>
auto detached(TaskPriority priority, F f) -> TaskHandle<typename std::invoke_result_t<F&>::Value> {
    using T = typename std::invoke_result_t<F&>::Value;
    auto& executor = detail::defaultExecutor();
    auto* const state =
        new detail::RootTask<T, F, detail::DetachedContext>(std::move(f), executor, priority);
    state->retain();
    TaskHandle<T> handle(state);
    state->schedule();
    return handle;
}

/// The same without a wish for a priority.
template <class F>
auto detached(F f) {
    return detached(TaskPriority::unspecified, std::move(f));
}

} // namespace Platform
