#pragma once

#include <Platform/base/FileDescriptor.h>

#include <csignal>
#include <optional>
#include <string>

namespace Platform::detail {

/// The client's side of its host's presence (see `Presence`), for a program of ours: it takes the
/// process's SIGIO and SIGALRM meanwhile. One at a time, on the thread that makes the system calls.
///
/// When the host goes, system calls that block, or are about to, fail with EINTR.
class Attendance {
public:
    static constexpr const char* hostEnded = "the host has ended";

    /// Blocks until it is this client's turn. Where the host has no presence there are no turns,
    /// and nothing is known of its end.
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
    /// Has signals tell of the host's end.
    class Heed {
    public:
        explicit Heed(const FileDescriptor& connection);
        Heed(const Heed&) = delete;
        Heed& operator=(const Heed&) = delete;
        ~Heed();

    private:
        const FileDescriptor& connection_;
        struct sigaction noticeBefore_{};
        struct sigaction timerBefore_{};
        sigset_t maskBefore_{};
    };

    bool hears() const;

    FileDescriptor connection_;
    std::optional<Heed> heed_;
};

} // namespace Platform::detail
