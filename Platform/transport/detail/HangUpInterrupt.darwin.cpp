#include <Platform/transport/detail/HangUpInterrupt.h>

#include <Platform/base/detail/Shortage.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/runtime/detail/Threads.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

#include <fcntl.h>
#include <pthread.h>
#include <sys/event.h>

namespace Platform::detail {

// The socket's own notice (O_ASYNC) is of no use here. Its SIGIO comes whenever bytes move, and a
// signal that meets the open of a named pipe makes the open fail even if the peer's open has
// already been woken by it: the peer then writes to a reader that leaves. So a thread waits for the
// hang-up, and only a hang-up makes it send a signal.

namespace {

class SigioHandled {
public:
    SigioHandled() noexcept {
        struct sigaction action{}; // without SA_RESTART: a call that blocks fails
        action.sa_handler = [](int) {};
        ::sigaction(SIGIO, &action, &previousAction_);
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGIO);
        ::pthread_sigmask(SIG_UNBLOCK, &signals, &previousMask_);
    }
    SigioHandled(const SigioHandled&) = delete;
    SigioHandled& operator=(const SigioHandled&) = delete;
    ~SigioHandled() {
        ::sigaction(SIGIO, &previousAction_, nullptr);
        ::pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
    }

private:
    struct sigaction previousAction_{};
    sigset_t previousMask_{};
};

} // namespace

struct HangUpInterrupt::State {
    explicit State(const FileDescriptor& connection)
        : queue(systemCall(SystemCall::watch, [] { return ::kqueue(); })) {
        ::fcntl(queue.get(), F_SETFD, FD_CLOEXEC);
        struct kevent hangUp;
        struct kevent end;
        EV_SET(&hangUp, static_cast<std::uintptr_t>(connection.get()), EVFILT_READ,
               EV_ADD | EV_CLEAR, 0, 0, nullptr);
        EV_SET(&end, 0, EVFILT_USER, EV_ADD, 0, 0, nullptr);
        for (const struct kevent* const event : {&hangUp, &end}) {
            systemCall(SystemCall::watch,
                       [&] { return ::kevent(queue.get(), event, 1, nullptr, 0, nullptr); });
        }
        watcher = Thread([this, owner = ::pthread_self()] { watch(owner); });
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
        struct kevent end;
        EV_SET(&end, 0, EVFILT_USER, 0, NOTE_TRIGGER, 0, nullptr);
        ::kevent(queue.get(), &end, 1, nullptr, 0, nullptr);
        watcher.join();
        interruptedCallsFail = false;
    }

    void watch(pthread_t owner) const noexcept {
        setThreadName("platform-hang-up");
        // A signal that comes just before a call blocks does not interrupt it, so it is repeated.
        constexpr timespec repetition{0, 5'000'000};
        for (bool hasHungUp = false;;) {
            struct kevent event{};
            const int count =
                ::kevent(queue.get(), nullptr, 0, &event, 1, hasHungUp ? &repetition : nullptr);
            if (count == 1 && event.filter == EVFILT_USER) return;
            if (count == -1) pauseBeforeRetry();
            hasHungUp = hasHungUp || (count == 1 && (event.flags & EV_EOF) != 0);
            if (!hasHungUp) continue;
            interruptedCallsFail = true;
            ::pthread_kill(owner, SIGIO);
        }
    }

    const SigioHandled handled;
    const FileDescriptor queue;
    Thread watcher;
};

HangUpInterrupt::HangUpInterrupt(const FileDescriptor& connection)
    : state_(std::make_unique<State>(connection)) {}

HangUpInterrupt::~HangUpInterrupt() = default;

} // namespace Platform::detail
