#include <Platform/transport/detail/HangUpInterrupt.h>

#include <Platform/base/detail/SystemCall.h>
#include <Platform/transport/detail/LocalSocket.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

namespace Platform::detail {

namespace {

std::atomic<int> watchedFd = -1; ///< The connection that a SIGIO may be about.

/// A signal that comes just before a call blocks does not interrupt it, so a timer repeats it.
void setTimer(bool runs) noexcept {
    itimerval timer{};
    if (runs) timer.it_value.tv_usec = timer.it_interval.tv_usec = 5000;
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

void interrupted(int) noexcept {
    const int error = errno;
    FileDescriptor connection(watchedFd.load());
    if (connection && hasHungUp(connection)) {
        interruptedCallsFail = true;
        setTimer(true);
    }
    static_cast<void>(connection.release()); // this handler does not own it
    errno = error;
}

} // namespace

struct HangUpInterrupt::State {
    const FileDescriptor& connection;
    struct sigaction previousSigio{};
    struct sigaction previousSigalrm{};
    sigset_t previousMask{};
};

HangUpInterrupt::HangUpInterrupt(const FileDescriptor& connection)
    : state_(new State{.connection = connection}) {
    struct sigaction action{}; // without SA_RESTART: a call that blocks fails
    action.sa_handler = &interrupted;
    ::sigaction(SIGIO, &action, &state_->previousSigio);
    ::sigaction(SIGALRM, &action, &state_->previousSigalrm);
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGIO);
    sigaddset(&both, SIGALRM);
    ::pthread_sigmask(SIG_UNBLOCK, &both, &state_->previousMask);
    watchedFd = connection.get();
    ::fcntl(connection.get(), F_SETOWN, ::getpid());
    ::fcntl(connection.get(), F_SETFL, O_ASYNC);
}

HangUpInterrupt::~HangUpInterrupt() {
    // The notice ends first: by default SIGIO would end the process.
    ::fcntl(state_->connection.get(), F_SETFL, 0);
    watchedFd = -1;
    setTimer(false);
    interruptedCallsFail = false;
    ::sigaction(SIGIO, &state_->previousSigio, nullptr);
    ::sigaction(SIGALRM, &state_->previousSigalrm, nullptr);
    ::pthread_sigmask(SIG_SETMASK, &state_->previousMask, nullptr);
}

} // namespace Platform::detail
