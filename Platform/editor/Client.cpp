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
    int status = EXIT_SUCCESS;
    try {
        auto asking = detail::askHost(Message::ID::filePath, ENOENT);
        const Message answer = co_await asking;
        if (answer.id() != Message::ID::ok) throw Errno(ECANCELED);
    } catch (...) {
        Logger("editorClient").error(std::current_exception());
        status = EXIT_FAILURE;
    }
    std::exit(status); // NOLINT(concurrency-mt-unsafe): the program ends here and nowhere else
}

} // namespace Platform::Editor
