#include <Platform/command/detail/PipeEnd.h>

#include <Platform/base/Errno.h>
#include <Platform/base/detail/Shortage.h>
#include <Platform/base/detail/Sigpipe.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/command/detail/BulkStream.h>
#include <Platform/command/detail/Pipe.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Platform::detail {

PipeEnd::PipeEnd(FileDescriptor end, WatchEvent event) : Watch(event), end_(std::move(end)) {
    makeNonBlocking(end_);
    if (event == WatchEvent::writable) suppressSigpipe(end_.get());
    setSubject(end_.get());
}

PipeEnd::~PipeEnd() {
    cancel();
}

PipeEnd::Progress PipeEnd::read(Data& into, std::size_t most) {
    const std::lock_guard guard(mutex_);
    if (error_ != 0) throw Errno(error_);
    if (hasEnded_) return Progress::ended;
    const bool isOver = left_ == 0U; // what may come now is not wanted, but tells of the end
    const bool keeps = !discards_ && !isOver;
    if (left_) most = std::min(most, std::max<std::size_t>(*left_, 1));
    std::array<std::byte, 16384> rubbish;
    const std::size_t before = into.size();
    const std::span<std::byte> room =
        keeps ? into.appendUninitialized(most)
              : std::span(rubbish).first(std::min(most, rubbish.size()));
    if (room.size() > usualCapacity) {
        backWithMemory(room.first(std::min(room.size(), lastRead_))); // as much will come again
    }
    const auto count = trySystemCall(SystemCall::read, room.size(), [&](std::size_t size) {
        // NOLINTNEXTLINE(clang-analyzer-unix.BlockInCriticalSection): it does not block
        return ::read(end_.get(), room.data(), size);
    });
    const int error = errno;
    const std::size_t got = count > 0 ? static_cast<std::size_t>(count) : 0;
    if (keeps) into.truncate(before + got);
    if (got > 0) lastRead_ = got;
    if (got >= usualCapacity && !std::exchange(isWide_, true)) widenPipe(end_);
    if (count > 0 && !isOver) {
        if (left_) *left_ -= got;
        return Progress::made;
    }
    if (count == -1 && error == EAGAIN && !left_) return Progress::blocked;
    hasEnded_ = true;
    if (count == -1 && error != EAGAIN) {
        error_ = error;
        throw Errno(error);
    }
    reachedEnd_ = count == 0 && !discards_;
    return Progress::ended;
}

PipeEnd::Progress PipeEnd::write(std::span<const std::byte>& bytes) noexcept {
    const std::lock_guard guard(mutex_);
    if (hasEnded_) return Progress::ended;
    const auto count = trySystemCall(SystemCall::write, bytes.size(), [&](std::size_t size) {
        return writeWithoutSigpipe(end_.get(), bytes.data(), size);
    });
    if (count == -1) return errno == EAGAIN ? Progress::blocked : Progress::ended;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    return Progress::made;
}

bool PipeEnd::isWritable() const noexcept {
    const std::lock_guard guard(mutex_);
    if (hasEnded_) return true;
    pollfd subject{end_.get(), POLLOUT, 0};
    const int count = trySystemCall(SystemCall::poll, [&] { return ::poll(&subject, 1, 0); });
    return count > 0 || (count == -1 && !isShortage(errno));
}

void PipeEnd::discard() noexcept {
    const std::lock_guard guard(mutex_);
    discards_ = true;
}

void PipeEnd::endAfterWhatIsThere() noexcept {
    const std::lock_guard guard(mutex_);
    if (hasEnded_) return;
    int size = 0;
    if (::ioctl(end_.get(), FIONREAD, &size) == -1) size = 0;
    left_ = static_cast<std::size_t>(size);
    wakeAll(waiting_);
}

void PipeEnd::close() noexcept {
    {
        const std::lock_guard guard(mutex_);
        hasEnded_ = true; // nothing is armed from here on
    }
    cancel();
    const std::lock_guard guard(mutex_);
    end_.reset();
    wakeAll(waiting_);
}

bool PipeEnd::reachedEnd() const noexcept {
    const std::lock_guard guard(mutex_);
    return reachedEnd_;
}

void PipeEnd::fail(int number) noexcept {
    const std::lock_guard guard(mutex_);
    if (!hasEnded_) error_ = number;
    hasEnded_ = true;
}

int PipeEnd::error() const noexcept {
    const std::lock_guard guard(mutex_);
    return error_;
}

void PipeEnd::ready() noexcept {
    const std::lock_guard guard(mutex_);
    isWatched_ = false;
    wakeAll(waiting_);
}

/// Has the system tell; false: there is no need to wait. With the lock held.
bool PipeEnd::waitsForSystem() noexcept {
    if (hasEnded_ || left_) return false;
    if (isWatched_) return true;
    try {
        arm();
        isWatched_ = true;
    } catch (const std::system_error& failure) {
        error_ = failure.code().value();
        hasEnded_ = true;
    }
    return isWatched_;
}

} // namespace Platform::detail
