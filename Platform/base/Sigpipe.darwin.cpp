#include <Platform/base/detail/Sigpipe.h>

#include <Platform/base/detail/SystemCall.h>

#include <fcntl.h>
#include <unistd.h>

namespace Platform::detail {

void suppressSigpipe(int descriptor) {
    systemCall(SystemCall::fcntl, [&] { return ::fcntl(descriptor, F_SETNOSIGPIPE, 1); });
}

std::ptrdiff_t writeWithoutSigpipe(int descriptor, const void* bytes, std::size_t count) noexcept {
    return ::write(descriptor, bytes, count);
}

} // namespace Platform::detail
