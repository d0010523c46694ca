#pragma once

#include <Platform/base/FileDescriptor.h>
#include <Platform/runtime/CheckedContinuation.h>
#include <Platform/runtime/Task.h>
#include <Platform/runtime/detail/Alarm.h>
#include <Platform/runtime/detail/Poller.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

/// A socket beside a pipe, which tells who is there and whose turn it is. Nothing of the hand-off
/// itself goes through it. docs/hand-off.md has the whole protocol.
namespace Platform::detail {

/// What the two sides say: the host that it is the client's turn; each that what it wrote into the
/// pipe is whole.
constexpr char turn = 1;
constexpr char whole = 2;

/// Where the presence of the host of a pipe is.
std::string presencePath(const std::string& pipePath);

/// The host's side: gives one client a turn at a time, in the order of their arrival, and learns
/// when that client has gone. Shared; callable from any thread.
class Presence final : public std::enable_shared_from_this<Presence>, private Watch {
    struct Token {};
    class Visitor;

public:
    /// Makes the socket for a pipe that is about to be made. Null where that is not possible: the
    /// host does without then, and the log says so once. Throws `Errno` for a directory that is not
    /// private.
    static std::shared_ptr<Presence> create(const std::string& pipePath);

    Presence(Token, FileDescriptor listener, std::string path);
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    ~Presence();

    /// What happens when the client that has the turn goes, in place of what was said before; at
    /// once when it has gone. On the polling thread or the caller's; must be quick, must not throw.
    struct Departure {
        /// Called while the turn is still taken, and never after; must not call this object.
        std::function<void()> release{};
        /// Called later, perhaps after the turn.
        std::function<void()> tell{};
    };
    void onDeparture(Departure departure);

    /// The host is in `receive`, and its pipe is empty: the next client, waiting or still to come,
    /// gets the turn.
    void giveTurn();

    /// Nobody gets a turn until `giveTurn`.
    void holdTurns();

    /// Whether the client that has the turn has gone; false also when nobody has it.
    bool hasGone();

    /// Suspends until the client that has the turn has said that its question is whole; false when
    /// it has gone without that, or says nothing for a second: what was read is not its own then.
    Task<bool> isWhole();

    /// Tells the client that has the turn that its answer is whole.
    void confirmAnswer();

    /// Suspends until the client that has the turn has gone; false when it has not within a second.
    /// A process that dies may close the pipe before its connection.
    Task<bool> goesSoon();

    /// Suspends until the client that has the turn has gone; takes the turn from it then.
    /// `close` cuts this, `isWhole` and `goesSoon` short; cancellation does not.
    Task<> untilGone();

    /// Clients with the turn or waiting for it.
    std::size_t visitors();

    /// Hangs up on everybody: clients that come later are refused. The socket's path stays.
    void close() noexcept;

    /// The same; then there is no trace of a host.
    void remove() noexcept;

private:
    void ready() noexcept override;
    void acceptVisitors();
    void offerTurn();
    void changed(const Visitor& visitor) noexcept;
    Task<> untilOrTimeout(bool (Visitor::*isSo)() const);
    Task<> until(bool (Visitor::*isSo)() const, const std::atomic<bool>* isOver);
    void wake() noexcept;

    const std::string path_;
    std::mutex mutex_;
    Departure departure_;
    FileDescriptor listener_;
    std::deque<std::shared_ptr<Visitor>> waiting_;
    std::shared_ptr<Visitor> holder_;
    std::optional<CheckedContinuation<>> awaited_; ///< By `until`.
    Alarm retry_;                                  ///< Of an accept that had no descriptor.
    bool givesTurn_ = false;
    bool isClosed_ = false;
};

/// Removes what dead hosts have left beside a pipe's path: sockets that refuse, with their pipes.
void removeDeadHosts(const std::string& pipePath) noexcept;

} // namespace Platform::detail
