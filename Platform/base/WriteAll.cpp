#include <Platform/base/detail/WriteAll.h>

#include <Platform/base/detail/Shortage.h>
#include <Platform/base/detail/Sigpipe.h>
#include <Platform/base/detail/SystemCall.h>

#include <cerrno>

#include <poll.h>
#include <sys/select.h>

namespace Platform::detail {

namespace {

/// As a system call. Select takes no descriptor with a higher number than its sets have room for.
int selectWritable(int descriptor) noexcept {
    fd_set writable;
    FD_ZERO(&writable);
    FD_SET(descriptor, &writable);
    return ::select(descriptor + 1, nullptr, &writable, nullptr, nullptr);
}

/// Blocks until a write is worth another try, which may also be a little early.
void waitUntilWritable(int descriptor) {
    pollfd waiting{descriptor, POLLOUT, 0};
    int count = trySystemCall(SystemCall::poll, [&] { return ::poll(&waiting, 1, -1); });
    if (count == 1 && (waiting.revents & POLLNVAL) != 0) {
        // macOS says so of a terminal too when it was opened as /dev/tty. It can select that.
        count = 0;
        if (descriptor < FD_SETSIZE) {
            const auto select = [&] { return selectWritable(descriptor); };
            count = trySystemCall(SystemCall::poll, select);
        }
    }
    if (count == 1) return;
    if (count == -1 && !isShortage(errno)) throwErrno();
    if (pauseBeforeRetry() == -1 && interruptedCallsFail) throwErrno();
}

} // namespace

void writeAll(int descriptor, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const auto count = trySystemCall(SystemCall::write, bytes.size(), [&](std::size_t size) {
            return writeWithoutSigpipe(descriptor, bytes.data(), size);
        });
        if (count >= 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            waitUntilWritable(descriptor);
        } else {
            throwErrno();
        }
    }
}

} // namespace Platform::detail
