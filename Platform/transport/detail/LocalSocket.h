#pragma once

#include <Platform/base/FileDescriptor.h>

#include <string>

#include <sys/socket.h>
#include <sys/un.h>

/// Stream sockets in the file system, between processes of one user.
namespace Platform::detail {

/// A path as the socket calls take it. A path that is too long for them is reached through its
/// directory's descriptor, where the system can do that.
class LocalAddress {
public:
    /// Throws `Errno`: `ENAMETOOLONG`, and of the directory those of an open.
    explicit LocalAddress(const std::string& path);

    const sockaddr* get() const noexcept { return reinterpret_cast<const sockaddr*>(&address_); }
    socklen_t size() const noexcept { return sizeof address_; }

private:
    sockaddr_un address_{};
    FileDescriptor directory_;
};

/// What reaches an entry of an open directory, as a path; empty where the system has no such thing.
std::string pathInDirectory(const FileDescriptor& directory, const std::string& name);

/// A socket that no child inherits. Throws `Errno`.
FileDescriptor makeLocalSocket();

/// Takes the next connection, non-blocking, not inherited either. Empty with `errno`.
FileDescriptor acceptLocal(const FileDescriptor& listener) noexcept;

/// Whether the process at the other end was this process's effective user's when it connected, or
/// listened.
bool isOwnPeer(const FileDescriptor& connection) noexcept;

/// Whether the other end has been closed; bytes that came count for nothing.
bool hasHungUp(const FileDescriptor& connection) noexcept;

} // namespace Platform::detail
