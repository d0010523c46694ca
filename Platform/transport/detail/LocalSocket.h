#pragma once

#include <Platform/base/FileDescriptor.h>

#include <string>

#include <sys/socket.h>
#include <sys/un.h>

/// Stream sockets in the file system, between processes of one user.
namespace Platform::detail {

/// A path as the socket calls take it. A path that is too long for them is reached through its
/// directory: by the directory's descriptor (Linux), or as the working directory of this thread for
/// as long as the address lives (macOS). To be used and destroyed on the thread that made it.
class LocalAddress {
public:
    /// Throws `Errno`: `ENAMETOOLONG`, and of the directory those of an open.
    explicit LocalAddress(const std::string& path);
    LocalAddress(const LocalAddress&) = delete;
    LocalAddress& operator=(const LocalAddress&) = delete;
    ~LocalAddress();

    const sockaddr* get() const noexcept { return reinterpret_cast<const sockaddr*>(&address_); }
    socklen_t size() const noexcept { return sizeof address_; }

private:
    sockaddr_un address_{};
    FileDescriptor directory_;
};

/// Makes an open directory reachable to this thread, until `leaveDirectory`. Returns a short path
/// of the entry `name`, or an empty string where the system cannot do that.
std::string enterDirectory(const FileDescriptor& directory, const std::string& name);
void leaveDirectory() noexcept;

/// A socket that no child inherits: of type SOCK_STREAM or SOCK_DGRAM. Throws `Errno`.
FileDescriptor makeLocalSocket(int type = SOCK_STREAM);

/// Takes the next connection, non-blocking, not inherited either. Empty with `errno`.
FileDescriptor acceptLocal(const FileDescriptor& listener) noexcept;

/// Whether the process at the other end was this process's effective user's when it connected, or
/// listened.
bool isOwnPeer(const FileDescriptor& connection) noexcept;

/// Whether the peer has closed its end, be there bytes to read or not. False when the system cannot
/// tell for a lack of something. Does not block; safe in a signal handler.
bool hasHungUp(const FileDescriptor& connection) noexcept;

/// Whether a path names a stream socket that no process has open any more. The process that has it
/// open does not notice the question, and may be stopped or busy. Throws `Errno`.
bool isAbandoned(const std::string& path);

} // namespace Platform::detail
