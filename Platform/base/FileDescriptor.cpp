#include <Platform/base/FileDescriptor.h>

#include <Platform/base/detail/Sigpipe.h>
#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <utility>

#include <unistd.h>

namespace Platform {
namespace {

using detail::SystemCall;

constexpr std::size_t chunkSize = 4096;

void closeOnce(int descriptor) noexcept {
    const int error = errno;
    if (const detail::SystemCallHook hook = detail::systemCallHook.load()) {
        hook(SystemCall::close, nullptr);
    }
    ::close(descriptor);
    errno = error;
}

} // namespace

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        reset();
        descriptor_ = other.release();
    }
    return *this;
}

int FileDescriptor::release() noexcept {
    return std::exchange(descriptor_, -1);
}

void FileDescriptor::reset() noexcept {
    if (const int descriptor = release(); descriptor >= 0) {
        closeOnce(descriptor);
    }
}

std::size_t FileDescriptor::read(std::span<std::byte> buffer) const {
    const auto count = detail::systemCall(SystemCall::read, buffer.size(), [&](std::size_t size) {
        return ::read(descriptor_, buffer.data(), size);
    });
    return static_cast<std::size_t>(count);
}

Data FileDescriptor::readData(std::span<std::byte> buffer) const {
    return buffer.empty() ? Data() : Data(buffer.first(read(buffer)));
}

Data FileDescriptor::readToEnd(Data result) const {
    // Reads straight into the result: no second buffer, no second copy.
    for (;;) {
        const std::size_t size = result.size();
        const std::size_t count = read(result.appendUninitialized(chunkSize));
        result.truncate(size + count);
        if (count == 0) {
            return result;
        }
    }
}

std::size_t FileDescriptor::write(std::span<const std::byte> bytes) const {
    const auto count = detail::systemCall(SystemCall::write, bytes.size(), [&](std::size_t size) {
        return detail::writeWithoutSigpipe(descriptor_, bytes.data(), size);
    });
    return static_cast<std::size_t>(count);
}

} // namespace Platform
