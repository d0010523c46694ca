#include "Emulation.h"
#include "Kqueue.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdarg>
#include <ctime>
#include <optional>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

DARWIN_WRAPS(close);
DARWIN_WRAPS(dup);
DARWIN_WRAPS(dup2);
DARWIN_WRAPS(fcntl);
DARWIN_WRAPS(open);
DARWIN_WRAPS(openat);
DARWIN_WRAPS(poll);
DARWIN_WRAPS(write);

namespace DarwinEmulation {
namespace {

std::array<std::atomic<bool>, 65536> withoutSigpipe{};

bool isTerminalOfProcess(int descriptor) {
    struct stat status;
    return fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode) &&
           status.st_rdev == makedev(5, 0);
}

bool isBlockingPipe(int descriptor) {
    struct stat status;
    return fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode) &&
           (__real_fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0;
}

bool hasReaders(int pipe) {
    pollfd subject{pipe, POLLOUT, 0};
    return __real_poll(&subject, 1, 0) != 1 || (subject.revents & POLLERR) == 0;
}

/// Keeps back the SIGPIPE of a write for as long as it lives, and takes it.
class SigpipeHeld {
public:
    SigpipeHeld() {
        sigset_t pending;
        sigemptyset(&sigpipe_);
        sigaddset(&sigpipe_, SIGPIPE);
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &sigpipe_, &before_);
    }
    SigpipeHeld(const SigpipeHeld&) = delete;
    SigpipeHeld& operator=(const SigpipeHeld&) = delete;
    ~SigpipeHeld() {
        const int error = errno;
        const timespec atOnce{};
        if (!wasPending_) sigtimedwait(&sigpipe_, nullptr, &atOnce);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }

private:
    sigset_t sigpipe_, before_;
    bool wasPending_;
};

int inherit(int from, int to) {
    if (to >= 0) setWithoutSigpipe(to, isWithoutSigpipe(from));
    return to;
}

mode_t modeOf(int flags, va_list& list) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(list, mode_t) : 0;
}

} // namespace

bool isWithoutSigpipe(int descriptor) noexcept {
    const auto index = static_cast<std::size_t>(descriptor);
    return index < withoutSigpipe.size() && withoutSigpipe[index];
}

void setWithoutSigpipe(int descriptor, bool value) noexcept {
    const auto index = static_cast<std::size_t>(descriptor);
    if (index < withoutSigpipe.size()) withoutSigpipe[index] = value;
}

} // namespace DarwinEmulation

using namespace DarwinEmulation;

extern "C" {

// A descriptor that is closed leaves every kqueue.
int __wrap_close(int descriptor) {
    descriptorCloses(descriptor);
    setWithoutSigpipe(descriptor, false);
    return __real_close(descriptor);
}

// A copy raises no SIGPIPE either: the flag belongs to the open file.
int __wrap_dup(int descriptor) noexcept {
    return inherit(descriptor, __real_dup(descriptor));
}

int __wrap_dup2(int from, int to) noexcept {
    if (from != to) descriptorCloses(to);
    return inherit(from, __real_dup2(from, to));
}

// F_SETNOSIGPIPE takes SIGPIPE away from a descriptor and its copies.
int __wrap_fcntl(int descriptor, int command, ...) {
    va_list list;
    va_start(list, command);
    void* const argument = va_arg(list, void*);
    va_end(list);
    if (command == F_SETNOSIGPIPE) {
        if (__real_fcntl(descriptor, F_GETFD) == -1) return -1;
        setWithoutSigpipe(descriptor, argument != nullptr);
        return 0;
    }
    const int result = __real_fcntl(descriptor, command, argument);
    return command == F_DUPFD || command == F_DUPFD_CLOEXEC ? inherit(descriptor, result) : result;
}

// The open of a FIFO fails with EINTR when a signal was handled meanwhile, although the other side
// has come, and gives its side back. A FIFO holds 8 KiB.
int __wrap_open(const char* path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = modeOf(flags, list);
    va_end(list);
    const int before = handlersRun();
    const int file = __real_open(path, flags, mode);
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0 || !S_ISFIFO(status.st_mode)) return file;
    if ((flags & O_NONBLOCK) == 0 && handlersRun() != before) {
        __real_close(file);
        errno = EINTR;
        return -1;
    }
    __real_fcntl(file, F_SETPIPE_SZ, 8192);
    return file;
}

// O_SYMLINK opens a link itself, and any other file as without it.
int __wrap_openat(int directory, const char* path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = modeOf(flags, list);
    va_end(list);
    if ((flags & O_SYMLINK) != O_SYMLINK) return __real_openat(directory, path, flags, mode);
    const int file = __real_openat(directory, path, flags & ~O_PATH, mode);
    return file == -1 && errno == ELOOP ? __real_openat(directory, path, flags) : file;
}

// A descriptor with no event that is asked for is not looked at, so that its hang-up is not seen
// either. The process's terminal cannot be polled at all.
int __wrap_poll(pollfd* subjects, nfds_t count, int time) {
    constexpr short watched =
        POLLIN | POLLRDNORM | POLLPRI | POLLRDBAND | POLLHUP | POLLOUT | POLLWRNORM | POLLWRBAND;
    std::vector<pollfd> passed(subjects, subjects + count);
    int invalid = 0;
    for (pollfd& subject : passed) {
        const bool isWatched = (subject.events & watched) != 0;
        subject.revents = isWatched && isTerminalOfProcess(subject.fd) ? POLLNVAL : 0;
        if (subject.revents != 0) ++invalid;
        if (!isWatched || subject.revents != 0) subject.fd = -1;
    }
    for (nfds_t i = 0; i < count; ++i) subjects[i].revents = passed[i].revents;
    const int result = __real_poll(passed.data(), count, invalid > 0 ? 0 : time);
    if (result == -1) return invalid > 0 ? invalid : -1;
    for (nfds_t i = 0; i < count; ++i)
        subjects[i].revents = static_cast<short>(subjects[i].revents | passed[i].revents);
    return result + invalid;
}

// A blocking write whose reader goes in the middle has failed, although a part was read.
ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
    std::optional<SigpipeHeld> held;
    if (isWithoutSigpipe(descriptor)) held.emplace();
    const ssize_t result = __real_write(descriptor, bytes, count);
    if (result <= 0 || static_cast<size_t>(result) == count) return result;
    if (!isBlockingPipe(descriptor) || hasReaders(descriptor)) return result;
    errno = EPIPE;
    return -1;
}
}
