#include <Platform/base/Errno.h>
#include <Platform/base/ProcessInfo.h>
#include <Platform/transport/detail/Attendance.h>
#include <Platform/transport/detail/HandOff.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace Platform::detail {

using Message = MessageBus::Message;

namespace {

// With its first byte, what a pipe takes at once or not at all.
constexpr std::size_t surelyWhole = PIPE_BUF - 1;

Task<Message> exchange(std::string path, Message request, const Attendance* attendance) {
    const auto bus = MessageBus::openAtPath(std::move(path));
    auto sending = bus->send(std::move(request));
    if (co_await sending) attendance->confirm();
    auto receiving = bus->receive();
    co_return co_await receiving;
}

} // namespace

Task<Message> askHost(Message::ID request, int usageError) {
    const std::vector<std::string> arguments = ProcessInfo::arguments();
    if (arguments.size() != 2) throw Errno(usageError);
    const std::optional<std::string> path = ProcessInfo::environmentValue(handOffVariable);
    if (!path) throw Errno(ENOTRECOVERABLE);
    const Attendance attendance(*path);
    try {
        auto exchanging = exchange(*path, Message(request, Data(arguments[1])), &attendance);
        Message answer = co_await exchanging;
        if (answer.data().size() <= surelyWhole || attendance.isWhole()) co_return answer;
    } catch (const Errno&) {
        if (!attendance.hostHasGone()) throw;
    }
    throw Errno(ECONNRESET, Attendance::hostEnded);
}

} // namespace Platform::detail
