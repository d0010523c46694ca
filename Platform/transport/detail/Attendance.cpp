#include <Platform/transport/detail/Attendance.h>

#include <Platform/base/Errno.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/transport/detail/LocalSocket.h>
#include <Platform/transport/detail/Presence.h>

#include <atomic>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace Platform::detail {

namespace {

std::atomic<int> heeded = -1; ///< The connection that a signal is about.

/// The first interruption may come just before a call blocks, so there are more until all is over.
void setTimer(bool runs) noexcept {
    itimerval timer{};
    if (runs) timer.it_value.tv_usec = timer.it_interval.tv_usec = 5000;
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

void interrupted(int) noexcept {
    const int error = errno;
    FileDescriptor connection(heeded.load());
    if (connection && hasHungUp(connection)) {
        interruptedCallsFail = true;
        setTimer(true);
    }
    static_cast<void>(connection.release()); // not ours here
    errno = error;
}

/// The connection to the host of a pipe; empty where there is none.
FileDescriptor connectToHost(const std::string& pipePath) {
    try {
        const std::string path = presencePath(pipePath);
        struct stat status;
        if (::lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return {};
        const LocalAddress address(path);
        FileDescriptor connection = makeLocalSocket();
        systemCall(SystemCall::connect,
                   [&] { return ::connect(connection.get(), address.get(), address.size()); });
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
    heed_.emplace(connection_);
    if (hostHasGone()) throw Errno(ECONNRESET, hostEnded); // before anything told of it
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

Attendance::Heed::Heed(const FileDescriptor& connection) : connection_(connection) {
    struct sigaction action{}; // without SA_RESTART: a call that blocks fails
    action.sa_handler = &interrupted;
    ::sigaction(SIGIO, &action, &noticeBefore_);
    ::sigaction(SIGALRM, &action, &timerBefore_);
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGIO);
    sigaddset(&both, SIGALRM);
    ::pthread_sigmask(SIG_UNBLOCK, &both, &maskBefore_);
    heeded = connection.get();
    ::fcntl(connection.get(), F_SETOWN, ::getpid());
    ::fcntl(connection.get(), F_SETFL, O_ASYNC);
}

Attendance::Heed::~Heed() {
    ::fcntl(connection_.get(), F_SETFL, 0); // no signal from here on, which would end the process
    heeded = -1;
    setTimer(false);
    interruptedCallsFail = false;
    ::sigaction(SIGIO, &noticeBefore_, nullptr);
    ::sigaction(SIGALRM, &timerBefore_, nullptr);
    ::pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
}

} // namespace Platform::detail
