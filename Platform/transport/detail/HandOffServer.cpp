#include <Platform/async/AsyncChannel.h>
#include <Platform/base/Errno.h>
#include <Platform/base/TemporaryDirectory.h>
#include <Platform/runtime/Cancellation.h>
#include <Platform/transport/detail/HandOff.h>
#include <Platform/transport/detail/Presence.h>

#include <atomic>
#include <cerrno>
#include <exception>
#include <optional>
#include <utility>
#include <variant>

#include <sched.h>

namespace Platform::detail {

using Message = MessageBus::Message;

/// What the server and its serving task share.
struct HandOffServer::Service {
    Service(std::string path, Logger logger_, EndingLog endingLog_)
        : presence(Presence::create(path)), bus(MessageBus::createAtPath(std::move(path))),
          logger(logger_), endingLog(endingLog_) {
        if (!presence) return;
        hearDepartures({});
        // Only now is the host where a client's turn, or its departure, reaches it.
        bus->onOpen([here = presence](bool forReading) {
            if (forReading) here->giveTurn();
            return here->hasGone();
        });
    }

    /// The next request; absent when its client has gone.
    Task<std::optional<Message>> receive();

    /// Answers a client that has a turn.
    Task<> answerPresent(const Answer* answer, Message request);

    /// Answers whoever listens.
    Task<> answerAnybody(const Answer* answer, Message request);

    /// When the client goes, the pipe is not waited for, and nobody needs the answer any more.
    void hearDepartures(std::shared_ptr<TaskHandle<Message>> answering) {
        if (!presence) return;
        Presence::Departure departure;
        departure.release = [weak = std::weak_ptr(bus)] {
            if (const auto known = weak.lock()) known->releaseOpen();
        };
        if (answering) departure.tell = [answering] { answering->cancel(); };
        presence->onDeparture(std::move(departure));
    }

    /// A client that dies may hang up before it lets go of the pipe. What it has not read would
    /// stay in there for as long as it holds it.
    void waitForItsLastDescriptor() const {
        constexpr int patience = 100000; // somebody else's reader is no client of ours
        for (int i = 0; i < patience && bus->hasReader(); ++i) ::sched_yield();
    }

    const std::shared_ptr<Presence> presence; ///< Null: the host does without.
    const std::shared_ptr<MessageBus> bus;
    const Logger logger;
    const EndingLog endingLog;
    std::atomic<std::size_t> absent = 0; ///< Requests that are answered without a turn.
    bool isPresent = false;              ///< The request's client has a turn.
    std::exception_ptr error;            ///< What ended serving; before the end is told.
    AsyncChannel<std::monostate> end;    ///< Closed then.
};

HandOffServer::HandOffServer(Logger logger, EndingLog endingLog, Answer answer)
    : path_(makeTemporaryPipePath()), service_(std::make_shared<Service>(path_, logger, endingLog)),
      bus_(service_->bus) {
    task_ = detached([service = service_, answer = std::move(answer)]() mutable {
        return serve(std::move(service), std::move(answer));
    });
}

HandOffServer::~HandOffServer() {
    try {
        stop();
    } catch (...) { // nobody is left to be told.
    }
}

std::map<std::string, std::string> HandOffServer::environment() const {
    return {{handOffVariable, path_}};
}

std::size_t HandOffServer::openHandOffs() const {
    return service_->absent + (service_->presence ? service_->presence->visitors() : 0);
}

Task<> HandOffServer::untilEnded() const {
    const std::shared_ptr<Service> service = service_;
    auto ending = service->end.receive();
    co_await ending;
    checkCancellation();
    if (service->error) std::rethrow_exception(service->error);
}

Task<void> HandOffServer::serve(std::shared_ptr<Service> service, Answer answer) {
    try {
        while (!isTaskCancelled()) {
            auto receiving = service->receive();
            std::optional<Message> request = co_await receiving;
            if (!request) continue;
            auto answering = service->isPresent
                                 ? service->answerPresent(&answer, std::move(*request))
                                 : service->answerAnybody(&answer, std::move(*request));
            co_await answering;
        }
    } catch (...) {
        if (!isTaskCancelled()) {
            service->error = std::current_exception();
            service->logger.error(service->error);
        } else if (service->endingLog == EndingLog::always) {
            service->logger.expectedError(std::current_exception());
        }
    }
    if (service->presence) service->presence->close();
    service->end.close();
}

Task<std::optional<Message>> HandOffServer::Service::receive() {
    std::optional<Message> request;
    std::exception_ptr error_;
    try {
        auto receiving = bus->receive();
        request = co_await receiving;
    } catch (const Errno& failure) {
        if (failure.number() != EBADMSG) throw;
        error_ = std::current_exception();
    }
    if (presence) {
        presence->holdTurns();
        // What a client has left that died on its way may look like a whole request.
        auto confirming = presence->isWhole();
        const bool isWhole = co_await confirming;
        if (presence->hasGone()) {
            auto going = presence->untilGone();
            co_await going;
            co_return std::nullopt;
        }
        isPresent = isWhole;
    }
    if (error_) std::rethrow_exception(error_);
    co_return request;
}

Task<> HandOffServer::Service::answerAnybody(const Answer* answer, Message request) {
    struct Counted {
        std::atomic<std::size_t>& number;
        ~Counted() { --number; }
    };
    ++absent;
    const Counted counted{absent};
    auto answering = (*answer)(std::move(request));
    Message reply = co_await answering;
    auto sending = bus->send(std::move(reply));
    co_await sending;
}

Task<> HandOffServer::Service::answerPresent(const Answer* answer, Message request) {
    const auto answering = std::make_shared<TaskHandle<Message>>(
        detached([answer, request = std::move(request)]() mutable {
            return (*answer)(std::move(request));
        }));
    hearDepartures(answering);
    auto waiting = withTaskCancellationHandler(
        [&answering]() -> Task<Message> { co_return co_await *answering; },
        [&answering]() noexcept { answering->cancel(); });
    Message reply = co_await waiting;
    if (!presence->hasGone()) {
        std::exception_ptr brokenPipe;
        try {
            auto sending = bus->send(std::move(reply));
            if (co_await sending) presence->confirmAnswer();
        } catch (const Errno& failure) {
            if (failure.number() != EPIPE) throw;
            brokenPipe = std::current_exception();
        }
        if (brokenPipe) {
            // A client that dies may close the pipe before its connection.
            auto going = presence->goesSoon();
            if (!co_await going) std::rethrow_exception(brokenPipe);
        }
    }
    auto going = presence->untilGone();
    co_await going;
    hearDepartures({});
    waitForItsLastDescriptor();
}

void HandOffServer::stop() {
    TaskHandle<void> task;
    std::shared_ptr<MessageBus> bus;
    {
        const std::lock_guard guard(mutex_);
        task = std::move(task_);
        bus = bus_;
    }
    task.cancel(); // without the lock: runs the callback's own cancellation handlers
    if (!bus) return;
    bus->destroy();
    if (service_->presence) service_->presence->remove();
    const std::lock_guard guard(mutex_);
    bus_.reset();
}

} // namespace Platform::detail
