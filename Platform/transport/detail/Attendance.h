#pragma once

#include <Platform/base/FileDescriptor.h>
#include <Platform/transport/detail/HangUpInterrupt.h>

#include <optional>
#include <string>

namespace Platform::detail {

/// The client's end of its host's presence (see `Presence`), for a program that owns its signals
/// (see `HangUpInterrupt`). One at a time, on the thread that makes the system calls.
///
/// When the host goes, system calls that block, or are about to, fail with `EINTR`.
class Attendance {
public:
    static constexpr const char* hostEnded = "the host has ended";

    /// Blocks until it is this client's turn, and while a host that lives has no room for another
    /// connection. Where the host has no presence there are no turns, and nothing is known of its
    /// end.
    ///
    /// Throws `Errno`: `ECONNREFUSED`, `ECONNRESET` when the host has ended.
    explicit Attendance(const std::string& pipePath);
    Attendance(const Attendance&) = delete;
    Attendance& operator=(const Attendance&) = delete;
    ~Attendance();

    bool hostHasGone() const noexcept;

    /// Tells the host that what was written into the pipe is the whole question.
    void confirm() const noexcept;

    /// Blocks until the host has said that what came out of the pipe is the whole answer. False: it
    /// has gone.
    bool isWhole() const;

private:
    bool hears() const;

    FileDescriptor connection_;
    std::optional<HangUpInterrupt> interrupt_;
};

} // namespace Platform::detail
