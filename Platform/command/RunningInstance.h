#pragma once

#include <Platform/base/Export.h>
#include <Platform/command/Cmd.h>

#include <memory>
#include <optional>

namespace Platform {

namespace detail {
class CommandRun;
}

/// A program that was started. Made by `Cmd::start`; shared. The members are callable from any
/// thread.
///
/// When the last reference goes, the streams are cut: the receivers of the output channels see the
/// end, and the program finds its streams closed. It is not signalled; the system is relieved of it
/// when it ends, whether anybody waits or not.
class PLATFORM_EXPORT Cmd::RunningInstance : public std::enable_shared_from_this<RunningInstance> {
public:
    RunningInstance(const RunningInstance&) = delete;
    RunningInstance& operator=(const RunningInstance&) = delete;
    ~RunningInstance();

    /// Names the process for as long as it runs.
    int processIdentifier() const noexcept;

    /// False from the program's end on.
    bool isRunning() const noexcept;

    /// Suspends until the program has ended; for one task at a time (a second one gets
    /// std::logic_error). The streams go on for as long as the instance lives, which the task sees
    /// to.
    ///
    /// Cancelling the task terminates the program; the wait goes on until that has ended, and then
    /// fails with CancellationError, with an accepted status too. Throws `ExitError`, without error
    /// data, for a status that is not an expected one, and `Errno`: `ETIMEDOUT` when the program
    /// ran for too long, `ECHILD` when other code of this process has collected the end, the
    /// system's number when bytes got lost on their way through a stream.
    Task<> wait();

    /// Cuts the streams and sends SIGINT, and SIGCONT to a program that has stopped. Does nothing
    /// at all when the program does not run any more.
    ///
    /// The receivers of the output channels see the end; what the program still writes is read and
    /// dropped; its input has ended.
    void interrupt() noexcept;

    /// The same with SIGTERM.
    void terminate() noexcept;

    /// Sends a signal to whom `terminate` would send it, and leaves the streams alone. Returns
    /// false when there is nobody left.
    bool sendSignal(int number) noexcept;

    /// The signal that ended the program, which `wait` does not tell from an exit status; absent
    /// when it ended by itself, and while it runs.
    std::optional<int> endingSignal() const noexcept;

private:
    friend Cmd;

    RunningInstance(const Cmd& command, const Options& options);
    static Task<> wait(std::shared_ptr<RunningInstance> instance);

    const std::unique_ptr<detail::CommandRun> run_;
};

} // namespace Platform
