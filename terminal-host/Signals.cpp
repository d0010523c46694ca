#include <terminal-host/Signals.h>

#include <utility>

#include <pthread.h>
#include <unistd.h>

namespace TerminalHost {

Signals::Signals() {
    sigemptyset(&held_);
    for (const int number :
         {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP, SIGWINCH, SIGUSR1, SIGUSR2}) {
        struct sigaction action{};
        ::sigaction(number, nullptr, &action);
        if (action.sa_handler != SIG_IGN) sigaddset(&held_, number);
    }
    sigaddset(&held_, SIGCONT); // after a stop, and to wake our own thread
    ::pthread_sigmask(SIG_BLOCK, &held_, nullptr);
}

Signals::~Signals() {
    if (!thread_.joinable()) return;
    isEnding_ = true;
    ::pthread_kill(thread_.native_handle(), SIGCONT);
    thread_.join();
}

void Signals::handle(std::function<void(int)> handler) {
    thread_ = std::thread([this, handler = std::move(handler)] {
        for (;;) {
            int number = 0;
            sigwait(&held_, &number);
            if (isEnding_) return;
            handler(number);
            if (number == SIGINT || number == SIGQUIT) continue;
            const std::lock_guard guard(mutex_);
            for (const auto& waiting : std::exchange(waiting_, {})) waiting.resume();
        }
    });
}

Platform::Task<> Signals::settled() {
    auto waiting = Platform::withCheckedContinuation<>("settled", [this](auto continuation) {
        const std::lock_guard guard(mutex_);
        waiting_.push_back(continuation);
        // Of signals that wait the one with the lowest number is taken first: those that a user
        // types to end a program, about which it is, before all others, which do for this then.
        ::kill(::getpid(), SIGCONT);
    });
    co_await waiting;
}

void Signals::obey(int number) noexcept {
    sigset_t just;
    sigset_t before;
    sigemptyset(&just);
    sigaddset(&just, number);
    ::raise(number); // to this thread, so that it does not go on before
    ::pthread_sigmask(SIG_UNBLOCK, &just, &before);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace TerminalHost
