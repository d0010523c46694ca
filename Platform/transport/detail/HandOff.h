#pragma once

#include <Platform/base/Export.h>
#include <Platform/base/Log.h>
#include <Platform/runtime/Task.h>
#include <Platform/runtime/TaskHandle.h>
#include <Platform/transport/MessageBus.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

/// What the hand-offs (a request of a small client program, answered by its host) have in common.
namespace Platform::detail {

class Presence;

/// Names the pipe of the host to the programs that it starts.
inline constexpr const char* handOffVariable = "MV_EDITOR_CONN";

/// The client's exchange: waits for its turn, sends the program's only argument to its host as a
/// message of kind `request`, and returns the host's answer. Throws `Errno(usageError)` unless
/// there is just one argument, `ENOTRECOVERABLE` when no host is named in the environment,
/// `ECONNREFUSED` or `ECONNRESET` when the host has gone, and what the bus throws.
///
/// For a program of ours: blocks the thread, and takes signals (see `Attendance`).
Task<MessageBus::Message> askHost(MessageBus::Message::ID request, int usageError);

/// What the hosts' halves have in common: a bus of its own, and a detached task that answers its
/// requests, one at a time. Owned by its scope: neither copyable nor movable.
///
/// Clients of ours get their turns in the order in which they came. One that goes before its answer
/// cancels the callback's task, is not answered, and holds nobody up; when the host goes, all its
/// clients end.
class PLATFORM_EXPORT HandOffServer {
public:
    HandOffServer(const HandOffServer&) = delete;
    HandOffServer& operator=(const HandOffServer&) = delete;

    /// The pipe. The same after `stop`.
    const std::string& path() const noexcept { return path_; }

    /// What to put into the environment of the tools that may ask: one entry, `MV_EDITOR_CONN` =
    /// `path()`.
    std::map<std::string, std::string> environment() const;

    /// How many hand-offs are open: the one that is being answered, and the clients that wait for
    /// their turns. Callable from any thread.
    std::size_t openHandOffs() const;

    /// Suspends until no request is answered any more, and the last callback has ended: returns
    /// when the server was stopped, throws the error that ended serving otherwise. Any number of
    /// tasks may await it, for as long as the server lives. Throws CancellationError when the
    /// waiting task is cancelled.
    Task<> untilEnded() const;

    /// Cancels the serving task, removes the pipe and releases its openers. Does not wait for the
    /// task: a callback that runs sees its task cancelled, and its answer goes nowhere. Blocks only
    /// for the cancellation handlers of the callback.
    ///
    /// From any thread, any number of times. Throws `Errno` when the pipe could not be removed; a
    /// later call tries again.
    void stop();

protected:
    /// Called from the serving task or one of its own; kept until the serving task has ended.
    using Answer = std::function<Task<MessageBus::Message>(MessageBus::Message request)>;

    /// Whether the error that ends serving is logged also when the server was stopped.
    enum class EndingLog { always, unlessStopped };

    /// Creates the bus and starts serving. Throws what `MessageBus::create` and `detached` throw.
    HandOffServer(Logger logger, EndingLog endingLog, Answer answer);
    /// Stops; an error is ignored.
    ~HandOffServer();

private:
    struct Service;

    static Task<void> serve(std::shared_ptr<Service> service, Answer answer);

    std::string path_;
    std::shared_ptr<Service> service_;
    std::mutex mutex_;
    std::shared_ptr<MessageBus> bus_; ///< Until it is destroyed.
    TaskHandle<void> task_;           ///< Until it is cancelled.
};

} // namespace Platform::detail
