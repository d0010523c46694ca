#pragma once

#include <functional>
#include <optional>

#include <pthread.h>

namespace Platform::detail {

/// A thread of the library's own. It takes no signals, which belong to the host's threads (those
/// that a thread's own fault raises excepted). Its stack has 8 MiB whatever the system's default,
/// since callbacks of the library's user run on it.
///
/// Move-only; as with std::thread, a thread is joined or detached before its owner goes.
class Thread {
public:
    /// Names a thread for as long as it runs. Absent: no thread.
    using Id = std::optional<pthread_t>;

    /// No thread.
    Thread() noexcept = default;
    /// Starts a thread that calls `body`, which must not throw. Throws std::system_error when the
    /// system has no thread to give, and std::bad_alloc.
    explicit Thread(std::function<void()> body);

    Thread(Thread&& other) noexcept;
    Thread& operator=(Thread&& other) noexcept;
    ~Thread();

    /// Absent after `join`, `detach` and a move.
    Id id() const noexcept { return id_; }

    /// The calling thread's, whether the library started it or not.
    static Id currentId() noexcept { return ::pthread_self(); }

    /// Blocks until the thread has ended.
    void join() noexcept;

    /// Lets the thread end by itself.
    void detach() noexcept;

private:
    Id id_;
};

/// Names the calling thread for debuggers and process lists; cut at what the system allows.
void setThreadName(const char* name) noexcept;

/// Has the system serve the calling thread as tasks of this urgency (see `urgencyOf`) deserve. Does
/// nothing where threads have no quality of service.
void setThreadUrgency(int urgency) noexcept;

} // namespace Platform::detail
