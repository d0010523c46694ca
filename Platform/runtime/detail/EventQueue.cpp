#include <Platform/runtime/detail/EventQueue.h>

#include <Platform/base/detail/Shortage.h>

#include <cerrno>

#include <poll.h>

namespace Platform::detail {

void EventQueue::wait() const noexcept {
    // The queue itself can be waited for, so nothing has to be taken from it before the lock is
    // held that keeps the watches alive.
    pollfd waiting{queue_.get(), POLLIN, 0};
    while (::poll(&waiting, 1, -1) == -1) {
        if (errno == EINTR) continue;
        pauseBeforeRetry(); // poll failed for a lack of memory; events may be there
        return;
    }
}

} // namespace Platform::detail
