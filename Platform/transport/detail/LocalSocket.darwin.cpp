#include <Platform/transport/detail/LocalSocket.h>

#include <Platform/base/detail/Sigpipe.h>
#include <Platform/base/detail/SystemCall.h>

#include <fcntl.h>
#include <unistd.h>

namespace Platform::detail {

namespace {

void keepFromChildren(int descriptor) noexcept {
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    const int yes = 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &yes, sizeof yes);
}

} // namespace

std::string pathInDirectory(const FileDescriptor&, const std::string&) {
    return {};
}

FileDescriptor makeLocalSocket() {
    FileDescriptor socket(
        systemCall(SystemCall::socket, [] { return ::socket(AF_UNIX, SOCK_STREAM, 0); }));
    keepFromChildren(socket.get());
    return socket;
}

FileDescriptor acceptLocal(const FileDescriptor& listener) noexcept {
    FileDescriptor connection(trySystemCall(
        SystemCall::accept, [&] { return ::accept(listener.get(), nullptr, nullptr); }));
    if (connection) {
        keepFromChildren(connection.get());
        ::fcntl(connection.get(), F_SETFL, O_NONBLOCK);
    }
    return connection;
}

bool isOwnPeer(const FileDescriptor& connection) noexcept {
    uid_t user = 0;
    gid_t group = 0;
    return ::getpeereid(connection.get(), &user, &group) == 0 && user == ::geteuid();
}

} // namespace Platform::detail
