#include <Platform/async/detail/QueueState.h>

#include <Platform/runtime/detail/DefaultExecutor.h>

#include <utility>

namespace Platform::detail {

QueueOperation::QueueOperation(QueueState& queue, TaskPriority priority)
    : TaskContext(defaultExecutor(), priority), queue_(queue) {}

void QueueOperation::publishEnd() noexcept {
    queue_.ended(*this);
}

void QueueOperation::drop() noexcept {
    finish();
    release(); // the reference of the run that there will not be
}

void QueueOperation::cancelInQueue() noexcept {
    bool pending = false;
    {
        const std::lock_guard guard(queue_.mutex_);
        queue_.openInbox();
        pending = !hasSlot_ && unlink();
    }
    if (pending) {
        drop();
    } else {
        cancel();
    }
}

void QueueState::openInbox() noexcept {
    QueueOperation* newest = inbox_.exchange(nullptr, std::memory_order_seq_cst);
    QueueOperation* oldest = nullptr;
    while (newest) {
        QueueOperation* const before = std::exchange(newest->nextAdded_, oldest);
        oldest = std::exchange(newest, before);
    }
    if (oldest && !self_) self_ = shared_from_this();
    for (; oldest; oldest = oldest->nextAdded_) {
        ++unfinished_;
        pending_.append(*oldest);
    }
}

bool QueueState::allFinished() noexcept {
    openInbox();
    return unfinished_ == 0;
}

/// Gives a free slot to the oldest that waits, if there is one; the caller schedules it.
QueueOperation* QueueState::startNext() noexcept {
    if (pending_.empty()) openInbox();
    QueueOperation* const operation = pending_.takeFirst();
    if (operation) {
        operation->hasSlot_ = true;
        running_.append(*operation);
    }
    return operation;
}

void QueueState::add(QueueOperation& operation) noexcept {
    operation.nextAdded_ = inbox_.load(std::memory_order_relaxed);
    while (!inbox_.compare_exchange_weak(operation.nextAdded_, &operation,
                                         std::memory_order_seq_cst)) {
    }
    while (freeSlots_.load(std::memory_order_seq_cst) != 0) {
        QueueOperation* next = nullptr;
        {
            const std::lock_guard guard(mutex_);
            if (freeSlots_.load(std::memory_order_relaxed) == 0) return;
            next = startNext();
            if (!next) return;
            freeSlots_.fetch_sub(1, std::memory_order_relaxed);
        }
        next->schedule();
    }
}

void QueueState::ended(QueueOperation& operation) noexcept {
    std::shared_ptr<QueueState> self; // let go without the lock
    QueueOperation* next = nullptr;
    {
        const std::lock_guard guard(mutex_);
        if (operation.unlink()) { // it ran: who is dropped stands in no line
            next = startNext();
            if (!next) {
                // Who adds puts in first and looks for slots then, so one of both sees the other.
                freeSlots_.fetch_add(1, std::memory_order_seq_cst);
                next = startNext();
                if (next) freeSlots_.fetch_sub(1, std::memory_order_relaxed);
            }
        }
        if (--unfinished_ == 0 && allFinished()) {
            wakeAll(waiters_);
            self = std::move(self_);
        }
    }
    if (next) next->schedule();
}

void QueueState::cancelAll() noexcept {
    LinkedList<QueueOperation> pending;
    LinkedList<QueueOperation> running;
    {
        const std::lock_guard guard(mutex_);
        openInbox();
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
