#include <Platform/runtime/detail/Threads.h>

#include <csignal>
#include <cstddef>
#include <exception>
#include <memory>
#include <system_error>
#include <utility>

namespace Platform::detail {

namespace {

constexpr std::size_t stackSize = 8 << 20; // reserved, not touched

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

using Body = std::function<void()>;

/// Starts a thread that runs `entry(argument)`. Returns an error number, or 0.
int create(pthread_t& id, void* (*entry)(void*), void* argument) noexcept {
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes)) return error;
    int error = pthread_attr_setstacksize(&attributes, stackSize);
    if (error == 0) {
        const SignalsBlocked blocked;
        error = pthread_create(&id, &attributes, entry, argument);
    }
    pthread_attr_destroy(&attributes);
    return error;
}

extern "C" void* runThread(void* argument) noexcept {
    const std::unique_ptr<Body> body(static_cast<Body*>(argument));
    (*body)();
    return nullptr;
}

} // namespace

Thread::Thread(Body body) {
    auto owned = std::make_unique<Body>(std::move(body));
    pthread_t id{};
    if (const int error = create(id, runThread, owned.get())) {
        throw std::system_error(error, std::generic_category(), "cannot start a thread");
    }
    owned.release(); // NOLINT(bugprone-unused-return-value): the thread has it
    id_ = id;
}

Thread::Thread(Thread&& other) noexcept : id_(std::exchange(other.id_, std::nullopt)) {}

Thread& Thread::operator=(Thread&& other) noexcept {
    if (id_) std::terminate();
    id_ = std::exchange(other.id_, std::nullopt);
    return *this;
}

Thread::~Thread() {
    if (id_) std::terminate();
}

void Thread::join() noexcept {
    // As std::thread: a thread that joins itself must not go on.
    if (!id_ || pthread_join(*id_, nullptr) != 0) std::terminate();
    id_ = std::nullopt;
}

void Thread::detach() noexcept {
    if (!id_ || pthread_detach(*id_) != 0) std::terminate();
    id_ = std::nullopt;
}

} // namespace Platform::detail
