#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/LogSink.h>
#include <Platform/base/detail/Sigpipe.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/base/detail/SystemLogger.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Platform::detail {
namespace {

std::string twoCharacters(int number, char filler) {
    return {number < 10 ? filler : static_cast<char>('0' + number / 10),
            static_cast<char>('0' + number % 10)};
}

/// "Mmm dd HH:MM:SS" in local time; month names do not follow the locale.
std::string timestamp() {
    constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    return std::string(months[local.tm_mon]) + ' ' + twoCharacters(local.tm_mday, ' ') + ' ' +
           twoCharacters(local.tm_hour, '0') + ':' + twoCharacters(local.tm_min, '0') + ':' +
           twoCharacters(local.tm_sec, '0');
}

FileDescriptor connectTo(const char* socketPath, int type) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath, sizeof address.sun_path - 1);

    FileDescriptor socket(trySystemCall(SystemCall::socket, [&] {
        return ::socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    }));
    if (socket && trySystemCall(SystemCall::connect, [&] {
                      return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address),
                                       sizeof address);
                  }) != 0) {
        socket.reset();
    }
    return socket;
}

} // namespace

bool sendToSystemLogger(const char* socketPath, std::string_view label, std::string_view text) {
    // Not syslog(3): its identifier and its connection belong to the whole process, so to the host.
    constexpr std::string_view userError = "<11>"; // facility 1, severity 3
    std::string entry(userError);
    entry.append(timestamp()).append(" ").append(label);
    entry.append("[").append(std::to_string(::getpid())).append("]: ").append(text);

    FileDescriptor socket = connectTo(socketPath, SOCK_DGRAM);
    if (!socket && errno == EPROTOTYPE) {
        socket = connectTo(socketPath, SOCK_STREAM);
        entry += '\0'; // ends an entry in a stream
    }
    if (!socket) {
        return false;
    }
    const auto count = trySystemCall(SystemCall::send, entry.size(), [&](std::size_t size) {
        return ::send(socket.get(), entry.data(), size, MSG_NOSIGNAL);
    });
    return count == static_cast<ssize_t>(entry.size());
}

void writeLogEntry(const char* label, const std::string& description, bool leavesTrace) {
    const std::string text = "error: " + description;
    if (sendToSystemLogger("/dev/log", label, text) || !leavesTrace) {
        return;
    }
    std::string line(label);
    line.append(": ").append(text).append("\n");
    trySystemCall(SystemCall::write, line.size(), [&](std::size_t size) {
        return writeWithoutSigpipe(STDERR_FILENO, line.data(), size);
    });
}

} // namespace Platform::detail
