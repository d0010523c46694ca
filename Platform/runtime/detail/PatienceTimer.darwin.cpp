#include <Platform/runtime/detail/PatienceTimer.h>

#include <Platform/base/detail/SystemCall.h>

#include <cerrno>

#include <fcntl.h>
#include <sys/event.h>

namespace Platform::detail {

PatienceTimer::PatienceTimer() : timer_(systemCall(SystemCall::watch, [] { return ::kqueue(); })) {
    systemCall(SystemCall::fcntl, [&] { return ::fcntl(timer_.get(), F_SETFD, FD_CLOEXEC); });
}

void PatienceTimer::restart(std::chrono::milliseconds time) noexcept {
    struct kevent once;
    EV_SET(&once, 0, EVFILT_TIMER, EV_ADD | EV_ONESHOT, 0, time.count(), nullptr);
    ::kevent(timer_.get(), &once, 1, nullptr, 0, nullptr);
}

void PatienceTimer::wait() noexcept {
    struct kevent over;
    while (::kevent(timer_.get(), nullptr, 0, &over, 1, nullptr) == -1 && errno == EINTR) {
    }
}

} // namespace Platform::detail
