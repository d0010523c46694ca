#pragma once

#include <Platform/base/FileDescriptor.h>

#include <cstddef>
#include <span>

namespace Platform::detail {

class Watch;

/// What can be waited for. The subject of `processEnd` is the process's descriptor (Linux) or its
/// id (macOS); of the others, the descriptor itself.
enum class WatchEvent : unsigned char { readable, writable, processEnd };

/// The system's own queue of events, of which each is taken once. Not synchronised, but `wait` may
/// run at any time.
class EventQueue {
public:
    /// Throws `Errno`.
    EventQueue();

    /// The watch's event is queued once from now on. `isKnown`: it was added before and not
    /// removed since. Throws `Errno`.
    void add(Watch& watch, bool isKnown);

    /// Its event is not queued any more, and if it was, is not taken any more.
    void remove(Watch& watch) noexcept;

    /// Blocks until there are events to take, or the bell rings. May return earlier, but not at
    /// once.
    void wait() const noexcept;

    /// Takes events, and silences the bell; never blocks. Returns how many; some may be null.
    std::size_t take(std::span<Watch*> events) noexcept;

    /// Has `wait` return, until the next `take`. From any thread.
    void ringBell() noexcept;

private:
    FileDescriptor queue_;
    FileDescriptor bell_; ///< Linux only.
};

} // namespace Platform::detail
