#include <Platform/runtime/detail/PatienceTimer.h>

#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <cstdint>

#include <sys/timerfd.h>
#include <unistd.h>

namespace Platform::detail {

PatienceTimer::PatienceTimer()
    : timer_(systemCall(SystemCall::watch,
                        [] { return ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC); })) {}

void PatienceTimer::restart(std::chrono::milliseconds time) noexcept {
    itimerspec once{};
    once.it_value.tv_sec = time.count() / 1000;
    once.it_value.tv_nsec = time.count() % 1000 * 1'000'000;
    ::timerfd_settime(timer_.get(), 0, &once, nullptr);
}

void PatienceTimer::wait() noexcept {
    std::uint64_t times = 0;
    while (::read(timer_.get(), &times, sizeof times) == -1 && errno == EINTR) {
    }
}

} // namespace Platform::detail
