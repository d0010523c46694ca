#include <Platform/runtime/detail/DetachedContext.h>

#include <stdexcept>

namespace Platform::detail {

bool DetachedContext::addWaiter(TaskContext& waiting) {
    TaskContext* other = nullptr;
    if (waiter_.compare_exchange_strong(other, &waiting, std::memory_order_acq_rel)) return true;
    if (other != endedMark()) throw std::logic_error("TaskHandle: awaited by two tasks at once");
    return false;
}

void DetachedContext::removeWaiter(TaskContext& waiting) noexcept {
    TaskContext* noted = &waiting;
    waiter_.compare_exchange_strong(noted, nullptr, std::memory_order_acq_rel);
}

void DetachedContext::publishEnd() noexcept {
    TaskContext* const waiter = waiter_.exchange(endedMark(), std::memory_order_acq_rel);
    if (waiter) waiter->schedule();
}

} // namespace Platform::detail
