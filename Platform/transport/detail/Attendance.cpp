#include <Platform/transport/detail/Attendance.h>

#include <Platform/base/Errno.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/transport/detail/LocalSocket.h>
#include <Platform/transport/detail/Presence.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include <sys/stat.h>

namespace Platform::detail {

namespace {

/// Connects, again for as long as a host that lives refuses: its queue of connections may be full
/// (macOS; on Linux the connect blocks then). Throws `Errno`.
void connectWhileAlive(const FileDescriptor& connection, const std::string& path) {
    constexpr std::chrono::milliseconds longestPause(20);
    for (std::chrono::milliseconds pause(1);; pause = std::min(2 * pause, longestPause)) {
        int error = 0;
        {
            // It ends before the next address: a thread has one working directory at a time.
            const LocalAddress address(path);
            const int result = trySystemCall(SystemCall::connect, [&] {
                return ::connect(connection.get(), address.get(), address.size());
            });
            if (result != 0) error = errno;
        }
        if (error == 0) return;
        if (error != ECONNREFUSED) throw Errno(error);
        if (isAbandoned(path)) throw Errno(ECONNREFUSED);
        std::this_thread::sleep_for(pause);
    }
}

/// The connection to the host of a pipe; empty where there is none.
FileDescriptor connectToHost(const std::string& pipePath) {
    try {
        const std::string path = presencePath(pipePath);
        struct stat status;
        if (::lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return {};
        FileDescriptor connection = makeLocalSocket();
        connectWhileAlive(connection, path);
        if (isOwnPeer(connection)) return connection;
    } catch (const Errno& error) {
        if (error.number() == ECONNREFUSED) throw Errno(ECONNREFUSED, Attendance::hostEnded);
    }
    return {};
}

} // namespace

Attendance::Attendance(const std::string& pipePath) : connection_(connectToHost(pipePath)) {
    if (!connection_) return;
    if (!hears()) throw Errno(ECONNRESET, hostEnded);
    interrupt_.emplace(connection_);
    // The host may have gone before the interrupt was set up.
    if (hostHasGone()) throw Errno(ECONNRESET, hostEnded);
}

Attendance::~Attendance() = default;

bool Attendance::hostHasGone() const noexcept {
    return connection_ && hasHungUp(connection_);
}

void Attendance::confirm() const noexcept {
    if (!connection_) return;
    trySystemCall(SystemCall::send, 1,
                  [&](std::size_t) { return ::send(connection_.get(), &whole, 1, MSG_NOSIGNAL); });
}

bool Attendance::isWhole() const {
    return !connection_ || hears();
}

/// Waits for the host's next word. False: it has gone.
bool Attendance::hears() const {
    std::byte word{};
    return connection_.read(std::span(&word, 1)) == 1;
}

} // namespace Platform::detail
