#pragma once

#include <csignal>

namespace Platform::detail {

/// Keeps this process from forking. To be held from the call that makes a descriptor until the
/// descriptor is close-on-exec, where the system needs two calls for that (macOS): a child forked
/// in between would pass the descriptor on to the program that it becomes.
///
/// A `fork` on another thread blocks meanwhile; so hold it for a few calls that do not block. The
/// thread takes no signals, since a handler may fork. Does not hold up what runs no fork handlers:
/// `vfork`, and a `posix_spawn` of other code.
class ForkLock {
public:
    ForkLock() noexcept;
    ForkLock(const ForkLock&) = delete;
    ForkLock& operator=(const ForkLock&) = delete;
    ~ForkLock();

private:
    sigset_t signals_; ///< The mask before the lock.
};

} // namespace Platform::detail
