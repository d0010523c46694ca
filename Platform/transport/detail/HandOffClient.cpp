#include <Platform/base/Errno.h>
#include <Platform/base/ProcessInfo.h>
#include <Platform/transport/detail/HandOff.h>

#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

namespace Platform::detail {

using Message = MessageBus::Message;

Task<Message> askHost(Message::ID request, int usageError) {
    const std::vector<std::string> arguments = ProcessInfo::arguments();
    if (arguments.size() != 2) throw Errno(usageError);
    std::optional<std::string> path = ProcessInfo::environmentValue(handOffVariable);
    if (!path) throw Errno(ENOTRECOVERABLE);
    const auto bus = MessageBus::openAtPath(std::move(*path));
    auto sending = bus->send(Message(request, Data(arguments[1])));
    co_await sending; // whether it went out whole shows in the answer
    auto receiving = bus->receive();
    co_return co_await receiving;
}

} // namespace Platform::detail
