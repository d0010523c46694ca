#include <Platform/runtime/Cancellation.h>
#include <Platform/transport/detail/HandOff.h>

#include <exception>
#include <utility>

namespace Platform::detail {

using Message = MessageBus::Message;

HandOffServer::HandOffServer(Logger logger, EndingLog endingLog, Answer answer)
    : bus_(MessageBus::create()) {
    path_ = bus_->path();
    task_ = detached([bus = bus_, logger, endingLog, answer = std::move(answer)]() mutable {
        return serve(std::move(bus), logger, endingLog, std::move(answer));
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

Task<void> HandOffServer::serve(std::shared_ptr<MessageBus> bus, Logger logger, EndingLog endingLog,
                                Answer answer) {
    try {
        while (!isTaskCancelled()) {
            auto receiving = bus->receive();
            Message request = co_await receiving;
            auto answering = answer(std::move(request));
            Message reply = co_await answering;
            auto sending = bus->send(std::move(reply));
            co_await sending;
        }
    } catch (...) {
        if (endingLog == EndingLog::always || !isTaskCancelled()) {
            logger.error(std::current_exception());
        }
    }
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
    const std::lock_guard guard(mutex_);
    bus_.reset();
}

} // namespace Platform::detail
