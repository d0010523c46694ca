#pragma once

#include <Platform/async/detail/Wait.h>
#include <Platform/base/Export.h>
#include <Platform/base/detail/CacheLine.h>
#include <Platform/base/detail/MessageBlock.h>
#include <Platform/base/detail/QuickMutex.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>

namespace Platform::detail {

class QueueState;

/// One block in a queue, from its adding to its end: it waits for a slot, then runs; or it is
/// cancelled before it has begun, and ends without having run.
class PLATFORM_EXPORT QueueOperation : public TaskContext, public Link {
public:
    static void* operator new(std::size_t size) { return allocateMessageBlock(size); }
    static void operator delete(void* block) noexcept { freeMessageBlock(block); }

    /// As a handle's `cancel`.
    void cancelInQueue() noexcept;

protected:
    QueueOperation(QueueState& queue, TaskPriority priority);

    bool mayBegin() const noexcept { return !isCancelled(); }
    void publishEnd() noexcept;

private:
    friend class QueueState;

    /// Ends an operation that was taken out of the line.
    void drop() noexcept;

    QueueState& queue_;
    QueueOperation* nextAdded_ = nullptr; ///< In the queue's inbox.
    bool hasSlot_ = false;                ///< Guarded by the queue's lock.
};

/// What a queue and its operations share.
class PLATFORM_EXPORT QueueState : public std::enable_shared_from_this<QueueState> {
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

        QuickMutex& mutex() const noexcept { return queue_.mutex_; }
        WaiterList& line() const noexcept { return queue_.waiters_; }
        bool mustWait(const TaskContext&) const noexcept { return !queue_.allFinished(); }

        QueueState& queue_;
    };

private:
    friend class QueueOperation;

    void ended(QueueOperation& operation) noexcept;

    // Called with the lock held.
    void openInbox() noexcept;
    bool allFinished() noexcept;
    QueueOperation* startNext() noexcept;

    /// What was added and not looked at yet, the newest first. Adding takes no lock while all slots
    /// are busy, so that it is not held up by the operations that end meanwhile.
    alignas(cacheLine) std::atomic<QueueOperation*> inbox_{nullptr};

    alignas(cacheLine) QuickMutex mutex_;
    std::atomic<std::size_t> freeSlots_; ///< Written with the lock held.
    std::size_t unfinished_ = 0;         ///< Of those out of the inbox.
    LinkedList<QueueOperation> pending_;
    LinkedList<QueueOperation> running_;
    WaiterList waiters_;
    std::shared_ptr<QueueState> self_; ///< While something is unfinished.
};

} // namespace Platform::detail
