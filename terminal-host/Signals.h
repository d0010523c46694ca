#pragma once

#include <Platform/base/FileDescriptor.h>
#include <Platform/runtime/CheckedContinuation.h>
#include <Platform/runtime/Task.h>

#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <signal.h>

namespace TerminalHost {

/// The signals that are meant for the command as much as for this program. Every thread
/// blocks them; the thread that handles them does not while it waits. One object a process.
///
/// They are not waited for by `sigwait`. On macOS that never sees a signal that is ignored by
/// default (SIGWINCH), and a second signal that comes before the waiting thread runs takes its
/// default action.
class Signals {
public:
    /// Blocks the signals for this thread and those that it starts: to be made before any other
    /// thread. A signal that this process was started to ignore stays ignored. Throws
    /// std::system_error.
    Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    /// Waits for a handler that is running. The signals stay blocked.
    ~Signals();

    /// From now on the handler is called for each signal, also for those that came before.
    void handle(std::function<void(int)> handler);

    /// Suspends until the handler has been called for every SIGINT and SIGQUIT that came before.
    Platform::Task<> settled();

    /// Has this process do what the signal does by default; nothing if it ignores the signal.
    static void obey(int number) noexcept;

private:
    int nextSignal() const noexcept;

    sigset_t held_{};
    Platform::FileDescriptor caught_; ///< A pipe: numbers of signals, 0 ends the thread.
    Platform::FileDescriptor catching_;
    std::mutex mutex_;
    std::vector<Platform::CheckedContinuation<>> waiting_; ///< In `settled`.
    std::thread thread_;
};

} // namespace TerminalHost
