#pragma once

#include <Platform/async/detail/Wait.h>
#include <Platform/base/Data.h>
#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/QuickMutex.h>
#include <Platform/runtime/detail/Poller.h>

#include <cstddef>
#include <mutex>
#include <optional>
#include <span>

namespace Platform::detail {

/// Our end of a pipe to or from a child. Never blocks a thread: what cannot be done at once says
/// so, and `whenReady` suspends until it is worth another try.
///
/// Shared by the one task that moves the bytes and by whoever may cut that short, on any thread.
class PipeEnd final : private Watch {
    class Ready;

public:
    /// Makes the end non-blocking, and writes to it raise no SIGPIPE. `event` is `readable` or
    /// `writable`. Throws `Errno`.
    PipeEnd(FileDescriptor end, WatchEvent event);
    PipeEnd(const PipeEnd&) = delete;
    PipeEnd& operator=(const PipeEnd&) = delete;
    ~PipeEnd();

    enum class Progress { made, blocked, ended };

    /// What a full pipe has. One that was found full may be widened, and have more from then on.
    static constexpr std::size_t usualCapacity = 65536;

    /// Appends what is there, `most` bytes of it. `ended`: nothing will come any more, or nothing
    /// is wanted any more. Throws `Errno`, and std::bad_alloc; has read nothing then.
    Progress read(Data& into, std::size_t most);

    /// Takes the bytes that fit away from the front. `ended`: nobody will read them.
    Progress write(std::span<const std::byte>& bytes) noexcept;

    /// Whether a write would get somewhere, be it to an error. False, too, when the system is
    /// too short of memory to tell.
    bool isWritable() const noexcept;

    /// Await until another try may do more than the last. Ignores cancellation: `close` ends it.
    Operation<Ready, PipeEnd> whenReady() noexcept { return Operation<Ready, PipeEnd>(*this); }

    /// From now on what is read is thrown away. The other side can go on writing.
    void discard() noexcept;

    /// What is in the pipe now is the last that `read` hands out: all that a process that has ended
    /// wrote, without a wait for others that hold the pipe open.
    void endAfterWhatIsThere() noexcept;

    /// Ends every operation, those to come too; the other side finds the pipe closed.
    void close() noexcept;

    /// Whether all that was ever written was handed out by `read`.
    bool reachedEnd() const noexcept;

    /// Ends every operation, for a reason of whoever moves the bytes; the pipe stays open.
    void fail(int number) noexcept;

    /// Why the bytes did not all pass, when nobody wanted that; 0: they did, as far as is known.
    int error() const noexcept;

private:
    friend class Wait<Ready, NoCancellation>;

    class Ready final : public Wait<Ready, NoCancellation> {
    public:
        explicit Ready(PipeEnd& end) noexcept : end_(end) {}
        Ready(const Ready&) = delete;
        Ready& operator=(const Ready&) = delete;
        ~Ready() { withdraw(); }

        void await_resume() noexcept { endWait(); }

    private:
        friend class Wait<Ready, NoCancellation>;

        bool mustWait(const TaskContext&) noexcept { return end_.waitsForSystem(); }
        QuickMutex& mutex() const noexcept { return end_.mutex_; }
        WaiterList& line() const noexcept { return end_.waiting_; }

        PipeEnd& end_;
    };

    void ready() noexcept override;
    bool waitsForSystem() noexcept;

    mutable QuickMutex mutex_;
    FileDescriptor end_;
    WaiterList waiting_;
    std::optional<std::size_t> left_; ///< How much there is still to hand out, where that is known.
    std::size_t lastRead_ = 0;
    bool isWide_ = false;
    bool isWatched_ = false; ///< The system will tell.
    bool discards_ = false;
    bool hasEnded_ = false;
    int error_ = 0;
    bool reachedEnd_ = false;
};

} // namespace Platform::detail
