#include <Platform/editor/Client.h>

#include <Platform/base/Errno.h>
#include <Platform/base/Log.h>
#include <Platform/transport/detail/HandOff.h>

#include <cerrno>
#include <cstdlib>
#include <exception>

namespace Platform::Editor {

using Message = MessageBus::Message;

Task<void> Client::main() {
    try {
        auto asking = detail::askHost(Message::ID::filePath, ENOENT);
        const Message answer = co_await asking;
        if (answer.id() != Message::ID::ok) throw Errno(ECANCELED);
    } catch (...) {
        Logger("editorClient").error(std::current_exception());
        std::exit(
            EXIT_FAILURE); // NOLINT(concurrency-mt-unsafe): the program ends here, and nowhere else
    }
    std::exit(EXIT_SUCCESS); // NOLINT(concurrency-mt-unsafe)
}

} // namespace Platform::Editor
