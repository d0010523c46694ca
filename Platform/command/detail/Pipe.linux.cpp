#include <Platform/command/detail/Pipe.h>

#include <Platform/base/detail/SystemCall.h>

#include <fcntl.h>
#include <unistd.h>

namespace Platform::detail {

Pipe makePipe() {
    int ends[2];
    systemCall(SystemCall::pipe, [&] { return ::pipe2(ends, O_CLOEXEC); });
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

} // namespace Platform::detail
