#pragma once

#include <Platform/base/FileDescriptor.h>

#include <chrono>

namespace Platform::detail {

/// Tells one thread when nothing has happened for a while. To say that something has happened wakes
/// nobody, and costs one system call.
class PatienceTimer {
public:
    /// Not running. Throws `Errno`.
    PatienceTimer();

    /// Begins anew. From any thread.
    void restart(std::chrono::milliseconds time) noexcept;

    /// Blocks until the time since the last `restart` is over; once for each time that it was.
    void wait() noexcept;

private:
    FileDescriptor timer_;
};

} // namespace Platform::detail
