#include <Platform/transport/detail/LocalSocket.h>

#include <Platform/base/Errno.h>
#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>

namespace Platform::detail {

LocalAddress::LocalAddress(const std::string& path) {
    std::string reached = path;
    if (path.size() >= sizeof address_.sun_path) {
        const std::size_t slash = path.rfind('/');
        directory_ = FileDescriptor(systemCall(SystemCall::open, [&] {
            return ::open(path.substr(0, slash + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        }));
        reached = pathInDirectory(directory_, path.substr(slash + 1));
        if (reached.empty() || reached.size() >= sizeof address_.sun_path) {
            throw Errno(ENAMETOOLONG, path);
        }
    }
    address_.sun_family = AF_UNIX;
    std::memcpy(address_.sun_path, reached.c_str(), reached.size() + 1);
}

bool hasHungUp(const FileDescriptor& connection) noexcept {
    pollfd subject{connection.get(), 0, 0};
    return trySystemCall(SystemCall::poll, [&] { return ::poll(&subject, 1, 0); }) != 0;
}

} // namespace Platform::detail
