#pragma once

#include <Platform/command/Cmd.h>
#include <Platform/command/detail/ChildProcess.h>
#include <Platform/command/detail/PipeEnd.h>
#include <Platform/runtime/TaskHandle.h>
#include <Platform/runtime/detail/Alarm.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace Platform::detail {

/// One run of a command: the process, and our ends of its streams. Stays where it is; callable from
/// any thread. When it goes, the streams are closed.
class CommandRun {
public:
    /// Starts the program. Pipes are made for the streams that have a channel, and with `captures`
    /// for both output streams. Throws as `Cmd::start`.
    CommandRun(const Cmd& command, const Cmd::Options& options, bool captures);
    CommandRun(const CommandRun&) = delete;
    CommandRun& operator=(const CommandRun&) = delete;
    ~CommandRun();

    const ChildProcess& process() const noexcept { return *process_; }
    const std::shared_ptr<PipeEnd>& output() const noexcept { return output_.end; }
    const std::shared_ptr<PipeEnd>& error() const noexcept { return error_.end; }

    /// Moves bytes from the output streams to their channels, on the shared pool. Throws with the
    /// program killed.
    void startOutput();

    /// As `RunningInstance::wait`.
    Task<> wait();

    /// After the process's end: suspends until what it wrote was received from the channels.
    Task<> deliver();

    /// As `RunningInstance::interrupt`.
    void interrupt() noexcept;
    void terminate() noexcept;
    bool sendSignal(int number) noexcept;

    /// Ends everything that goes on in the streams.
    void closeStreams() noexcept;

private:
    struct Stream {
        std::shared_ptr<PipeEnd> end;
        std::shared_ptr<Cmd::Channel> channel;
        TaskHandle<> pump{};
    };

    /// What follows the launch: when it throws, nothing was started.
    template <class Function>
    void orKill(Function function);
    Task<> untilEnd();
    void cutInput() noexcept;
    void cutStreams() noexcept;
    bool cutAndSend(int signal) noexcept;
    void expire() noexcept;

    const std::string path_;
    const std::set<std::int64_t> expectedExitStatus_;
    const Cmd::Options options_;
    const std::shared_ptr<ChildProcess> process_;
    Stream input_;
    Stream output_;
    Stream error_;
    std::atomic<bool> isAwaited_{false};
    std::atomic<bool> isOverdue_{false};
    Alarm limit_;
};

} // namespace Platform::detail
