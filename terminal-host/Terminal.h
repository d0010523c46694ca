#pragma once

#include <Platform/async/AsyncLock.h>
#include <Platform/base/FileDescriptor.h>
#include <Platform/command/Cmd.h>
#include <Platform/runtime/SerialQueue.h>
#include <Platform/runtime/Task.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <terminal-host/Signals.h>

namespace TerminalHost {

/// The terminal of whoever started this program. One asks or edits there at a time; afterwards its
/// modes are what they were before. The members are callable from any thread.
class Terminal {
public:
    /// Null: there is none. `signals` outlives it.
    static std::shared_ptr<Terminal> open(Signals& signals);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    /// As `restore`.
    ~Terminal();

    /// Shows the prompt and reads a line without echo. Absent at the end of input (Ctrl-D), and
    /// when the task is cancelled.
    Platform::Task<std::optional<std::string>> ask(std::string prompt);

    /// Runs a program that talks to the user here, in this process's group. Throws as `Cmd::run`
    /// does. Returns the signal that ended the program, absent when it ended by itself.
    Platform::Task<std::optional<int>> lend(Platform::Cmd program);

    /// A program has the terminal: Ctrl-C is its business.
    bool isLent() const noexcept { return isLent_; }

    /// Puts everything back before this process stops.
    void hold() noexcept;
    /// Takes up again what was asked, where a shell has changed the modes meanwhile.
    void goOn() noexcept;

    /// Sets the modes that the terminal had when it was opened, unless it is somebody else's just
    /// now.
    void restore() noexcept;

private:
    struct Modes;
    class Question;

    Terminal(Platform::FileDescriptor terminal, Signals& signals);

    std::optional<std::string> readLine(Question& question);
    bool isOurs() const noexcept;
    void setModes(const Modes& modes) const noexcept;
    void show(const std::string& text) const noexcept;

    const Platform::FileDescriptor terminal_;
    Signals& signals_;
    const std::unique_ptr<const Modes> initial_;
    Platform::SerialQueue reading_{"terminal"};
    Platform::AsyncLock use_;
    std::atomic<bool> isLent_ = false;
    std::mutex mutex_;
    Question* asked_ = nullptr; ///< What is being read an answer for.
};

} // namespace TerminalHost
