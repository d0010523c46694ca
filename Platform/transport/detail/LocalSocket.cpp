#include <Platform/transport/detail/LocalSocket.h>

#include <Platform/base/Errno.h>
#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

namespace Platform::detail {

LocalAddress::LocalAddress(const std::string& path) {
    std::string reached = path;
    if (path.size() >= sizeof address_.sun_path) {
        const std::size_t slash = path.rfind('/');
        directory_ = FileDescriptor(systemCall(SystemCall::open, [&] {
            return ::open(path.substr(0, slash + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        }));
        reached = enterDirectory(directory_, path.substr(slash + 1));
        if (reached.empty() || reached.size() >= sizeof address_.sun_path) {
            leaveDirectory();
            throw Errno(ENAMETOOLONG, path);
        }
    }
    address_.sun_family = AF_UNIX;
    std::memcpy(address_.sun_path, reached.c_str(), reached.size() + 1);
}

LocalAddress::~LocalAddress() {
    if (directory_) leaveDirectory();
}

bool hasHungUp(const FileDescriptor& connection) noexcept {
    char byte = 0;
    const auto count = trySystemCall(SystemCall::receive, [&] {
        return ::recv(connection.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    });
    if (count <= 0) return count == 0 || errno == ECONNRESET || errno == ENOTCONN;
    // The end of file is behind the bytes. macOS reports nothing without an event that is asked
    // for.
    pollfd subject{connection.get(), POLLIN | POLLHUP, 0};
    const int result = trySystemCall(SystemCall::poll, [&] { return ::poll(&subject, 1, 0); });
    return result == 1 && (subject.revents & (POLLHUP | POLLERR)) != 0;
}

bool isAbandoned(const std::string& path) {
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return false;
    // The type of the socket does not match a listener's, which is looked at before its queue. A
    // stream socket would be a visit, and would be refused by a full queue too (macOS).
    const FileDescriptor probe = makeLocalSocket(SOCK_DGRAM);
    const LocalAddress address(path);
    const int result = trySystemCall(
        SystemCall::connect, [&] { return ::connect(probe.get(), address.get(), address.size()); });
    return result == -1 && errno == ECONNREFUSED;
}

} // namespace Platform::detail
