#pragma once

#include <Platform/base/Export.h>
#include <Platform/base/detail/Wipe.h>
#include <Platform/runtime/detail/TaskContext.h>

#include <concepts>
#include <coroutine>
#include <cstddef>
#include <exception>
#include <type_traits>
#include <utility>
#include <variant>

namespace Platform {

template <class T>
class Task;

namespace detail {

template <class T, class Base>
class RootResult;

/// Marks what may be awaited inside a `Task`: awaiters that go through the task's context. Others
/// would resume the coroutine behind its executor's back.
class Awaitable {};

/// A value or an error, or neither yet. An empty struct stands for void.
struct Unit {};
template <class T>
using Outcome = std::variant<std::monostate, std::conditional_t<std::is_void_v<T>, Unit, T>,
                             std::exception_ptr>;

/// Takes the value out of an outcome that is there, or throws its error.
template <class T>
T takeOutcome(Outcome<T>& outcome) {
    if (auto* error = std::get_if<2>(&outcome)) std::rethrow_exception(std::move(*error));
    if constexpr (!std::is_void_v<T>) return std::get<1>(std::move(outcome));
}

/// What the promises of all tasks share.
class PLATFORM_EXPORT PromiseBase {
public:
    PromiseBase() = default;
    PromiseBase(const PromiseBase&) = delete;
    PromiseBase& operator=(const PromiseBase&) = delete;

    std::suspend_always initial_suspend() const noexcept { return {}; }
    auto final_suspend() const noexcept { return FinalAwaiter{}; }

    template <class A>
        requires std::derived_from<std::remove_cvref_t<A>, Awaitable>
    std::remove_reference_t<A>& await_transform(A&& awaitable) const noexcept {
        return awaitable; // a temporary too lives as long as the co_await expression
    }

    /// The task that this coroutine is a part of, from its start on.
    TaskContext& context() const noexcept { return *context_; }

    /// Throws unless `promise` is that of a coroutine which has not started.
    static void requireAwaitable(const PromiseBase* promise);

    /// Goes on with `self` as a part of the awaiting coroutine's task.
    void startFrom(const PromiseBase& awaiting, std::coroutine_handle<> parent,
                   std::coroutine_handle<> self) noexcept {
        context_ = awaiting.context_;
        parent_ = parent;
        context_->continueWith(self);
    }

    /// Makes this the outermost coroutine of `context`.
    void startAsRootOf(TaskContext& context) noexcept { context_ = &context; }

private:
    struct FinalAwaiter {
        bool await_ready() const noexcept { return false; }
        template <class Promise>
        void await_suspend(std::coroutine_handle<Promise> ended) const noexcept {
            const PromiseBase& promise = ended.promise();
            if (promise.parent_) {
                promise.context_->continueWith(promise.parent_);
            } else {
                promise.context_->end();
            }
        }
        void await_resume() const noexcept {}
    };

    TaskContext* context_ = nullptr;
    std::coroutine_handle<> parent_;
};

template <class T>
class TaskPromise : public PromiseBase, public WipedWhenFreed<mayBeSecret<T>> {
public:
    Task<T> get_return_object() noexcept;

    template <class U = T>
        requires std::constructible_from<T, U>
    void return_value(U&& value) noexcept(std::is_nothrow_constructible_v<T, U>) {
        outcome_.template emplace<1>(std::forward<U>(value));
    }
    void unhandled_exception() noexcept { outcome_.template emplace<2>(std::current_exception()); }

    T takeResult() { return takeOutcome<T>(outcome_); }
    Outcome<T>&& takeOutcomeWhole() noexcept { return std::move(outcome_); }

private:
    Outcome<T> outcome_;
};

template <>
class TaskPromise<void> : public PromiseBase {
public:
    Task<void> get_return_object() noexcept;

    void return_void() const noexcept {}
    void unhandled_exception() noexcept { error_ = std::current_exception(); }

    void takeResult() {
        if (error_) std::rethrow_exception(std::move(error_));
    }
    Outcome<void> takeOutcomeWhole() noexcept {
        if (error_) return Outcome<void>(std::in_place_index<2>, std::move(error_));
        return Outcome<void>(std::in_place_index<1>);
    }

private:
    std::exception_ptr error_;
};

} // namespace detail

} // namespace Platform
