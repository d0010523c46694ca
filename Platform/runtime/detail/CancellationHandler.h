#pragma once

#include <Platform/base/Export.h>

#include <atomic>
#include <cstdint>

namespace Platform::detail {

class TaskContext;

/// One entry in a task's stack of cancellation handlers: lives in the frame of whoever waits, costs
/// no allocation, one atomic step to enter and one to leave.
///
/// A task is sequential, so its handlers are entered and left like a stack, by the task alone; the
/// one other party is the single thread whose `TaskContext::cancel()` came first, which takes the
/// whole stack at once and calls the handlers, innermost first.
class PLATFORM_EXPORT CancellationHandler {
public:
    /// Called at most once, by the cancelling thread, after the task's flag was set.
    using Function = void (*)(CancellationHandler&) noexcept;

    explicit CancellationHandler(Function function) noexcept : function_(function) {}
    CancellationHandler(const CancellationHandler&) = delete;
    CancellationHandler& operator=(const CancellationHandler&) = delete;

    /// Enters the stack of `task`, which is the calling task. False: the task is cancelled already,
    /// the function will not be called, and there is nothing to leave.
    [[nodiscard]] bool enter(TaskContext& task) noexcept;

    /// Leaves the stack. When the cancelling thread has taken this handler, blocks until its
    /// function has returned; so must not be called while holding a lock that the function takes.
    void leave() noexcept;

private:
    friend class TaskContext;

    Function function_;
    TaskContext* task_ = nullptr;
    CancellationHandler* next_ = nullptr;
    std::atomic<std::uint32_t> returned_{0};
};

} // namespace Platform::detail
