#pragma once

#include <Platform/runtime/CheckedContinuation.h>
#include <Platform/runtime/Task.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <signal.h>

namespace TerminalHost {

/// The signals that are meant for the command as much as for this program: held up from the start,
/// and handled on a thread of their own.
class Signals {
public:
    /// Blocks them for this thread and those that it starts: to be made before any other. What this
    /// process was started to ignore it goes on ignoring.
    Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    /// Waits for a handling that is under way.
    ~Signals();

    /// From now on each goes to the handler, those that came before too.
    void handle(std::function<void(int)> handler);

    /// Suspends until those that came before have been handled.
    Platform::Task<> settled();

    /// Has this process do what the signal does by default.
    static void obey(int number) noexcept;

private:
    sigset_t held_{};
    std::atomic<bool> isEnding_ = false;
    std::mutex mutex_;
    std::vector<Platform::CheckedContinuation<>> waiting_; ///< In `settled`.
    std::thread thread_;
};

} // namespace TerminalHost
