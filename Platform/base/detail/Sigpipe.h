#pragma once

#include <cstddef>

namespace Platform::detail {

/// Keeps writes to `descriptor` from raising SIGPIPE, where the system can do that for a
/// descriptor (macOS); does nothing elsewhere. Throws `Errno`.
void suppressSigpipe(int descriptor);

/// One `write`, as the system call: the count, or -1 with `errno` set, EINTR included. A vanished
/// reader is EPIPE without the signal: on Linux always, on macOS after `suppressSigpipe`.
///
/// Changes nothing that outlasts the call: the thread's signal mask and a SIGPIPE that was pending
/// before stay as they are. Callable from any thread.
std::ptrdiff_t writeWithoutSigpipe(int descriptor, const void* bytes, std::size_t count) noexcept;

} // namespace Platform::detail
