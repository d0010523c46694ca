#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Executor.h>

#include <cstddef>
#include <memory>

namespace Platform {

/// A fixed number of threads that share the running of tasks. Work on it must not block a thread:
/// blocking work belongs on a `SerialQueue`.
///
/// A task that a running task resumes goes to the resuming worker's own slot: the worker turns to
/// it as soon as the running task suspends, without a wake-up or a trip to another core. What the
/// slot held before goes to the worker's queue, from where idle workers take it; and a slot that
/// its worker does not come to for a while is taken over too. More urgent tasks come first;
/// fairness among equals is kept by serving the queues now and then although the slot is full.
class PLATFORM_EXPORT CooperativePool final : public Executor {
public:
    /// Starts the threads; `workers` is at least 1. Throws std::system_error.
    explicit CooperativePool(std::size_t workers);

    /// Ends the threads, each when the task that it runs suspends. Tasks that are ready or
    /// suspended then are never resumed, so only end a pool that has nothing to do. Blocks until
    /// all are gone.
    ~CooperativePool();

    /// The pool of the process: one worker a core, started on first use, never ended.
    static CooperativePool& shared();

    void enqueue(detail::TaskContext& task) noexcept override;

private:
    class Worker;
    struct State;

    std::unique_ptr<State> state_;
};

} // namespace Platform
