#pragma once

#include <Platform/base/FileDescriptor.h>

namespace Platform::detail {

/// The ends of a pipe, each of them close-on-exec.
struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;
};

/// Makes a pipe between this process and a child. Throws `Errno`.
///
/// Linux: close-on-exec from birth. macOS has no such call: see `ForkLock`. A process that other
/// code spawns just then may inherit the ends; one that `ChildProcess` starts, or a fork, does not.
Pipe makePipe();

/// Makes reads and writes of this end return at once, for use with `Watch`. The other end of a
/// pipe, which the child has, stays as it is. Throws `Errno`.
void makeNonBlocking(const FileDescriptor& end);

} // namespace Platform::detail
