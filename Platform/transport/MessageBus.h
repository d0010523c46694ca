#pragma once

#include <Platform/base/Data.h>
#include <Platform/base/Export.h>
#include <Platform/runtime/SerialQueue.h>
#include <Platform/runtime/Task.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Platform {

namespace detail {
class HandOffServer;
}

/// A request/reply channel over one named pipe, which the two sides use in turns: one writes a
/// whole message and closes, the other reads to the end.
///
/// On the wire a message is one id byte and the payload; end-of-file ends it. Which side speaks
/// next is up to the hand-off that uses the bus.
///
/// Shared. The object that created the pipe removes it when it goes; one that joined an existing
/// pipe leaves it. The blocking work runs on the bus's own serial queue, one operation at a time in
/// the order in which they were begun; the calling task is suspended meanwhile, and goes on on its
/// own executor. All operations may be called from any thread.
class PLATFORM_EXPORT MessageBus : public std::enable_shared_from_this<MessageBus> {
    struct Token {};
    struct State;

public:
    /// One message: what it means, and its payload.
    class Message {
    public:
        /// The first byte on the wire.
        enum class ID : std::uint8_t {
            ok = 0,       ///< Positive answer; no payload.
            abort = 1,    ///< Negative answer; no payload.
            data = 2,     ///< Raw bytes.
            text = 3,     ///< A line of UTF-8 text, without a terminator.
            filePath = 4, ///< A path, without a terminator.
        };

        /// The id that a byte stands for; absent for 5 and more.
        static std::optional<ID> idFromByte(std::uint8_t byte) noexcept;

        static const Message& ok() noexcept;
        static const Message& abort() noexcept;
        static Message data(std::span<const std::byte> bytes);
        static Message text(std::string_view text);
        /// The path's bytes as given, not normalised.
        static Message filePath(std::string_view path);

        Message(ID id, Data data) noexcept;

        ID id() const noexcept { return id_; }
        const Data& data() const noexcept { return data_; }

        /// The payload as valid UTF-8, U+FFFD in place of what is not.
        std::string string() const;

        friend bool operator==(const Message&, const Message&) noexcept = default;

    private:
        ID id_;
        Data data_;
    };

    /// Creates a pipe at a fresh path in the user's private directory for them. Throws `Errno`; no
    /// pipe is left then.
    static std::shared_ptr<MessageBus> create();

    /// Joins the bus at a path, which is not looked at: a wrong one shows at the first operation.
    static std::shared_ptr<MessageBus> openAtPath(std::string path);

    MessageBus(Token, std::shared_ptr<State> state, bool destroysAtEnd);
    MessageBus(const MessageBus&) = delete;
    MessageBus& operator=(const MessageBus&) = delete;
    ~MessageBus();

    const std::string& path() const noexcept { return path_; }

    /// Delivers one message; suspends until the other side receives. True when it was written
    /// whole; false when the write was short, or the bus is destroyed.
    ///
    /// The bus and the message are kept until then. A task that is cancelled beforehand gets
    /// CancellationError and nothing is written; cancelled later, it waits on. Throws `Errno`:
    /// `ENOENT` when the pipe was removed, `EPIPE` when the reader went away, those of the system
    /// calls; std::system_error when there is no thread to block.
    Task<bool> send(Message message);

    /// Suspends until the other side sends, and returns its message. A failed call has consumed the
    /// transmission that it read.
    ///
    /// Cancellation as for `send`. Throws `Errno`: `EPIPE` when the bus is destroyed, `EBADMSG` for
    /// an empty transmission or an unknown id, `ENOENT` when the pipe was removed, those of the
    /// system calls; std::system_error when there is no thread to block.
    Task<Message> receive();

    /// Removes the pipe, joined or created, and releases whoever is blocked in an open of it, this
    /// bus's own operation in flight certainly. Then `send` gives false and `receive` throws
    /// `EPIPE`; a second call does nothing. Does not wait for operations. Throws `Errno` when the
    /// pipe could not be removed; the bus is as it was then, and a later call may try again.
    void destroy();

private:
    friend detail::HandOffServer;

    static Task<bool> send(std::shared_ptr<MessageBus> bus, Message message);
    static Task<Message> receive(std::shared_ptr<MessageBus> bus);

    static std::shared_ptr<MessageBus> createAtPath(std::string path);

    /// Called by the queue each time it is about to open the pipe. When it returns true, the open
    /// is released at once. Before the first operation.
    void onOpen(std::function<bool(bool forReading)> function);

    /// Has an operation that waits in its open go on as if the other side had opened and closed the
    /// pipe. From any thread; does not block.
    void releaseOpen() noexcept;

    /// Whether somebody has the pipe open to read, or waits in such an open.
    bool hasReader() const;

    std::string path_;
    std::shared_ptr<State> state_;
    SerialQueue queue_;
    bool destroysAtEnd_;
};

template <>
inline constexpr bool detail::mayBeSecret<MessageBus::Message> = true;

} // namespace Platform
