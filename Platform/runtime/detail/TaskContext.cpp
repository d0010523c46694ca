#include <Platform/runtime/detail/TaskContext.h>

#include <utility>

namespace Platform::detail {

namespace {
thread_local constinit TaskContext* currentTask = nullptr;
}

TaskContext* TaskContext::current() noexcept {
    return currentTask;
}

void TaskContext::release() noexcept {
    // Who holds the only reference need not write.
    if (references_.load(std::memory_order_acquire) == 1 ||
        references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

void TaskContext::run() noexcept {
    TaskContext* const outer = std::exchange(currentTask, this);
    Trampoline trampoline;
    trampoline_ = &trampoline;
    std::coroutine_handle<> next = std::exchange(resumePoint_, nullptr);
    if (!next) {
        next = start();
        trampoline.ended = !next;
    }
    // A coroutine that suspends to wait leaves nothing to go on with. From then on the task may be
    // running elsewhere, so only this frame's own trampoline tells.
    while (next) {
        next.resume();
        next = std::exchange(trampoline.next, nullptr);
    }
    if (trampoline.ended) {
        finish();
        release();
    }
    currentTask = outer;
}

void TaskContext::cancel() noexcept {
    CancellationHandler* handler = handlers_.exchange(cancelledMark(), std::memory_order_acq_rel);
    if (handler == cancelledMark()) return;
    while (handler) {
        // Once it is marked as returned, the handler's owner may leave and its memory go.
        CancellationHandler* const next = handler->next_;
        handler->function_(*handler);
        handler->returned_.store(1, std::memory_order_release);
        handler->returned_.notify_all();
        handler = next;
    }
}

bool CancellationHandler::enter(TaskContext& task) noexcept {
    CancellationHandler* top = task.handlers_.load(std::memory_order_acquire);
    do {
        if (top == TaskContext::cancelledMark()) return false;
        next_ = top;
    } while (!task.handlers_.compare_exchange_weak(top, this, std::memory_order_acq_rel,
                                                   std::memory_order_acquire));
    task_ = &task;
    return true;
}

void CancellationHandler::leave() noexcept {
    CancellationHandler* top = this;
    if (task_->handlers_.compare_exchange_strong(top, next_, std::memory_order_acq_rel,
                                                 std::memory_order_acquire)) {
        return;
    }
    returned_.wait(0, std::memory_order_acquire);
}

} // namespace Platform::detail
