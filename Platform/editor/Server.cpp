#include <Platform/editor/Server.h>

#include <Platform/base/Log.h>

#include <exception>
#include <utility>

namespace Platform::Editor {

using Message = MessageBus::Message;

namespace {

constexpr Logger logger("editorServer");

Task<Message> answer(const Server::EditBlock& editBlock, Message request) {
    if (request.id() != Message::ID::filePath) co_return Message::abort();
    bool accepted = false;
    try {
        auto editing = editBlock(request.string());
        accepted = co_await editing;
    } catch (...) {
        logger.error(std::current_exception());
    }
    co_return accepted ? Message::ok() : Message::abort();
}

} // namespace

Server::Server(EditBlock editBlock)
    : handOff_(logger, detail::HandOffServer::EndingLog::always,
               [editBlock = std::move(editBlock)](Message request) {
                   return answer(editBlock, std::move(request));
               }) {}

} // namespace Platform::Editor
