#include "Emulation.h"

#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

DARWIN_WRAPS(accept);
DARWIN_WRAPS(connect);
DARWIN_WRAPS(fcntl);
DARWIN_WRAPS(kill);
DARWIN_WRAPS(listen);
DARWIN_WRAPS(poll);
DARWIN_WRAPS(read);
DARWIN_WRAPS(recv);
DARWIN_WRAPS(send);
DARWIN_WRAPS(setsockopt);

namespace DarwinEmulation {
namespace {

bool catchesSigio(pid_t process) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/status", process);
    return (numberInProc<unsigned long long>(path, "SigCgt: %llx") >> (SIGIO - 1) & 1) != 0;
}

bool hasAsyncDescriptor(pid_t process) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/fdinfo", process);
    DIR* const folder = opendir(path);
    bool found = false;
    while (const dirent* const entry = folder && !found ? readdir(folder) : nullptr) {
        std::snprintf(path, sizeof path, "/proc/%d/fdinfo/%.20s", process, entry->d_name);
        found = (numberInProc<unsigned>(path, "flags: %o") & O_ASYNC) != 0;
    }
    if (folder) closedir(folder);
    return found;
}

/// Which descriptor of the peer's is this socket's other end cannot be told: any will do.
ssize_t signalRoom(int socket, ssize_t received) {
    const int error = errno;
    ucred peer{};
    socklen_t size = sizeof peer;
    if (received > 0 && getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
        peer.pid > 0 && catchesSigio(peer.pid) && hasAsyncDescriptor(peer.pid))
        __real_kill(peer.pid, SIGIO);
    errno = error;
    return received;
}

bool hasLostPeer(int socket) {
    sockaddr_storage peer;
    socklen_t size = sizeof peer;
    pollfd subject{socket, 0, 0};
    return getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
           __real_poll(&subject, 1, 0) == 1 && (subject.revents & POLLHUP) != 0;
}

} // namespace
} // namespace DarwinEmulation

using namespace DarwinEmulation;

extern "C" {

// An accepted connection has the listener's O_NONBLOCK and SO_NOSIGPIPE.
int __wrap_accept(int listener, sockaddr* address, socklen_t* size) {
    const int connection = __real_accept(listener, address, size);
    if (connection < 0) return connection;
    setWithoutSigpipe(connection, isWithoutSigpipe(listener));
    __real_fcntl(connection, F_SETFL, __real_fcntl(listener, F_GETFL) & O_NONBLOCK);
    return connection;
}

// A full queue refuses at once, even a socket that blocks. A path to what is no socket is ENOTSOCK.
int __wrap_connect(int socket, const sockaddr* address, socklen_t size) {
    if (address->sa_family != AF_UNIX) return __real_connect(socket, address, size);
    const int flags = __real_fcntl(socket, F_GETFL);
    __real_fcntl(socket, F_SETFL, flags | O_NONBLOCK);
    const int result = __real_connect(socket, address, size);
    int error = errno;
    __real_fcntl(socket, F_SETFL, flags);
    struct stat status;
    if (error == EAGAIN)
        error = ECONNREFUSED;
    else if (error == ECONNREFUSED &&
             stat(reinterpret_cast<const sockaddr_un*>(address)->sun_path, &status) == 0 &&
             !S_ISSOCK(status.st_mode))
        error = ENOTSOCK;
    errno = error;
    return result;
}

// A queue holds 128 connections at most. Linux takes one more than it was told.
int __wrap_listen(int socket, int backlog) noexcept {
    return __real_listen(socket, (backlog <= 0 || backlog > 128 ? 128 : backlog) - 1);
}

// An O_ASYNC socket raises SIGIO also when its peer takes bytes: there is room again.
ssize_t __wrap_read(int descriptor, void* bytes, size_t count) {
    return signalRoom(descriptor, __real_read(descriptor, bytes, count));
}

ssize_t __wrap_recv(int socket, void* bytes, size_t count, int flags) {
    return signalRoom(socket, __real_recv(socket, bytes, count, flags));
}

// SO_NOSIGPIPE and F_SETNOSIGPIPE hold for this call too.
ssize_t __wrap_send(int socket, const void* bytes, size_t count, int flags) {
    return __real_send(socket, bytes, count,
                       isWithoutSigpipe(socket) ? flags | MSG_NOSIGNAL : flags);
}

// No option can be set once the peer has gone. SO_NOSIGPIPE takes SIGPIPE away from the socket.
int __wrap_setsockopt(int socket, int level, int name, const void* value, socklen_t size) noexcept {
    if (hasLostPeer(socket)) {
        errno = EINVAL;
        return -1;
    }
    if (level != SOL_SOCKET || name != SO_NOSIGPIPE)
        return __real_setsockopt(socket, level, name, value, size);
    setWithoutSigpipe(socket, *static_cast<const int*>(value) != 0);
    return 0;
}

int getpeereid(int socket, uid_t* user, gid_t* group) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return -1;
    *user = peer.uid;
    *group = peer.gid;
    return 0;
}
}
