#pragma once

#include <Platform/base/FileDescriptor.h>

#include <memory>

namespace Platform::detail {

/// Interrupts the calling thread when the peer of a connection hangs up. A system call of that
/// thread that blocks, or is about to block, then fails with `EINTR` (see `interruptedCallsFail`),
/// until this object goes.
///
/// For a program that owns its signals: SIGIO is taken meanwhile. On Linux SIGALRM is taken as
/// well, and all other threads must block both. One at a time, to be destroyed on the thread that
/// made it. The connection outlives it. A hang-up that came before may go unnoticed.
class HangUpInterrupt {
public:
    /// Throws `Errno`, and std::system_error when there is no thread to be had (macOS).
    explicit HangUpInterrupt(const FileDescriptor& connection);
    HangUpInterrupt(const HangUpInterrupt&) = delete;
    HangUpInterrupt& operator=(const HangUpInterrupt&) = delete;
    ~HangUpInterrupt();

private:
    struct State;

    const std::unique_ptr<State> state_;
};

} // namespace Platform::detail
