#pragma once

namespace Platform::detail {

/// What a clone runs; never returns.
using CloneBody = int (*)(void*) noexcept;

/// Starts a child process that shares this one's memory and runs `body(data)` on a stack of its
/// own; the calling thread stands still until the child has become another program or has ended.
/// The child has no signal handlers; ignored signals stay ignored. Linux only.
///
/// Returns the id, and the process's descriptor in `identity`; -1 with `errno`. `ENOSYS`, `EPERM`
/// or `EINVAL`: the kernel, a sandbox or the processor's kind does not have it.
long cloneWithoutHandlers(CloneBody body, void* data, int& identity) noexcept;

/// The same, but the child has this process's handlers.
long cloneWithHandlers(CloneBody body, void* data, int& identity) noexcept;

} // namespace Platform::detail
