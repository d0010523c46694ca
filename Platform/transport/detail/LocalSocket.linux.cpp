#include <Platform/transport/detail/LocalSocket.h>

#include <Platform/base/detail/SystemCall.h>

#include <unistd.h>

namespace Platform::detail {

std::string enterDirectory(const FileDescriptor& directory, const std::string& name) {
    return "/proc/self/fd/" + std::to_string(directory.get()) + "/" + name;
}

void leaveDirectory() noexcept {}

FileDescriptor makeLocalSocket(int type) {
    return FileDescriptor(
        systemCall(SystemCall::socket, [&] { return ::socket(AF_UNIX, type | SOCK_CLOEXEC, 0); }));
}

FileDescriptor acceptLocal(const FileDescriptor& listener) noexcept {
    return FileDescriptor(trySystemCall(SystemCall::accept, [&] {
        return ::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    }));
}

bool isOwnPeer(const FileDescriptor& connection) noexcept {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           peer.uid == ::geteuid();
}

} // namespace Platform::detail
