#pragma once

#include <Platform/base/Export.h>
#include <Platform/base/detail/LinkedList.h>
#include <Platform/runtime/detail/CancellationHandler.h>
#include <Platform/runtime/detail/TaskContext.h>
#include <Platform/runtime/detail/TaskPromise.h>

#include <concepts>
#include <coroutine>
#include <mutex>
#include <utility>

namespace Platform::detail {

/// A suspended task in the line of some primitive. Lives in the awaiter, in the task's own frame,
/// so that waiting allocates nothing.
struct PLATFORM_EXPORT Waiter : Link {
    TaskContext* task = nullptr;
};

using WaiterList = LinkedList<Waiter>;

/// Wakes all, the oldest first. Called with the lock of the line held.
inline void wakeAll(WaiterList& line) noexcept {
    while (const Waiter* const waiter = line.takeFirst()) waiter->task->schedule();
}

/// In the place of a cancellation handler, for a wait that ignores cancellation.
struct NoCancellation {
    static bool enter(const TaskContext&) noexcept { return true; }
    static void leave() noexcept {}
};

/// An awaiter that stands in a line until somebody takes it out and schedules its task, or the task
/// is cancelled. Whoever takes it out does so under the lock of the line, and does not touch it
/// once the task is scheduled.
///
/// `Self` has `mutex()`, the lock, and, called with it held: `mustWait(context)`, which settles the
/// wait at once where it can; `line()`, where to wait otherwise; `noteCancelled()`.
template <class Self, class Handler = CancellationHandler>
class Wait : public Waiter, protected Handler {
public:
    bool await_ready() const noexcept { return false; }

    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> awaiting) noexcept {
        TaskContext& context = awaiting.promise().context();
        const std::lock_guard guard(self().mutex());
        if (!self().mustWait(context)) return false;
        // The flag is set before any handler is called, so a handler that came too early for this
        // one is noticed here.
        if (!this->enter(context)) {
            self().noteCancelled();
            return false;
        }
        waits_ = true;
        task = &context;
        context.suspendAt(awaiting);
        self().line().append(*this);
        return true;
    }

    static void noteCancelled() noexcept {}

protected:
    ~Wait() = default;

    /// To be called first by `await_resume`. Whether the task was suspended.
    bool endWait() noexcept {
        if (!std::exchange(waits_, false)) return false;
        this->leave();
        return true;
    }

    /// To be called by the destructor: the frame may be destroyed while the task waits.
    void withdraw() noexcept {
        if (!waits_) return;
        this->leave(); // without the lock, which the handler takes
        const std::lock_guard guard(self().mutex());
        unlink();
    }

private:
    friend Self;

    Wait() noexcept
        requires std::same_as<Handler, CancellationHandler>
        : Handler(&cancelled) {}
    Wait() noexcept = default;

    Self& self() noexcept { return static_cast<Self&>(*this); }

    static void cancelled(CancellationHandler& handler) noexcept {
        auto& wait = static_cast<Wait&>(handler);
        const std::lock_guard guard(wait.self().mutex());
        if (!wait.unlink()) return; // taken out before
        wait.self().noteCancelled();
        wait.task->schedule();
    }

    bool waits_ = false;
};

/// What an operation returns: awaiting it makes the awaiter, in place.
template <class Awaiter, class Owner>
class [[nodiscard]] Operation : public Awaitable {
public:
    explicit Operation(Owner& owner) noexcept : owner_(owner) {}
    auto operator co_await() const noexcept { return Awaiter(owner_); }

private:
    Owner& owner_;
};

} // namespace Platform::detail
