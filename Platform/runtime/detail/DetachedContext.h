#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/detail/TaskContext.h>

#include <atomic>
#include <cstdint>

namespace Platform::detail {

/// A detached task: its end wakes the one task that may wait for it.
class PLATFORM_EXPORT DetachedContext : public TaskContext {
public:
    bool hasEnded() const noexcept {
        return waiter_.load(std::memory_order_acquire) == endedMark();
    }

    /// Notes the waiting task. False: this task has ended already. Throws std::logic_error when
    /// another one waits.
    [[nodiscard]] bool addWaiter(TaskContext& waiting);

    /// Withdraws a waiting task whose frame is being destroyed.
    void removeWaiter(TaskContext& waiting) noexcept;

protected:
    using TaskContext::TaskContext;

    void publishEnd() noexcept;

private:
    /// Stands in `waiter_` for good once the task has ended. An address no task can have.
    static TaskContext* endedMark() noexcept {
        return reinterpret_cast<TaskContext*>(std::uintptr_t{1});
    }

    std::atomic<TaskContext*> waiter_{nullptr};
};

} // namespace Platform::detail
