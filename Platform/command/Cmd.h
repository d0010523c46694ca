#pragma once

#include <Platform/async/AsyncChannel.h>
#include <Platform/base/Data.h>
#include <Platform/base/Export.h>
#include <Platform/runtime/Task.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Platform {

/// The description of one run of an external program: a plain value, describing starts nothing.
///
///     const Cmd log{.path = "/usr/bin/git", .arguments = {"log", "--oneline"},
///                   .environment = std::nullopt, .workingDirectoryPath = repository,
///                   .expectedExitStatus = {0}, .mergeOutputIntoError = false,
///                   .standardInput = nullptr, .standardOutput = nullptr, .standardError =
///                   nullptr};
///     const std::string text = co_await log.outputString();
///
/// State all nine fields. A command may be run any number of times, also at the same time; the runs
/// share its channels. The operations work on a copy of the command, which may go meanwhile; they
/// are callable from any thread, and run on the executor of the task that awaits them.
///
/// The program gets descriptors 0, 1 and 2 and no others, default signal dispositions, an empty
/// signal mask, and a process group of its own, so that a signal for it and what it started never
/// reaches this process.
///
/// Every operation that waits fails with `ExitError` when the status is not an expected one, and
/// with CancellationError when its task is cancelled: then the program has been sent SIGTERM, its
/// streams have been cut, and its end has been waited for. An operation that starts the program
/// throws `Errno` when that fails, and nothing runs then: `E2BIG` for more than 4096 arguments,
/// before anything else is looked at, else the system's number, with a text that says which file
/// it is about (never an argument or a variable, which may be secrets).
struct PLATFORM_EXPORT Cmd {
    using Channel = AsyncChannel<Data>;

    class ExitError;
    class RunningInstance;

    /// What a capturing operation keeps of the program's output.
    enum class Captured : std::uint8_t { nothing, output, outputAndError };
    struct Capture;
    struct Options;

    /// Absolute; `PATH` is not searched (see `which`).
    std::string path;
    /// Those after the program's name, 4096 at most.
    std::vector<std::string> arguments;
    /// The program's whole environment; absent: this process's.
    std::optional<std::map<std::string, std::string>> environment;
    /// Absent: this process's.
    std::optional<std::string> workingDirectoryPath;
    /// What counts as success. No status does when it is empty. (A program that signal N ended has
    /// status N.)
    std::set<std::int64_t> expectedExitStatus;
    /// The capturing operations put standard output into the saved error text too.
    bool mergeOutputIntoError;
    /// What the program reads: a chunk is received from the channel each time its pipe can take
    /// one; the program sees the end when the channel is closed. What it does not read any more is
    /// received and dropped, until the operation has ended (after `start`: until the instance has
    /// gone); a sender that waits then has to be cancelled, or freed by closing the channel. Null:
    /// the null device.
    std::shared_ptr<Channel> standardInput;
    /// Gets what the program writes, chunk by chunk, each taken before the next is read, so that a
    /// program is slowed down to the speed of the receiver. Closed when the stream ends. When the
    /// channel is closed from outside the rest is read and dropped. Null: the null device.
    std::shared_ptr<Channel> standardOutput;
    /// Likewise. Not the same channel: whichever stream ended first would close it for both.
    std::shared_ptr<Channel> standardError;

    /// Starts the program with the command's channels as its streams. It runs when this returns,
    /// or has ended. Blocks until the system has accepted the program; the channels are untouched
    /// when that fails.
    std::shared_ptr<RunningInstance> start() const;
    std::shared_ptr<RunningInstance> start(Options options) const;

    /// Starts the program, and suspends until it has ended and all that it wrote was received from
    /// the output channels, which must have receivers. Others that hold its streams open are not
    /// waited for: for them the streams are closed.
    Task<> run() const;
    Task<> run(Options options) const;

    /// Runs the program to its end, and returns all that was written to its standard output, by
    /// whoever had it.
    ///
    /// This and the other capturing operations suspend until both output streams have ended, which
    /// a program that was left behind with them can delay (see `Options::outputGrace`). They send
    /// what comes on to the command's own channels too, and have closed those on every way out;
    /// when such a channel is closed from outside, the rest of that stream is read and dropped, and
    /// missing in what is returned (`Capture::isComplete` says so).
    /// Their `ExitError` has the standard error text: the first 32768 bytes and the last, and
    /// between them how many were omitted.
    Task<Data> output() const;
    Task<Data> output(Options options) const;

    /// The same, decoded as UTF-8 (see `decodeUTF8`), not trimmed.
    Task<std::string> outputString() const;
    Task<std::string> outputString(Options options) const;

    /// The same with standard error among it, in the order in which chunks of them arrived.
    Task<Data> combinedOutput() const;
    Task<Data> combinedOutput(Options options) const;

    /// The same, but keeps no output.
    Task<> error() const;
    Task<> error(Options options) const;

    /// What the four above are made of: says besides whether the streams were seen to their ends.
    Task<Capture> capture(Captured what, Options options) const;
};

/// What a run can do besides. Each is off unless it is asked for.
struct PLATFORM_EXPORT Cmd::Options {
    using Time = std::chrono::milliseconds;

    /// The program is terminated when it runs for longer; whoever waits gets `Errno` (`ETIMEDOUT`)
    /// once it has ended. Give `killAfter` too unless it can be trusted to obey, and `outputGrace`
    /// where what it left behind may hold a captured stream open.
    std::optional<Time> timeLimit{};

    /// SIGKILL follows SIGTERM after this time, if the program has not ended by then; with
    /// `terminatesGroup` in any case, to those of its group that are left; the system keeps what is
    /// left of the program until then.
    std::optional<Time> killAfter{};

    /// Signals go to the program's whole process group: what it started too, as far as that has
    /// stayed there. None are sent once the program itself has ended, but for `killAfter`.
    bool terminatesGroup = false;

    /// Once the program has ended, a capturing operation waits no longer than this for the end of
    /// the streams, and returns what was written until then (see `Capture::isComplete`). All that
    /// the program itself wrote is among it, also when the time is none.
    std::optional<Time> outputGrace{};

    /// The program leads a session of its own, without a terminal.
    bool newSession = false;

    /// Where there is no channel, and nothing is captured, the program has this process's own
    /// stream instead of the null device.
    bool inheritsStreams = false;

    /// The program stays in this process's group: it may use the terminal as this process does, and
    /// what the user types there to stop or end programs reaches both. Goes with neither
    /// `newSession` nor `terminatesGroup` (`EINVAL`).
    bool staysInGroup = false;
};

/// What a capturing operation got.
struct PLATFORM_EXPORT Cmd::Capture {
    Data data;
    /// Both streams were seen to their ends.
    bool isComplete = false;
};

/// A program ended with a status that was not expected.
class PLATFORM_EXPORT Cmd::ExitError : public std::exception {
public:
    explicit ExitError(std::int64_t status, std::optional<Data> errorData = std::nullopt);

    std::int64_t status;
    /// What was saved of standard error; absent unless a capturing operation failed.
    std::optional<Data> errorData;

    /// `errorData` decoded as UTF-8 (see `decodeUTF8`), without white space and line ends at both
    /// ends; absent when there are no bytes. Throws std::bad_alloc.
    std::optional<std::string> errorString() const;

    /// "Exit status N", and when there is an error text, ": " and the text. Throws std::bad_alloc.
    std::string errorDescription() const;

    /// The description as it was when the error was made.
    const char* what() const noexcept override { return description_->c_str(); }

private:
    std::shared_ptr<const std::string> description_;
};

} // namespace Platform
