#include <Platform/async/detail/QueueState.h>

#include <Platform/runtime/detail/DefaultExecutor.h>

#include <utility>

namespace Platform::detail {

QueueOperation::QueueOperation(std::shared_ptr<QueueState> queue, TaskPriority priority)
    : TaskContext(defaultExecutor(), priority), queue_(std::move(queue)) {}

void QueueOperation::publishEnd() noexcept {
    queue_->ended(*this);
}

void QueueOperation::drop() noexcept {
    finish();
    release(); // the reference of the run that there will not be
}

void QueueOperation::cancelInQueue() noexcept {
    bool pending = false;
    {
        const std::lock_guard guard(queue_->mutex_);
        pending = !hasSlot_ && unlink();
    }
    if (pending) {
        drop();
    } else {
        cancel();
    }
}

void QueueState::begin(QueueOperation& operation) noexcept {
    operation.hasSlot_ = true;
    running_.append(operation);
}

void QueueState::add(QueueOperation& operation) noexcept {
    {
        const std::lock_guard guard(mutex_);
        ++unfinished_;
        if (freeSlots_ == 0) return pending_.append(operation);
        --freeSlots_;
        begin(operation);
    }
    operation.schedule();
}

void QueueState::ended(QueueOperation& operation) noexcept {
    QueueOperation* next = nullptr;
    {
        const std::lock_guard guard(mutex_);
        if (operation.unlink()) { // it ran: who is dropped stands in no line
            next = pending_.takeFirst();
            if (next) {
                begin(*next);
            } else {
                ++freeSlots_;
            }
        }
        if (--unfinished_ == 0) wakeAll(waiters_);
    }
    if (next) next->schedule();
}

void QueueState::cancelAll() noexcept {
    LinkedList<QueueOperation> pending;
    LinkedList<QueueOperation> running;
    {
        const std::lock_guard guard(mutex_);
        pending.takeAll(pending_);
        running.takeAll(running_);
    }
    // Blocks are destroyed and handlers called without the lock. Meanwhile any of the others may
    // end by itself, and leave its list then.
    const auto takeFirst = [this](LinkedList<QueueOperation>& list) {
        const std::lock_guard guard(mutex_);
        QueueOperation* const operation = list.takeFirst();
        if (operation && operation->hasSlot_) {
            operation->retain();
            running_.append(*operation);
        }
        return operation;
    };
    while (QueueOperation* const operation = takeFirst(pending)) operation->drop();
    while (QueueOperation* const operation = takeFirst(running)) {
        operation->cancel();
        operation->release();
    }
}

} // namespace Platform::detail
