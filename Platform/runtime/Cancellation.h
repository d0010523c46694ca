#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Task.h>

#include <type_traits>
#include <utility>

namespace Platform {

/// Whether the task that runs on this thread was cancelled. False outside any task.
PLATFORM_EXPORT bool isTaskCancelled() noexcept;

/// Throws CancellationError when the task that runs on this thread was cancelled.
PLATFORM_EXPORT void checkCancellation();

/// The priority of the task that runs on this thread; `unspecified` outside any task.
PLATFORM_EXPORT TaskPriority currentTaskPriority() noexcept;

namespace detail {

/// Keeps `onCancel` entered in the running task for as long as the scope lives.
template <class F>
class CancellationScope : private CancellationHandler {
public:
    explicit CancellationScope(F& onCancel) noexcept
        : CancellationHandler(&call), onCancel_(onCancel) {
        TaskContext* const task = TaskContext::current();
        entered_ = task && enter(*task);
        if (task && !entered_) onCancel_();
    }
    ~CancellationScope() {
        if (entered_) leave();
    }

private:
    static void call(CancellationHandler& self) noexcept {
        static_cast<CancellationScope&>(self).onCancel_();
    }

    F& onCancel_;
    bool entered_ = false;
};

} // namespace detail

/// Awaits the task that `operation()` returns, and calls `onCancel()` when this task is cancelled
/// meanwhile; at once, before `operation`, when it was cancelled before.
///
/// Both callables are kept until the operation has ended. `onCancel` runs at most once, on the
/// cancelling thread, after the task's flag was set and at any moment of the operation: it must be
/// quick, must not throw, and has to settle its race with the operation's own progress. The scope
/// is left only when a handler that is running has returned, so `onCancel` may use what the caller
/// owns.
template <class Operation, class OnCancel>
std::invoke_result_t<Operation&> withTaskCancellationHandler(Operation operation,
                                                             OnCancel onCancel) {
    const detail::CancellationScope<OnCancel> scope(onCancel);
    auto work = operation();
    co_return co_await work;
}

} // namespace Platform
