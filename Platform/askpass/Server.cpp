#include <Platform/askpass/Server.h>

#include <Platform/base/Log.h>
#include <Platform/base/detail/Wipe.h>

#include <exception>
#include <memory>
#include <utility>

namespace Platform::Askpass {

using Message = MessageBus::Message;

namespace {

constexpr Logger logger("askpassServer");

Task<Message> answer(std::shared_ptr<const Server::PromptBlock> promptBlock, Message request) {
    if (request.id() != Message::ID::text) co_return Message::abort();
    try {
        auto prompting = (*promptBlock)(request.string());
        std::optional<std::string> given = co_await prompting;
        if (!given) co_return Message::abort();
        const detail::WipedAtEnd wiped(*given);
        co_return Message::text(*given);
    } catch (...) {
        logger.error(std::current_exception());
    }
    co_return Message::abort();
}

} // namespace

Server::Server(PromptBlock promptBlock)
    : HandOffServer(logger, EndingLog::unlessStopped,
                    [block = std::make_shared<const PromptBlock>(std::move(promptBlock))](
                        Message request) { return answer(block, std::move(request)); }) {}

} // namespace Platform::Askpass
