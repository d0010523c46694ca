#include <Platform/transport/detail/LocalSocket.h>

#include <Platform/base/detail/ForkLock.h>
#include <Platform/base/detail/Sigpipe.h>
#include <Platform/base/detail/SystemCall.h>

#include <fcntl.h>
#include <unistd.h>

// The working directory of one thread. No header of the system declares this call.
extern "C" int pthread_fchdir_np(int directory) __attribute__((weak));

namespace Platform::detail {

namespace {

void keepFromChildren(int descriptor) noexcept {
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    const int yes = 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &yes, sizeof yes);
}

} // namespace

std::string enterDirectory(const FileDescriptor& directory, const std::string& name) {
    if (!&pthread_fchdir_np || ::pthread_fchdir_np(directory.get()) != 0) return {};
    return name;
}

void leaveDirectory() noexcept {
    if (&pthread_fchdir_np) ::pthread_fchdir_np(-1);
}

FileDescriptor makeLocalSocket(int type) {
    const ForkLock lock;
    FileDescriptor socket(
        systemCall(SystemCall::socket, [&] { return ::socket(AF_UNIX, type, 0); }));
    keepFromChildren(socket.get());
    return socket;
}

FileDescriptor acceptLocal(const FileDescriptor& listener) noexcept {
    const ForkLock lock; // the listener does not block
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
