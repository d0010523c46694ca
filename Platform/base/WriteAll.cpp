#include <Platform/base/detail/WriteAll.h>

#include <Platform/base/detail/Sigpipe.h>
#include <Platform/base/detail/SystemCall.h>

#include <cerrno>

#include <poll.h>

namespace Platform::detail {

void writeAll(int descriptor, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const auto count = trySystemCall(SystemCall::write, bytes.size(), [&](std::size_t size) {
            return writeWithoutSigpipe(descriptor, bytes.data(), size);
        });
        if (count >= 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            pollfd waiting{descriptor, POLLOUT, 0};
            systemCall(SystemCall::poll, [&] { return ::poll(&waiting, 1, -1); });
        } else {
            throwErrno();
        }
    }
}

} // namespace Platform::detail
