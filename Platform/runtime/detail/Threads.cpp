#include <Platform/runtime/detail/Threads.h>

#include <csignal>
#include <utility>

namespace Platform::detail {

namespace {

/// Blocks the signals that a thread born meanwhile shall not take.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t set;
        sigfillset(&set);
        for (const int fault :
             {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF}) {
            sigdelset(&set, fault);
        }
        pthread_sigmask(SIG_BLOCK, &set, &before_);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

} // namespace

std::thread startThread(std::function<void()> body) {
    const SignalsBlocked blocked;
    return std::thread(std::move(body));
}

} // namespace Platform::detail
