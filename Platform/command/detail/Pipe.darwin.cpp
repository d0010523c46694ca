#include <Platform/command/detail/Pipe.h>

#include <Platform/base/detail/ForkLock.h>
#include <Platform/base/detail/SystemCall.h>

#include <fcntl.h>
#include <unistd.h>

namespace Platform::detail {

Pipe makePipe() {
    const ForkLock lock;
    int ends[2];
    systemCall(SystemCall::pipe, [&] { return ::pipe(ends); });
    Pipe made{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
    for (const int end : ends) {
        systemCall(SystemCall::fcntl, [&] { return ::fcntl(end, F_SETFD, FD_CLOEXEC); });
    }
    return made;
}

} // namespace Platform::detail
