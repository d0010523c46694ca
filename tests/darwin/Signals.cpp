#include "Emulation.h"

#include <array>
#include <atomic>
#include <csignal>
#include <ctime>

DARWIN_WRAPS(sigaction);
DARWIN_WRAPS(sigwait);

namespace DarwinEmulation {
namespace {

thread_local volatile std::sig_atomic_t handlersRunHere = 0;

/// The handlers of the process; one of the two functions below is called first.
union Handler {
    void (*plain)(int);
    void (*detailed)(int, siginfo_t*, void*);
};
std::array<std::atomic<Handler>, NSIG> handlers{};

void countPlain(int number) {
    handlersRunHere = handlersRunHere + 1;
    handlers[static_cast<std::size_t>(number)].load().plain(number);
}

void countDetailed(int number, siginfo_t* info, void* context) {
    handlersRunHere = handlersRunHere + 1;
    handlers[static_cast<std::size_t>(number)].load().detailed(number, info, context);
}

bool isHandler(const struct sigaction& action) {
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

bool isThrownAway(int number) {
    struct sigaction action;
    return (number == SIGCHLD || number == SIGIO || number == SIGURG || number == SIGWINCH) &&
           __real_sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL;
}

/// Which signals of the set wait for this thread.
sigset_t pendingOf(const sigset_t& set) {
    sigset_t pending, result;
    sigpending(&pending);
    sigandset(&result, &pending, &set);
    return result;
}

} // namespace

int handlersRun() noexcept {
    return handlersRunHere;
}

} // namespace DarwinEmulation

using namespace DarwinEmulation;

extern "C" {

// A signal that came while there was no handler, and that is ignored by default, is gone, although
// it was blocked.
int __wrap_sigaction(int number, const struct sigaction* action,
                     struct sigaction* before) noexcept {
    struct sigaction passed, old;
    const auto index = static_cast<std::size_t>(number);
    const Handler oldHandler = index < NSIG ? handlers[index].load() : Handler{};
    if (action) {
        passed = *action;
        if (isHandler(*action) && index < NSIG) {
            if (isThrownAway(number)) {
                sigset_t gone;
                sigemptyset(&gone);
                sigaddset(&gone, number);
                const timespec atOnce{};
                if (sigset_t waiting = pendingOf(gone); !sigisemptyset(&waiting))
                    sigtimedwait(&gone, nullptr, &atOnce);
            }
            const bool isDetailed = (action->sa_flags & SA_SIGINFO) != 0;
            handlers[index] = isDetailed ? Handler{.detailed = action->sa_sigaction}
                                         : Handler{.plain = action->sa_handler};
            if (isDetailed)
                passed.sa_sigaction = countDetailed;
            else
                passed.sa_handler = countPlain;
        }
    }
    const int result = __real_sigaction(number, action ? &passed : nullptr, &old);
    if (result == 0 && before) {
        *before = old;
        if (old.sa_handler == countPlain) before->sa_handler = oldHandler.plain;
        if (old.sa_sigaction == countDetailed) before->sa_sigaction = oldHandler.detailed;
    }
    return result;
}

// Signals that are ignored by default never come. A second signal that comes while the thread has
// been woken for the first takes its action: its handler runs, or it ends the process.
int __wrap_sigwait(const sigset_t* set, int* number) {
    sigset_t heard = *set;
    for (int each = 1; each < NSIG; ++each)
        if (isThrownAway(each)) sigdelset(&heard, each);
    sigset_t waiting = pendingOf(heard);
    const bool sleeps = sigisemptyset(&waiting);
    const int result = __real_sigwait(&heard, number);
    waiting = pendingOf(heard);
    if (result == 0 && sleeps && !sigisemptyset(&waiting)) {
        sigset_t mask;
        pthread_sigmask(SIG_UNBLOCK, &waiting, &mask);
        pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    }
    return result;
}
}
