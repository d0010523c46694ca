#pragma once

#include <Platform/runtime/detail/EventQueue.h>
#include <Platform/runtime/detail/PatienceTimer.h>
#include <Platform/runtime/detail/Threads.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace Platform::detail {

/// Waits for one event of the system without a thread of its own: that a descriptor can be read or
/// written, or that a child has ended. One thread waits for all of them (see `Poller`).
///
/// Derive from it, and call `cancel` in the derived class's destructor. It owns nothing: the
/// descriptor stays open until `cancel` has returned, that of a process until `ready` is called.
/// One watch a descriptor at a time. Waiting allocates nothing.
class Watch {
public:
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    /// Has `ready` called once, as soon as the event has come, on the thread that waits for events.
    /// To be called again for each further call, from `ready` too; not while armed. From any
    /// thread; does not block. Does nothing while another thread is in `cancel`.
    ///
    /// Throws `Errno` (`EPERM`: a file or directory, which is always ready), and
    /// std::system_error when there is no thread to be had; `ready` is not called then.
    void arm();

    /// Once this has returned, `ready` neither runs nor will run, except where `ready` itself calls
    /// this. Blocks for as long as a call that has begun takes: hold no lock that `ready` takes.
    /// Returns true when `ready` was still to come. From any thread.
    bool cancel() noexcept;

    WatchEvent event() const noexcept { return event_; }
    int subject() const noexcept { return subject_; }

protected:
    explicit Watch(WatchEvent event) noexcept : event_(event) {}
    ~Watch() = default;

    /// The descriptor, or what stands for the child (see `WatchEvent`). Only before the first
    /// `arm`, or after `cancel`.
    void setSubject(int subject) noexcept { subject_ = subject; }

    /// Must be quick, must not block: all others wait meanwhile.
    virtual void ready() noexcept = 0;

private:
    friend class Poller;

    const WatchEvent event_;
    int subject_ = -1;
    bool isUsed_ = false;     ///< Was armed once.
    bool isKnown_ = false;    ///< The queue has it, armed or not; with the poller's lock.
    bool isArmed_ = false;    ///< `ready` is still to come; with the poller's lock.
    bool isStopping_ = false; ///< `cancel` waits for `ready`, which may arm no more; likewise.
};

/// Waits for the events of all watches, on one thread at a time, which has the seat: a thread that
/// has nothing else to do, so that it is there at once for what an event leads to; or, when nobody
/// has come for 5 ms, the poller's own thread, one for the process, started on first use, never
/// ended. So long may an event wait while whoever sat does something else.
class Poller {
public:
    static Poller& shared();

    /// Null until the first use: there is nothing to wait for then.
    static Poller* ifUsed() noexcept;

    /// Takes the seat. False: somebody else has it, or is just leaving. Never blocks.
    bool takeSeat() noexcept;

    /// Having the seat, blocks until there are events, or the bell has rung.
    void waitSeated() const noexcept { queue_.wait(); }

    /// Leaves the seat once those have been called whose events have come. Hold no lock that
    /// `Watch::ready` takes.
    void leaveSeat() noexcept;

    /// Has whoever sits return from `waitSeated`.
    void ringBell() noexcept { queue_.ringBell(); }

private:
    friend class Watch;

    Poller();

    void arm(Watch& watch);
    bool cancel(Watch& watch) noexcept;
    void serve() noexcept;
    void deliver(std::unique_lock<std::mutex>& lock) noexcept;

    EventQueue queue_;
    PatienceTimer emptySeat_;
    std::mutex mutex_;
    std::condition_variable settled_;
    std::array<Watch*, 64> batch_{}; ///< Taken from the queue, to be called; null: cancelled.
    Watch* running_ = nullptr;
    bool isDelivering_ = false;
    Thread::Id sitter_; ///< The thread that has the seat, if any.
    Thread::Id thread_; ///< The poller's own.
};

} // namespace Platform::detail
