#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Executor.h>
#include <Platform/runtime/TaskPriority.h>
#include <Platform/runtime/detail/CancellationHandler.h>

#include <atomic>
#include <coroutine>
#include <cstdint>

namespace Platform::detail {

/// One task as the executors see it: a chain of coroutines that await each other, of which the
/// innermost is the one to resume, with the cancellation flag, priority and executor that they
/// share.
///
/// Every resumption goes through `run()`, a loop that starts the coroutine which the one before
/// asked for: awaiting and finishing never nest on the stack, in any build and to any depth.
///
/// Reference counted: one reference belongs to the run from construction to `finish()`, one to each
/// handle.
class PLATFORM_EXPORT TaskContext {
public:
    TaskContext(const TaskContext&) = delete;
    TaskContext& operator=(const TaskContext&) = delete;

    /// The task that runs on this thread, or null.
    static TaskContext* current() noexcept;

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept;

    TaskPriority priority() const noexcept { return priority_; }
    Executor& executor() const noexcept { return *executor_; }

    // For executors.

    /// Runs the task until it suspends or ends. The context may be gone, or running elsewhere, on
    /// return.
    void run() noexcept;

    // For those who wait and those who wake.

    /// Notes where to go on. To be called by an awaiter before anybody can know of its waiting;
    /// from the moment that `schedule` may be called the awaiter must not be touched.
    void suspendAt(std::coroutine_handle<> point) noexcept { resumePoint_ = point; }

    /// Makes a suspended task ready. Exactly one call for each suspension. Never runs it inline.
    void schedule() noexcept { executor_->enqueue(*this); }

    // For the coroutines of this task, while it runs.

    /// What `run()` resumes next, once the calling coroutine has suspended.
    void continueWith(std::coroutine_handle<> next) noexcept { trampoline_->next = next; }

    /// The outermost coroutine has ended.
    void end() noexcept { trampoline_->ended = true; }

    // Cancellation; from any thread that holds a reference.

    bool isCancelled() const noexcept {
        return handlers_.load(std::memory_order_acquire) == cancelledMark();
    }

    /// Sets the flag, then calls the handlers entered, innermost first. Only the first call acts.
    void cancel() noexcept;

protected:
    TaskContext(Executor& executor, TaskPriority priority) noexcept
        : executor_(&executor), priority_(priority) {}
    virtual ~TaskContext() = default;

    /// Whether the task is still wanted when it is about to begin; for a derived class to hide.
    static bool mayBegin() noexcept { return true; }

    /// The outermost coroutine, on the first run; null when there is nothing to run.
    virtual std::coroutine_handle<> start() noexcept = 0;

    /// Publishes the result. The run's reference is released afterwards.
    virtual void finish() noexcept = 0;

private:
    friend class CancellationHandler;
    friend class ReadyQueue;

    struct Trampoline {
        std::coroutine_handle<> next;
        bool ended = false;
    };

    /// Stands in `handlers_` for good once the task is cancelled. An address no handler can have.
    static CancellationHandler* cancelledMark() noexcept {
        return reinterpret_cast<CancellationHandler*>(std::uintptr_t{1});
    }

    TaskContext* nextReady_ = nullptr;
    Executor* executor_;
    Trampoline* trampoline_ = nullptr; ///< On the stack of `run()`, while it runs.
    std::coroutine_handle<> resumePoint_;
    std::atomic<CancellationHandler*> handlers_{nullptr};
    std::atomic<std::uint32_t> references_{1};
    TaskPriority priority_;
};

} // namespace Platform::detail
