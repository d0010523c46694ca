#pragma once

#include <Platform/async/detail/QueueState.h>
#include <Platform/base/Export.h>
#include <Platform/runtime/TaskPriority.h>
#include <Platform/runtime/detail/RootTask.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace Platform {

/// One's hold on something that can be cancelled. Move-only; dropping it changes nothing.
class PLATFORM_EXPORT Cancellable {
public:
    Cancellable(Cancellable&& other) noexcept
        : queue_(std::move(other.queue_)), operation_(std::exchange(other.operation_, nullptr)) {}
    Cancellable& operator=(Cancellable&& other) noexcept {
        std::swap(queue_, other.queue_);
        std::swap(operation_, other.operation_);
        return *this;
    }
    ~Cancellable() {
        if (operation_) operation_->release();
    }

    /// A block that has not begun never will, and is destroyed here and now; a running one sees its
    /// task cancelled, whose cancellation handlers run here and now. Does not wait. From any
    /// thread, any number of times.
    void cancel() const noexcept {
        if (operation_) operation_->cancelInQueue();
    }

private:
    friend class AsyncQueue;
    Cancellable(std::shared_ptr<detail::QueueState> queue,
                detail::QueueOperation& operation) noexcept
        : queue_(std::move(queue)), operation_(&operation) {
        operation.retain();
    }

    std::shared_ptr<detail::QueueState> queue_;
    detail::QueueOperation* operation_;
};

/// Runs asynchronous blocks as tasks, a bounded number at a time. A block occupies its slot until
/// it has returned, but holds no thread while it is suspended. Blocks begin in the order in which
/// they were added.
///
/// The tasks run on the shared cooperative pool, at the queue's priority: among ready tasks the
/// more urgent are served first. Destroying the queue neither cancels nor waits: what was added
/// runs on. Any thread may call any operation.
class PLATFORM_EXPORT AsyncQueue {
public:
    /// At most `maxConcurrentTasks` blocks run at once, values below 1 meaning 1; 64 when absent.
    explicit AsyncQueue(std::optional<int> maxConcurrentTasks = std::nullopt,
                        TaskPriority taskPriority = TaskPriority::unspecified);
    AsyncQueue(const AsyncQueue&) = delete;
    AsyncQueue& operator=(const AsyncQueue&) = delete;
    ~AsyncQueue() = default;

    /// Adds a block: called without arguments, it returns a `Task<void>`. It is kept until that has
    /// ended, so a capturing coroutine lambda is safe; an error is dropped. Does not wait. Throws
    /// std::bad_alloc.
    template <class Block>
    Cancellable addTask(Block block) {
        static_assert(std::is_same_v<std::invoke_result_t<Block&>, Task<void>>);
        static_assert(alignof(Block) <= alignof(std::max_align_t));
        auto* const operation = new detail::RootTask<void, Block, detail::QueueOperation>(
            std::move(block), *state_, taskPriority_);
        Cancellable handle(state_, *operation);
        state_->add(*operation);
        return handle;
    }

    /// Cancels everything added so far, as each one's handle would. Does not wait.
    void cancelAllTasks() noexcept { state_->cancelAll(); }

    /// Suspends until the queue has no unfinished task; those added meanwhile count too. Never
    /// fails, and ignores cancellation. The queue may be destroyed meanwhile.
    Task<> waitUntilAllTasksAreFinished() const;

private:
    std::shared_ptr<detail::QueueState> state_;
    TaskPriority taskPriority_;
};

} // namespace Platform
