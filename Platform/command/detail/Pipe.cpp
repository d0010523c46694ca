#include <Platform/command/detail/Pipe.h>

#include <Platform/base/detail/SystemCall.h>

#include <fcntl.h>

namespace Platform::detail {

void makeNonBlocking(const FileDescriptor& end) {
    const int flags = systemCall(SystemCall::fcntl, [&] { return ::fcntl(end.get(), F_GETFL); });
    systemCall(SystemCall::fcntl, [&] { return ::fcntl(end.get(), F_SETFL, flags | O_NONBLOCK); });
}

} // namespace Platform::detail
