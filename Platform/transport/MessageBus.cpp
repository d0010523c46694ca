#include <Platform/transport/MessageBus.h>

#include <Platform/base/Errno.h>
#include <Platform/base/FileDescriptor.h>
#include <Platform/base/TemporaryDirectory.h>
#include <Platform/base/Text.h>
#include <Platform/runtime/Cancellation.h>
#include <Platform/runtime/CheckedContinuation.h>
#include <Platform/runtime/detail/LaunchGate.h>
#include <Platform/transport/FIFO.h>

#include <cerrno>
#include <exception>
#include <mutex>
#include <utility>

namespace Platform {

using Message = MessageBus::Message;

namespace {

// Any message may hold what the user typed: no payload and no frame is given back to the system
// unwiped.
Data secretCopy(std::span<const std::byte> bytes) {
    Data copy = Data::secret();
    copy.append(bytes);
    return copy;
}

} // namespace

std::optional<Message::ID> Message::idFromByte(std::uint8_t byte) noexcept {
    if (byte > static_cast<std::uint8_t>(ID::filePath)) return std::nullopt;
    return static_cast<ID>(byte);
}

const Message& Message::ok() noexcept {
    static const Message message(ID::ok, Data());
    return message;
}

const Message& Message::abort() noexcept {
    static const Message message(ID::abort, Data());
    return message;
}

Message Message::data(std::span<const std::byte> bytes) {
    return {ID::data, secretCopy(bytes)};
}

Message Message::text(std::string_view text) {
    return {ID::text, secretCopy(std::as_bytes(std::span(text)))};
}

Message Message::filePath(std::string_view path) {
    return {ID::filePath, secretCopy(std::as_bytes(std::span(path)))};
}

Message::Message(ID id, Data data) noexcept : id_(id), data_(std::move(data)) {}

std::string Message::string() const {
    return decodeUTF8(data_);
}

namespace {

/// Resumes the task with what `work` returns or throws, when everything that `work` opened is
/// closed. Not from inside a handler, which would share the exception with the task that goes on.
template <class T, class Work>
void resumeWith(const CheckedContinuation<T>& continuation, Work work) {
    std::optional<T> result;
    std::exception_ptr error;
    try {
        result.emplace(work());
    } catch (...) {
        error = std::current_exception();
    }
    if (error) return continuation.resumeThrowing(std::move(error));
    continuation.resume(std::move(*result));
}

/// The message in a transmission that was read to its end.
Message decode(const std::optional<Data>& frame) {
    const auto id =
        frame ? Message::idFromByte(std::to_integer<std::uint8_t>(*frame->data())) : std::nullopt;
    if (!id) throw Errno(EBADMSG);
    return {*id, secretCopy(std::span<const std::byte>(*frame).subspan(1))};
}

} // namespace

/// What the bus shares with its operations on the queue, which may outlive it.
struct MessageBus::State {
    explicit State(std::shared_ptr<FIFO> pipe) noexcept : fifo_(std::move(pipe)) {}

    /// Absent once the bus is destroyed.
    std::shared_ptr<FIFO> fifo() {
        const std::lock_guard guard(mutex_);
        return fifo_;
    }

    void destroy() {
        const std::lock_guard guard(mutex_);
        if (!fifo_) return;
        FileDescriptor releasing = fifo_->unlinkHoldingOpen();
        // An operation that has looked the path up but does not yet block in its open would miss a
        // release that is over by then, and wait for ever on a pipe without a name.
        if (opening_) releasing_ = std::move(releasing);
        fifo_.reset();
    }

    void onOpen(std::function<bool(bool)> function) { onOpen_ = std::move(function); }

    void release() noexcept {
        const std::lock_guard guard(mutex_);
        if (!fifo_ || !opening_) return;
        try {
            releasing_ = fifo_->holdOpen();
        } catch (const std::exception&) { // the pipe was removed: nobody will come
        }
    }

    /// Runs one open of the pipe on the queue.
    template <class Open>
    auto open(bool forReading, Open open) {
        // A child that is just being launched would stand for the side that has closed the pipe.
        detail::LaunchGate::shared().waitForThoseUnderWay();
        const Opening opening(*this);
        if (onOpen_ && onOpen_(forReading)) release();
        return open();
    }

private:
    class Opening {
    public:
        explicit Opening(State& state) : state_(state) {
            const std::lock_guard guard(state_.mutex_);
            state_.opening_ = true;
        }
        Opening(const Opening&) = delete;
        Opening& operator=(const Opening&) = delete;
        ~Opening() {
            const std::lock_guard guard(state_.mutex_);
            state_.opening_ = false;
            state_.releasing_.reset();
        }

    private:
        State& state_;
    };

    std::mutex mutex_;
    std::shared_ptr<FIFO> fifo_;
    bool opening_ = false;     ///< The queue is in an open of the pipe.
    FileDescriptor releasing_; ///< Closed once the open has returned.
    std::function<bool(bool)> onOpen_;
};

MessageBus::MessageBus(Token, std::shared_ptr<State> state, bool destroysAtEnd)
    : path_(state->fifo()->path()), state_(std::move(state)), queue_("serialMessageBus"),
      destroysAtEnd_(destroysAtEnd) {}

std::shared_ptr<MessageBus> MessageBus::create() {
    return createAtPath(makeTemporaryPipePath());
}

std::shared_ptr<MessageBus> MessageBus::createAtPath(std::string path) {
    auto state = std::make_shared<State>(FIFO::createAtPath(std::move(path)));
    return std::make_shared<MessageBus>(Token{}, std::move(state), true);
}

std::shared_ptr<MessageBus> MessageBus::openAtPath(std::string path) {
    auto state = std::make_shared<State>(FIFO::openAtPath(std::move(path)));
    return std::make_shared<MessageBus>(Token{}, std::move(state), false);
}

MessageBus::~MessageBus() {
    if (!destroysAtEnd_) return;
    try {
        destroy();
    } catch (...) { // nobody is left to be told.
    }
}

Task<bool> MessageBus::send(Message message) {
    return send(shared_from_this(), std::move(message));
}

Task<bool> MessageBus::send(std::shared_ptr<MessageBus> bus, Message message) {
    const std::shared_ptr<FIFO> fifo = bus->state_->fifo();
    if (!fifo) co_return false;
    checkCancellation();
    Data frame = Data::secret();
    frame.reserve(message.data().size() + 1);
    frame.appendUninitialized(1)[0] = static_cast<std::byte>(message.id());
    frame.append(message.data());

    auto sent =
        withCheckedContinuation<bool>("send(_:)", [&](CheckedContinuation<bool> continuation) {
            bus->queue_.submit([continuation, fifo, state = bus->state_, frame = std::move(frame)] {
                resumeWith(continuation, [&] {
                    const auto handle =
                        state->open(false, [&] { return fifo->handleForWriting(); });
                    return handle.write(frame) == frame.size();
                });
            });
        });
    co_return co_await sent;
}

Task<Message> MessageBus::receive() {
    return receive(shared_from_this());
}

Task<Message> MessageBus::receive(std::shared_ptr<MessageBus> bus) {
    const std::shared_ptr<FIFO> fifo = bus->state_->fifo();
    if (!fifo) throw Errno(EPIPE);
    checkCancellation();

    auto received = withCheckedContinuation<Message>(
        "receive()", [&](CheckedContinuation<Message> continuation) {
            bus->queue_.submit([continuation, fifo, state = bus->state_] {
                resumeWith(continuation, [&] {
                    const auto handle = state->open(true, [&] { return fifo->handleForReading(); });
                    return decode(handle.readToEnd(Data::secret()));
                });
            });
        });
    co_return co_await received;
}

void MessageBus::destroy() {
    state_->destroy();
}

void MessageBus::onOpen(std::function<bool(bool forReading)> function) {
    state_->onOpen(std::move(function));
}

void MessageBus::releaseOpen() noexcept {
    state_->release();
}

bool MessageBus::hasReader() const {
    const std::shared_ptr<FIFO> fifo = state_->fifo();
    return fifo && fifo->hasReader();
}

} // namespace Platform
