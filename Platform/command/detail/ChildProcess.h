#pragma once

#include <Platform/command/detail/ProcessLaunch.h>

#include <array>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace Platform::detail {

class ChildState;

/// What to start, and how. References and pointers are used during the launch only.
struct Launch {
    const std::string& path;                                         ///< Never searched for.
    std::span<const std::string> arguments{};                        ///< Those after the path.
    const std::map<std::string, std::string>* environment = nullptr; ///< Null: this process's.
    const std::string* workingDirectory = nullptr;                   ///< Null: this process's.
    /// What becomes standard input, output and error; -1: the null device.
    std::array<int, 3> descriptors{-1, -1, -1};
    ProcessGroup group = ProcessGroup::own;
    /// The id stays the process's own until the handle goes, also after its end: its group can be
    /// signalled until then, and the system keeps what is left of it.
    bool holdsId = false;
};

/// Is told of the end of a process. Owned by who waits.
class ProcessEndObserver {
public:
    /// On a thread that others wait for: must be quick, must not block, nor stop the observing.
    virtual void processEnded() noexcept = 0;

protected:
    ~ProcessEndObserver() = default;
};

/// The handle of a child process. Move-only; a moved-from handle is empty and good for nothing.
///
/// The child's end is collected by one place, for this child alone, whether anybody waits for it or
/// not, and also when the handle has gone before; no signal handler has a part in it. The members
/// are callable from any thread.
class ChildProcess {
public:
    /// Starts a program. It gets descriptors 0, 1 and 2 and no others, an empty signal mask,
    /// and default dispositions. It runs when this returns, or has ended.
    ///
    /// Blocks until the system has accepted the program; costs the same however much memory this
    /// process has.
    ///
    /// Throws `Errno`, and nothing was started: the system's own number; `what()` says which file
    /// it is about, and why it is not the program where that is so (its working directory, the
    /// interpreter of a script). `EINVAL`: a NUL somewhere, or a variable whose name is empty or
    /// has a '='. `ECHILD`: this process ignores SIGCHLD, so the end could not be told. Throws
    /// std::system_error when there is no thread to be had.
    static ChildProcess launch(const Launch& launch);

    ChildProcess() noexcept = default;
    ChildProcess(ChildProcess&&) noexcept = default;
    ChildProcess& operator=(ChildProcess&& other) noexcept;
    /// Leaves a process that runs alone; sees to its end all the same.
    ~ChildProcess();

    /// Names the process for as long as it runs.
    int id() const noexcept;

    /// False from the end of the process on, whether it was noted already or not; while a debugger
    /// keeps the end to itself, it has not come.
    bool isRunning() const noexcept;

    /// Sends a signal to the process. Returns false, and signals nobody, when its end was noted or
    /// it is not ours to signal.
    bool sendSignal(int number) const noexcept;

    /// Sends a signal to the process and what it started, as far as that stayed in its group. After
    /// the end was noted: nobody, unless `holdsId` was asked for. Returns false when there is
    /// nobody.
    bool sendSignalToGroup(int number) const noexcept;

    /// Has the observer told of the end, once; one at a time. Returns false, and does not tell it,
    /// when the end was noted before.
    bool observeEnd(ProcessEndObserver& observer) const noexcept;

    /// Once this has returned, the observer is neither being told nor will be. Hold no lock that it
    /// takes. Returns true when it was still to be told.
    bool stopObserving(ProcessEndObserver& observer) const noexcept;

    /// Blocks until the end is noted, or for as long as `limit`. Returns whether it is.
    bool waitForEnd(std::chrono::milliseconds limit) const;
    void waitForEnd() const;

    /// How the process ended: its exit status, or N when signal N ended it. To be called once the
    /// end is noted. Throws `Errno` (`ECHILD`) when other code of this process has collected the
    /// end in our place or had it thrown away.
    int status() const;

    /// The signal that ended the process; absent when it ended by itself, or the end was not noted.
    std::optional<int> endingSignal() const noexcept;

private:
    explicit ChildProcess(std::shared_ptr<ChildState> state) noexcept;

    std::shared_ptr<ChildState> state_;
};

} // namespace Platform::detail
