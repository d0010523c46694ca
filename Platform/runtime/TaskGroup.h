#pragma once

#include <Platform/runtime/Cancellation.h>
#include <Platform/runtime/Task.h>
#include <Platform/runtime/detail/GroupState.h>
#include <Platform/runtime/detail/RootTask.h>

#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

namespace Platform {

/// Child tasks that run beside each other and end before the scope that holds them does.
///
/// Made by `withTaskGroup`, which passes it to its body by reference. Only the body's task uses it
/// (`cancelAll` excepted). Children run on that task's executor, at its priority, and are cancelled
/// when it is.
template <class T = void>
class TaskGroup {
public:
    /// What `next` gives: a child's result, or absent (false for void) when no child is left.
    using Next = std::conditional_t<std::is_void_v<T>, bool, std::optional<T>>;

    TaskGroup() = default;
    TaskGroup(const TaskGroup&) = delete;
    TaskGroup& operator=(const TaskGroup&) = delete;

    /// Starts a child. `f` is called on the executor, without arguments, and returns the `Task<T>`
    /// to run; it is kept until that has ended. In a cancelled group the child starts cancelled.
    template <class F>
    void addTask(F f) {
        state_.start(*new detail::RootTask<T, F, detail::ChildContext>(std::move(f), state_));
    }

    /// Suspends until a child has ended, and gives its result or throws its error. Each child is
    /// given once, in the order in which they end. Cancellation does not cut the wait short: the
    /// children see it.
    Task<Next> next() {
        detail::GroupState::Wait wait(state_, detail::GroupState::Until::nextEnded);
        co_await wait;
        auto* const child = static_cast<Child*>(state_.takeEnded());
        if (!child) co_return Next();
        auto outcome = child->takeOutcomeWhole();
        child->release();
        if constexpr (std::is_void_v<T>) {
            detail::takeOutcome<T>(outcome);
            co_return true;
        } else {
            co_return detail::takeOutcome<T>(outcome);
        }
    }

    /// Suspends until all children have ended. Results are dropped; the error of the child that
    /// failed first is thrown then.
    Task<void> waitForAll() {
        detail::GroupState::Wait wait(state_, detail::GroupState::Until::allEnded);
        co_await wait;
        std::exception_ptr error;
        while (auto* const child = static_cast<Child*>(state_.takeEnded())) {
            auto outcome = child->takeOutcomeWhole();
            child->release();
            if (auto* const failure = std::get_if<2>(&outcome); failure && !error) error = *failure;
        }
        if (error) std::rethrow_exception(error);
    }

    /// Cancels all children, those added later too. From any thread.
    void cancelAll() noexcept { state_.cancelAll(); }

private:
    using Child = detail::RootResult<T, detail::ChildContext>;

    template <class U, class Body>
    friend std::invoke_result_t<Body&, TaskGroup<U>&> withTaskGroup(Body body);

    detail::GroupState state_;
};

/// Awaits `body(group)`, a task that may start children in the group, and then, on every way out,
/// all children that are left; results and errors that the body did not ask for are dropped. When
/// the body throws, the children are cancelled first, and its error is thrown on once all have
/// ended.
///
/// `body` is kept until then. Cancelling the calling task cancels the children.
template <class T = void, class Body>
std::invoke_result_t<Body&, TaskGroup<T>&> withTaskGroup(Body body) {
    using Result = typename std::invoke_result_t<Body&, TaskGroup<T>&>::Value;
    TaskGroup<T> group;
    auto cancelChildren = [&group]() noexcept { group.cancelAll(); };
    const detail::CancellationScope<decltype(cancelChildren)> scope(cancelChildren);
    detail::Outcome<Result> outcome;
    try {
        auto work = body(group);
        if constexpr (std::is_void_v<Result>) {
            co_await work;
            outcome.template emplace<1>();
        } else {
            outcome.template emplace<1>(co_await work);
        }
    } catch (...) {
        outcome.template emplace<2>(std::current_exception());
        group.cancelAll();
    }
    detail::GroupState::Wait wait(group.state_, detail::GroupState::Until::allEnded);
    co_await wait;
    co_return detail::takeOutcome<Result>(outcome);
}

} // namespace Platform
