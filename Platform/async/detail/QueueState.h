#pragma once

#include <Platform/async/detail/Wait.h>

#include <cstddef>
#include <memory>
#include <mutex>

namespace Platform::detail {

class QueueState;

/// One block in a queue, from its adding to its end: it waits for a slot, then runs; or it is
/// cancelled before it has begun, and ends without having run.
class QueueOperation : public TaskContext, public Link {
public:
    /// As a handle's `cancel`.
    void cancelInQueue() noexcept;

protected:
    QueueOperation(std::shared_ptr<QueueState> queue, TaskPriority priority);

    bool mayBegin() const noexcept { return !isCancelled(); }
    void publishEnd() noexcept;

private:
    friend class QueueState;

    /// Ends an operation that was taken out of the line.
    void drop() noexcept;

    std::shared_ptr<QueueState> queue_;
    bool hasSlot_ = false; ///< Guarded by the queue's lock.
};

/// What a queue and its operations share.
class QueueState {
public:
    explicit QueueState(std::size_t slots) noexcept : freeSlots_(slots) {}

    void add(QueueOperation& operation) noexcept;
    void cancelAll() noexcept;

    /// Suspends a task until nothing is unfinished.
    class AllFinished final : public Wait<AllFinished, NoCancellation> {
    public:
        explicit AllFinished(QueueState& queue) noexcept : queue_(queue) {}
        AllFinished(const AllFinished&) = delete;
        AllFinished& operator=(const AllFinished&) = delete;
        ~AllFinished() { withdraw(); }

        void await_resume() noexcept { endWait(); }

    private:
        friend Wait<AllFinished, NoCancellation>;

        std::mutex& mutex() const noexcept { return queue_.mutex_; }
        WaiterList& line() const noexcept { return queue_.waiters_; }
        bool mustWait(const TaskContext&) const noexcept { return queue_.unfinished_ != 0; }

        QueueState& queue_;
    };

private:
    friend class QueueOperation;

    void ended(QueueOperation& operation) noexcept;

    /// Gives a slot, to be followed by `schedule` once the lock is free.
    void begin(QueueOperation& operation) noexcept;

    std::mutex mutex_;
    std::size_t freeSlots_;
    std::size_t unfinished_ = 0;
    LinkedList<QueueOperation> pending_;
    LinkedList<QueueOperation> running_;
    WaiterList waiters_;
};

} // namespace Platform::detail
