#pragma once

#include <cerrno>
#include <ctime>

namespace Platform::detail {

/// Whether a system call that waits failed with this number because the system lacks the means to
/// wait just now: that says nothing about what it should have waited for.
constexpr bool isShortage(int number) noexcept {
    return number == EAGAIN || number == ENOMEM;
}

/// Sleeps for a moment before such a call is tried again. As a system call: 0, or -1 with `EINTR`.
inline int pauseBeforeRetry() noexcept {
    constexpr timespec time{0, 5'000'000};
    return ::nanosleep(&time, nullptr);
}

} // namespace Platform::detail
