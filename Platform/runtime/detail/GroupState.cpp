#include <Platform/runtime/detail/GroupState.h>

#include <utility>

namespace Platform::detail {

ChildContext::ChildContext(GroupState& group) noexcept
    : TaskContext(group.parent().executor(), group.parent().priority()), group_(group) {}

void ChildContext::publishEnd() noexcept {
    group_.ended(*this);
}

GroupState::~GroupState() {
    while (ChildContext* const child = takeEnded()) child->release();
}

void GroupState::start(ChildContext& child) noexcept {
    child.retain(); // for `takeEnded`
    bool cancelled = false;
    {
        const std::lock_guard guard(mutex_);
        cancelled = isCancelled_;
        (cancelled ? cancelled_ : running_).append(child);
    }
    if (cancelled) child.cancel();
    child.schedule();
}

void GroupState::cancelAll() noexcept {
    // Handlers run without the lock, one child at a time; a child that ends meanwhile is kept
    // alive.
    while (true) {
        ChildContext* child = nullptr;
        {
            const std::lock_guard guard(mutex_);
            isCancelled_ = true;
            child = running_.takeFirst();
            if (!child) return;
            cancelled_.append(*child);
            child->retain();
        }
        child->cancel();
        child->release();
    }
}

ChildContext* GroupState::takeEnded() noexcept {
    const std::lock_guard guard(mutex_);
    return ended_.takeFirst();
}

bool GroupState::isOver(Until until) const noexcept {
    return (running_.empty() && cancelled_.empty()) ||
           (until == Until::nextEnded && !ended_.empty());
}

bool GroupState::park(Until until) noexcept {
    const std::lock_guard guard(mutex_);
    if (isOver(until)) return false;
    until_ = until;
    parked_ = true;
    return true;
}

void GroupState::ended(ChildContext& child) noexcept {
    // Once the lock is free and the parent was not parked, the group may be gone.
    TaskContext& parent = parent_;
    bool wake = false;
    {
        const std::lock_guard guard(mutex_);
        child.unlink();
        ended_.append(child);
        if (parked_ && isOver(until_)) wake = std::exchange(parked_, false);
    }
    if (wake) parent.schedule();
}

} // namespace Platform::detail
