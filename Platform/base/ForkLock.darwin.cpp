#include <Platform/base/detail/ForkLock.h>

#include <cerrno>

#include <pthread.h>

namespace Platform::detail {

namespace {

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // never destroyed: threads outlive exit

void lock() noexcept {
    ::pthread_mutex_lock(&mutex);
}

void unlock() noexcept {
    ::pthread_mutex_unlock(&mutex);
}

/// Registered as the library is loaded: handlers run before a fork in reverse order, so those that
/// the host registers take its locks before this one, as its other threads do.
[[maybe_unused]] const int registered = ::pthread_atfork(lock, unlock, unlock);

} // namespace

ForkLock::ForkLock() noexcept {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &signals_);
    lock();
}

ForkLock::~ForkLock() {
    const int error = errno; // of the call that made no descriptor
    unlock();
    ::pthread_sigmask(SIG_SETMASK, &signals_, nullptr);
    errno = error;
}

} // namespace Platform::detail
