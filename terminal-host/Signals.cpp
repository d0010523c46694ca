#include <terminal-host/Signals.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

namespace TerminalHost {

namespace {

std::atomic<int> catchingFd = -1; ///< Where a signal is noted: the writing end of a pipe.

void note(int number) {
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const auto written = ::write(catchingFd, &byte, 1);
}

/// Catches the signal from now on, with all others of the set blocked meanwhile.
void catchSignal(int number, const sigset_t& blocked) noexcept {
    struct sigaction action{};
    action.sa_handler = [](int caught) {
        const int error = errno;
        note(caught);
        errno = error;
    };
    action.sa_mask = blocked;
    action.sa_flags = SA_RESTART;
    ::sigaction(number, &action, nullptr);
}

} // namespace

Signals::Signals() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) == -1) throw std::system_error(errno, std::generic_category());
    caught_ = Platform::FileDescriptor(ends[0]);
    catching_ = Platform::FileDescriptor(ends[1]);
    for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(catching_.get(), F_SETFL, O_NONBLOCK); // a handler must not block
    catchingFd = catching_.get();
    sigemptyset(&held_);
    for (const int number :
         {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP, SIGWINCH, SIGUSR1, SIGUSR2}) {
        struct sigaction action{};
        ::sigaction(number, nullptr, &action);
        if (action.sa_handler != SIG_IGN) sigaddset(&held_, number);
    }
    sigaddset(&held_, SIGCONT); // after a stop, and for `settled`
    ::pthread_sigmask(SIG_BLOCK, &held_, nullptr);
    for (int number = 1; number < NSIG; ++number) {
        if (sigismember(&held_, number) == 1) catchSignal(number, held_);
    }
}

Signals::~Signals() {
    if (thread_.joinable()) {
        note(0);
        thread_.join();
    }
    catchingFd = -1;
}

void Signals::handle(std::function<void(int)> handler) {
    thread_ = std::thread([this, handler = std::move(handler)] {
        while (const int number = nextSignal()) {
            handler(number);
            if (number != SIGCONT && number != SIGTSTP) continue; // see `settled`
            const std::lock_guard guard(mutex_);
            for (const auto& waiting : std::exchange(waiting_, {})) waiting.resume();
        }
    });
}

/// Blocks until there is a signal to handle. 0 when there will be none.
int Signals::nextSignal() const noexcept {
    // Not in the read: ThreadSanitizer holds a handler up until a read returns.
    pollfd waiting{caught_.get(), POLLIN, 0};
    ::pthread_sigmask(SIG_UNBLOCK, &held_, nullptr);
    while (::poll(&waiting, 1, -1) != 1) continue; // a handler has interrupted it
    ::pthread_sigmask(SIG_BLOCK, &held_, nullptr);
    unsigned char number = 0;
    [[maybe_unused]] const auto size = ::read(caught_.get(), &number, 1);
    return number;
}

Platform::Task<> Signals::settled() {
    auto waiting = Platform::withCheckedContinuation<>("settled", [this](auto continuation) {
        const std::lock_guard guard(mutex_);
        waiting_.push_back(continuation);
        // Pending signals are caught in the order of their numbers: SIGINT and SIGQUIT, by which a
        // user ends a program, before this one. SIGTSTP discards a pending SIGCONT.
        ::kill(::getpid(), SIGCONT);
    });
    co_await waiting;
}

void Signals::obey(int number) noexcept {
    sigset_t just;
    sigset_t before;
    sigemptyset(&just);
    sigaddset(&just, number);
    struct sigaction byDefault{};
    struct sigaction caught{};
    ::sigaction(number, nullptr, &caught);
    if (caught.sa_handler == SIG_IGN) return;
    byDefault.sa_handler = SIG_DFL;
    ::sigaction(number, &byDefault, &caught);
    ::raise(number); // to this thread, so that it does not go on before
    ::pthread_sigmask(SIG_UNBLOCK, &just, &before);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::sigaction(number, &caught, nullptr);
}

} // namespace TerminalHost
