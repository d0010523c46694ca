#include <Platform/editor/Server.h>

#include <Platform/base/Log.h>

#include <exception>
#include <memory>
#include <utility>

namespace Platform::Editor {

using Message = MessageBus::Message;

namespace {

constexpr Logger logger("editorServer");

Task<Message> answer(std::shared_ptr<const Server::EditBlock> editBlock, Message request) {
    if (request.id() != Message::ID::filePath) co_return Message::abort();
    bool accepted = false;
    try {
        auto editing = (*editBlock)(request.string());
        accepted = co_await editing;
    } catch (...) {
        logger.error(std::current_exception());
    }
    co_return accepted ? Message::ok() : Message::abort();
}

} // namespace

Server::Server(EditBlock editBlock)
    : HandOffServer(logger, EndingLog::always,
                    [block = std::make_shared<const EditBlock>(std::move(editBlock))](
                        Message request) { return answer(block, std::move(request)); }) {}

} // namespace Platform::Editor
