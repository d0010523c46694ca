#pragma once

#include <Platform/base/Export.h>
#include <Platform/base/detail/LinkedList.h>
#include <Platform/runtime/detail/TaskContext.h>
#include <Platform/runtime/detail/TaskPromise.h>

#include <coroutine>
#include <cstddef>
#include <mutex>

namespace Platform::detail {

class GroupState;

/// A task group's child: stands in one of its group's lists.
class PLATFORM_EXPORT ChildContext : public TaskContext, public Link {
protected:
    explicit ChildContext(GroupState& group) noexcept;

    void publishEnd() noexcept;

private:
    friend class GroupState;

    GroupState& group_;
};

/// What a task group knows of its children. Used by the parent's task, the ending children and
/// whoever cancels.
class PLATFORM_EXPORT GroupState {
public:
    /// To be made by the task whose children these are.
    GroupState() noexcept : parent_(*TaskContext::current()) {}
    GroupState(const GroupState&) = delete;
    GroupState& operator=(const GroupState&) = delete;
    /// All children have ended.
    ~GroupState();

    TaskContext& parent() const noexcept { return parent_; }

    void start(ChildContext& child) noexcept;
    void cancelAll() noexcept;

    /// The child that ended first of those not yet taken, or null. The caller releases it.
    ChildContext* takeEnded() noexcept;

    enum class Until { nextEnded, allEnded };

    /// Suspends the parent until there is a child to take, or none is left that runs.
    class Wait : public Awaitable {
    public:
        Wait(GroupState& group, Until until) noexcept : group_(group), until_(until) {}

        bool await_ready() const noexcept { return false; }
        template <class Promise>
        bool await_suspend(std::coroutine_handle<Promise> awaiting) const noexcept {
            group_.parent_.suspendAt(awaiting);
            return group_.park(until_);
        }
        void await_resume() const noexcept {}

    private:
        GroupState& group_;
        Until until_;
    };

private:
    friend class ChildContext;

    bool park(Until until) noexcept;
    void ended(ChildContext& child) noexcept;
    bool isOver(Until until) const noexcept;

    TaskContext& parent_;
    std::mutex mutex_;
    LinkedList<ChildContext> running_;
    LinkedList<ChildContext> cancelled_; ///< Running too, but told to end.
    LinkedList<ChildContext> ended_;
    bool isCancelled_ = false;
    bool parked_ = false;
    Until until_ = Until::nextEnded;
};

} // namespace Platform::detail
