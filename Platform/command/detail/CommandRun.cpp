#include <Platform/command/detail/CommandRun.h>

#include <Platform/base/Errno.h>
#include <Platform/command/detail/Pipe.h>
#include <Platform/runtime/Cancellation.h>
#include <Platform/runtime/CheckedContinuation.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <new>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>

#include <fcntl.h>

namespace Platform::detail {

namespace {

constexpr std::size_t mostArguments = 4096;

/// Moves what a child writes to a channel, one chunk at a time.
Task<> pumpOutput(std::shared_ptr<PipeEnd> end, std::shared_ptr<Cmd::Channel> channel) {
    struct Closing {
        PipeEnd& end;
        Cmd::Channel& channel;
        ~Closing() {
            channel.close();
            end.close();
        }
    };
    const Closing closing{*end, *channel};
    try {
        for (;;) {
            PipeEnd::Progress progress{};
            {
                Data chunk;
                progress = end->read(chunk, PipeEnd::usualCapacity);
                if (chunk.size() < chunk.capacity() / 2) chunk = Data(chunk); // holds no more
                if (!chunk.empty()) {
                    try {
                        auto sending = channel->send(std::move(chunk));
                        co_await sending;
                    } catch (const ChannelError&) {
                        end->discard(); // nobody wants the rest, but the child may go on
                    }
                }
            }
            if (progress == PipeEnd::Progress::ended) co_return;
            if (progress == PipeEnd::Progress::made) continue;
            auto ready = end->whenReady();
            co_await ready;
        }
    } catch (const std::bad_alloc&) {
        end->fail(ENOMEM);
        throw;
    }
}

/// Moves chunks from a channel to a child that reads them, for as long as chunks come.
Task<> pumpInput(std::shared_ptr<PipeEnd> end, std::shared_ptr<Cmd::Channel> channel) {
    try {
        for (;;) {
            while (!end->isWritable()) {
                auto ready = end->whenReady();
                co_await ready;
            }
            auto receiving = channel->receive();
            const std::optional<Data> chunk = co_await receiving;
            if (!chunk) break;
            std::span<const std::byte> rest = *chunk;
            while (!rest.empty()) {
                const PipeEnd::Progress progress = end->write(rest);
                if (progress == PipeEnd::Progress::ended) break; // the child does not want it
                if (progress == PipeEnd::Progress::made) continue;
                auto ready = end->whenReady();
                co_await ready;
            }
        }
    } catch (const std::bad_alloc&) {
        end->fail(ENOMEM);
    }
    end->close();
}

/// Resumes a task when a process has ended.
class EndWait final : public ProcessEndObserver {
public:
    explicit EndWait(const ChildProcess& process) noexcept : process_(process) {}
    EndWait(const EndWait&) = delete;
    EndWait& operator=(const EndWait&) = delete;
    ~EndWait() { process_.stopObserving(*this); }

    void begin(CheckedContinuation<> continuation) {
        continuation_.emplace(std::move(continuation));
        if (!process_.observeEnd(*this)) processEnded();
    }

private:
    void processEnded() noexcept override {
        const auto continuation = std::move(*continuation_);
        continuation.resume();
    }

    const ChildProcess& process_;
    std::optional<CheckedContinuation<>> continuation_;
};

bool send(const ChildProcess& process, int signal, bool toGroup) noexcept {
    return toGroup ? process.sendSignalToGroup(signal) : process.sendSignal(signal);
}

} // namespace

CommandRun::CommandRun(const Cmd& command, const Cmd::Options& options, bool captures)
    : path_(command.path), expectedExitStatus_(command.expectedExitStatus), options_(options),
      process_(std::make_shared<ChildProcess>()), input_{nullptr, command.standardInput},
      output_{nullptr, command.standardOutput}, error_{nullptr, command.standardError} {
    if (command.arguments.size() > mostArguments) throw Errno(E2BIG, path_);
    if (options_.staysInGroup && (options_.newSession || options_.terminatesGroup)) {
        throw Errno(EINVAL, path_);
    }
    Launch plan{.path = path_,
                .arguments = command.arguments,
                .environment = command.environment ? &*command.environment : nullptr,
                .workingDirectory =
                    command.workingDirectoryPath ? &*command.workingDirectoryPath : nullptr,
                .group = options_.staysInGroup ? ProcessGroup::parents
                         : options_.newSession ? ProcessGroup::ownInNewSession
                                               : ProcessGroup::own,
                .holdsId = options_.terminatesGroup};
    if (options_.inheritsStreams) {
        for (int number = 0; number < 3; ++number) { // but for those that are closed
            if (::fcntl(number, F_GETFD) != -1)
                plan.descriptors[static_cast<std::size_t>(number)] = number;
        }
    }
    std::array<FileDescriptor, 3> theirs;
    try {
        const auto connect = [&](Stream& stream, std::size_t number, bool isNeeded) {
            if (!isNeeded) return;
            Pipe pipe = makePipe();
            const bool isInput = number == 0;
            theirs[number] = std::move(isInput ? pipe.reading : pipe.writing);
            plan.descriptors[number] = theirs[number].get();
            stream.end =
                std::make_shared<PipeEnd>(std::move(isInput ? pipe.writing : pipe.reading),
                                          isInput ? WatchEvent::writable : WatchEvent::readable);
        };
        connect(input_, 0, input_.channel != nullptr);
        connect(output_, 1, captures || output_.channel);
        connect(error_, 2, captures || error_.channel);
    } catch (const Errno& error) {
        throw Errno(error.number(), path_);
    }
    *process_ = ChildProcess::launch(plan);
    orKill([&] {
        if (input_.end) {
            input_.pump = detached(
                [end = input_.end, channel = input_.channel] { return pumpInput(end, channel); });
        }
        if (options_.timeLimit) limit_ = Alarm(*options_.timeLimit, [this] { expire(); });
    });
}

CommandRun::~CommandRun() {
    closeStreams();
}

template <class Function>
void CommandRun::orKill(Function function) {
    try {
        function();
    } catch (...) {
        process_->sendSignal(SIGKILL);
        cutInput();
        throw;
    }
}

void CommandRun::startOutput() {
    orKill([this] {
        for (Stream* const stream : {&output_, &error_}) {
            if (!stream->end) continue;
            stream->pump = detached([end = stream->end, channel = stream->channel] {
                return pumpOutput(end, channel);
            });
        }
    });
}

Task<> CommandRun::wait() {
    if (isAwaited_.exchange(true)) throw std::logic_error("two tasks wait for one program");
    struct Leaving {
        std::atomic<bool>& isAwaited;
        ~Leaving() { isAwaited = false; }
    };
    const Leaving leaving{isAwaited_};
    auto waiting = withTaskCancellationHandler([this] { return untilEnd(); },
                                               [this]() noexcept { terminate(); });
    co_await waiting;
    checkCancellation();
    if (isOverdue_) throw Errno(ETIMEDOUT, path_);
    for (const Stream* const stream : {&input_, &output_, &error_}) { // nothing passes as whole
        const int error = stream->end ? stream->end->error() : 0;
        if (error != 0) throw Errno(error, path_);
    }
    const int status = process_->status();
    if (!expectedExitStatus_.contains(status)) throw Cmd::ExitError(status);
}

Task<> CommandRun::untilEnd() {
    EndWait end(*process_);
    auto waiting = withCheckedContinuation<>("wait()", [&end](CheckedContinuation<> continuation) {
        end.begin(std::move(continuation));
    });
    co_await waiting;
}

Task<> CommandRun::deliver() {
    auto delivered = [this]() -> Task<> {
        const std::array<Stream*, 2> streams{&output_, &error_};
        for (const Stream* const stream : streams) { // whichever its receiver takes first
            if (stream->pump) stream->end->endAfterWhatIsThere();
        }
        for (Stream* const stream : streams) {
            if (stream->pump) co_await stream->pump;
        }
    };
    auto delivering = withTaskCancellationHandler(delivered, [this]() noexcept { closeStreams(); });
    co_await delivering;
    checkCancellation();
}

void CommandRun::interrupt() noexcept {
    cutAndSend(SIGINT);
}

void CommandRun::terminate() noexcept {
    if (!cutAndSend(SIGTERM) || !options_.killAfter) return;
    const bool wholeGroup = options_.terminatesGroup;
    const auto kill = [process = process_, wholeGroup] { send(*process, SIGKILL, wholeGroup); };
    try {
        Alarm(*options_.killAfter, kill).detach();
    } catch (...) {
        kill(); // rather too early than never
    }
}

bool CommandRun::sendSignal(int number) noexcept {
    return process_->isRunning() && send(*process_, number, options_.terminatesGroup);
}

/// False: the program does not run any more.
bool CommandRun::cutAndSend(int signal) noexcept {
    if (!process_->isRunning()) return false;
    cutStreams();
    send(*process_, signal, options_.terminatesGroup);
    send(*process_, SIGCONT, options_.terminatesGroup); // who has stopped would not hear it
    return true;
}

/// The time limit has passed.
void CommandRun::expire() noexcept {
    if (!process_->isRunning()) return;
    isOverdue_ = true;
    terminate();
}

void CommandRun::cutInput() noexcept {
    input_.pump.cancel();
    if (input_.end) input_.end->close();
}

void CommandRun::cutStreams() noexcept {
    cutInput();
    for (const Stream* const stream : {&output_, &error_}) {
        if (stream->end) stream->end->discard();
        if (stream->channel) stream->channel->close();
    }
}

void CommandRun::closeStreams() noexcept {
    cutStreams();
    for (const Stream* const stream : {&output_, &error_}) {
        if (stream->end) stream->end->close();
    }
}

} // namespace Platform::detail
