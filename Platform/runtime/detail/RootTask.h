#pragma once

#include <Platform/base/detail/Wipe.h>
#include <Platform/runtime/Task.h>

#include <exception>
#include <optional>
#include <utility>

namespace Platform::detail {

/// A task of its own, not a part of the task that asked for it: holds its outcome once it has
/// ended. `Base` is a `TaskContext` that says, in `publishEnd`, what follows from the end.
template <class T, class Base>
class RootResult : public Base, public WipedWhenFreed<mayBeSecret<T>> {
public:
    /// The outcome, taken out. Once only, after the task has ended.
    Outcome<T> takeOutcomeWhole() noexcept {
        Outcome<T> taken = std::move(outcome_);
        outcome_.template emplace<0>();
        return taken;
    }

protected:
    using Base::Base;

    std::coroutine_handle<> begin(Task<T>&& task) {
        PromiseBase::requireAwaitable(task ? &task.coroutine_.promise() : nullptr);
        task_ = std::move(task);
        task_.coroutine_.promise().startAsRootOf(*this);
        return task_.coroutine_;
    }

    void fail(std::exception_ptr error) noexcept { outcome_.template emplace<2>(std::move(error)); }

    /// Takes the outcome over and destroys the coroutine, with the arguments that it kept.
    void collect() noexcept {
        if (!task_) return;
        const Task<T> task = std::move(task_);
        outcome_ = task.coroutine_.promise().takeOutcomeWhole();
    }

private:
    Task<T> task_;
    Outcome<T> outcome_;
};

/// The same, made by calling `F` on the task's executor; the callable is kept until the task has
/// ended.
template <class T, class F, class Base>
class RootTask final : public RootResult<T, Base> {
public:
    template <class... BaseArguments>
    explicit RootTask(F&& f, BaseArguments&&... arguments)
        : RootResult<T, Base>(std::forward<BaseArguments>(arguments)...), callable_(std::move(f)) {}

private:
    std::coroutine_handle<> start() noexcept override {
        if (!this->mayBegin()) return nullptr;
        try {
            return this->begin((*callable_)());
        } catch (...) {
            this->fail(std::current_exception());
            return nullptr;
        }
    }

    void finish() noexcept override {
        this->collect();
        callable_.reset();
        this->publishEnd();
    }

    std::optional<F> callable_;
};

} // namespace Platform::detail
