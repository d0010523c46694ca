#include <Platform/askpass/Client.h>

#include <Platform/base/Errno.h>
#include <Platform/base/ProcessInfo.h>
#include <Platform/base/Text.h>
#include <Platform/base/detail/WriteAll.h>
#include <Platform/transport/detail/HandOff.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <string>

namespace Platform::Askpass {

using Message = MessageBus::Message;

namespace {

/// The caller of a confirmation takes status 0 for yes, whatever is printed.
bool isConfirmation() {
    return ProcessInfo::environmentValue("SSH_ASKPASS_PROMPT") == "confirm";
}

/// False: a confirmation was not given.
Task<bool> run() {
    auto asking = detail::askHost(Message::ID::text, ENODATA);
    const Message reply = co_await asking;
    const bool answered = reply.id() == Message::ID::text;
    if (!answered && isConfirmation()) co_return false;
    Data output = Data::secret();
    if (answered) appendDecodedUTF8(output, reply.data().view());
    output.append(std::string_view("\n"));
    detail::writeAll(detail::standardOutput, output);
    co_return true;
}

} // namespace

Task<void> Client::main() {
    bool isGranted = false;
    try {
        auto running = run();
        isGranted = co_await running;
    } catch (...) {
        try {
            const Data line(errorDescription(std::current_exception()) + "\n");
            detail::writeAll(detail::standardError, line);
        } catch (...) { // the signal tells the rest.
        }
        ::kill(0, SIGINT);
        // Some callers have their programs ignore the signal.
        isGranted = !isConfirmation();
    }
    if (!isGranted) std::exit(EXIT_FAILURE); // NOLINT(concurrency-mt-unsafe): the program ends here
}

} // namespace Platform::Askpass
