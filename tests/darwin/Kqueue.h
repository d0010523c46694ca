#pragma once

/// `kqueue` and `kevent` of "include/sys/event.h" on top of epoll, for tests of the code for macOS
/// on Linux.
namespace DarwinEmulation {

/// Drops the knotes of the descriptor from all queues, and all that a queue holds if the descriptor
/// is a queue. To be called before each close, `dup2` onto the descriptor included. From any
/// thread; also in a child between `vfork` and `exec`, where it does nothing.
void descriptorCloses(int descriptor) noexcept;

} // namespace DarwinEmulation
