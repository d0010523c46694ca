#include <Platform/base/detail/Sigpipe.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include <unistd.h>

namespace Platform::detail {

void suppressSigpipe(int) {}

std::ptrdiff_t writeWithoutSigpipe(int descriptor, const void* bytes, std::size_t count) noexcept {
    sigset_t sigpipe;
    sigset_t mask;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, &mask);

    // Only where the signal was blocked already can an older one be waiting, which is not ours.
    bool foreignPending = false;
    if (sigismember(&mask, SIGPIPE) == 1) {
        sigset_t pending;
        sigpending(&pending);
        foreignPending = sigismember(&pending, SIGPIPE) == 1;
    }

    const std::ptrdiff_t result = ::write(descriptor, bytes, count);
    const int error = errno;

    if (result == -1 && error == EPIPE && !foreignPending) {
        const timespec atOnce{};
        while (sigtimedwait(&sigpipe, nullptr, &atOnce) == -1 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    errno = error;
    return result;
}

} // namespace Platform::detail
