#pragma once

#include <Platform/async/ChannelError.h>
#include <Platform/async/detail/Wait.h>
#include <Platform/base/CancellationError.h>
#include <Platform/base/detail/QuickMutex.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

namespace Platform {

/// Passes values from task to task without a buffer: a send completes when a receiver has taken the
/// value, a receive when a sender has given one or the channel has ended.
///
/// Order: waiting senders are served in the order in which they began to wait, and so are waiting
/// receivers. A value of a send that succeeded went to exactly one receiver. Among the reasons not
/// to wait, closed is looked at before cancelled, and cancelled before a waiting partner.
///
/// Shared, by `std::shared_ptr`. Whoever awaits an operation keeps the channel alive meanwhile. Any
/// thread may call any operation; a task that is resumed goes on on its own executor. An operation
/// that does not have to wait does not suspend. Elements may be move-only; moving one must not
/// throw, and runs under the channel's lock. Operations allocate nothing.
///
/// A task whose frame is destroyed while it waits is withdrawn.
template <class Element>
class AsyncChannel : public std::enable_shared_from_this<AsyncChannel<Element>> {
    static_assert(std::is_nothrow_move_constructible_v<Element>);

    class Sender;
    class Receiver;

public:
    using Error = ChannelError;

    class SendOperation;
    using ReceiveOperation = detail::Operation<Receiver, AsyncChannel>;

    /// The channel as a sequence: `next` is `receive`.
    class Iterator {
    public:
        explicit Iterator(std::shared_ptr<AsyncChannel> channel) noexcept
            : channel_(std::move(channel)) {}

        ReceiveOperation next() const noexcept { return channel_->receive(); }

    private:
        std::shared_ptr<AsyncChannel> channel_;
    };

    AsyncChannel() = default;
    AsyncChannel(const AsyncChannel&) = delete;
    AsyncChannel& operator=(const AsyncChannel&) = delete;
    /// Closes.
    ~AsyncChannel() { close(); }

    /// Await to hand `element` to a receiver. Throws `Error::channelClosed` when the channel is
    /// closed, before or while it waits, and CancellationError when the task is cancelled; the
    /// element is not delivered then, and dropped.
    SendOperation send(Element element) noexcept {
        return SendOperation(*this, std::move(element));
    }

    /// Await for the next element; absent when the channel is closed or the task cancelled, before
    /// or while it waits.
    ///
    ///     while (auto chunk = co_await channel->receive()) use(*chunk);
    ReceiveOperation receive() noexcept { return ReceiveOperation(*this); }

    /// Ends the channel: all present and future senders get `channelClosed`, all receivers no
    /// value. Closing twice is harmless.
    void close() noexcept {
        const std::lock_guard guard(mutex_);
        if (std::exchange(closed_, true)) return;
        while (auto* const sender = static_cast<Sender*>(senders_.takeFirst())) {
            sender->finish(Status::closed);
        }
        while (auto* const receiver = static_cast<Receiver*>(receivers_.takeFirst())) {
            receiver->finish();
        }
    }

    /// Keeps the channel alive: only for a channel that a `std::shared_ptr` owns.
    Iterator makeAsyncIterator() { return Iterator(this->shared_from_this()); }

private:
    enum class Status : std::uint8_t { ok, cancelled, closed };

    class Sender final : public detail::Wait<Sender> {
    public:
        Sender(AsyncChannel& channel, Element& element) noexcept
            : channel_(channel), element_(element) {}
        Sender(const Sender&) = delete;
        Sender& operator=(const Sender&) = delete;
        ~Sender() { this->withdraw(); }

        void await_resume() {
            this->endWait();
            if (status_ == Status::cancelled) throw CancellationError();
            if (status_ == Status::closed) throw Error(Error::channelClosed);
        }

        Element&& element() const noexcept { return std::move(element_); }

        /// The last that anyone but the task itself does with it.
        void finish(Status status) noexcept {
            status_ = status;
            this->task->schedule();
        }

    private:
        friend detail::Wait<Sender>;

        bool mustWait(const detail::TaskContext& context) noexcept {
            if (channel_.closed_) {
                status_ = Status::closed;
            } else if (context.isCancelled()) {
                status_ = Status::cancelled;
            } else if (auto* const waiting = channel_.receivers_.takeFirst()) {
                static_cast<Receiver*>(waiting)->finish(std::move(element_));
            } else {
                return true;
            }
            return false;
        }
        detail::QuickMutex& mutex() const noexcept { return channel_.mutex_; }
        detail::WaiterList& line() const noexcept { return channel_.senders_; }
        void noteCancelled() noexcept { status_ = Status::cancelled; }

        AsyncChannel& channel_;
        Element& element_;
        Status status_ = Status::ok;
    };

    class Receiver final : public detail::Wait<Receiver> {
    public:
        explicit Receiver(AsyncChannel& channel) noexcept : channel_(channel) {}
        Receiver(const Receiver&) = delete;
        Receiver& operator=(const Receiver&) = delete;
        ~Receiver() { this->withdraw(); }

        std::optional<Element> await_resume() noexcept {
            this->endWait();
            return std::move(element_);
        }

        /// The last that anyone but the task itself does with it.
        void finish(Element&& element) noexcept {
            element_.emplace(std::move(element));
            finish();
        }
        void finish() noexcept { this->task->schedule(); }

    private:
        friend detail::Wait<Receiver>;

        bool mustWait(const detail::TaskContext& context) noexcept {
            if (channel_.closed_ || context.isCancelled()) return false;
            auto* const waiting = static_cast<Sender*>(channel_.senders_.takeFirst());
            if (!waiting) return true;
            element_.emplace(waiting->element());
            waiting->finish(Status::ok);
            return false;
        }
        detail::QuickMutex& mutex() const noexcept { return channel_.mutex_; }
        detail::WaiterList& line() const noexcept { return channel_.receivers_; }

        AsyncChannel& channel_;
        std::optional<Element> element_;
    };

    detail::QuickMutex mutex_;
    bool closed_ = false;
    detail::WaiterList senders_;
    detail::WaiterList receivers_;
};

/// What `send` returns, to be awaited once.
template <class Element>
class [[nodiscard]] AsyncChannel<Element>::SendOperation : public detail::Awaitable {
public:
    SendOperation(AsyncChannel& channel, Element&& element) noexcept
        : channel_(channel), element_(std::move(element)) {}

    auto operator co_await() noexcept { return Sender(channel_, element_); }

private:
    AsyncChannel& channel_;
    Element element_;
};

} // namespace Platform
