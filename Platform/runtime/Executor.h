#pragma once

#include <Platform/base/Export.h>

namespace Platform {

namespace detail {
class TaskContext;
}

/// Where tasks run. An executor takes tasks that are ready and runs each of them, later and exactly
/// once, on a thread of its choice.
///
/// Users name executors only to build their own (a window system's event loop, a test's schedule):
/// keep what `enqueue` hands over and call `TaskContext::run()` on it from the thread of your
/// choice.
class PLATFORM_EXPORT Executor {
public:
    Executor() = default;
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;

    /// Takes a task that is ready to run.
    ///
    /// Called from any thread, also while the caller holds locks: it must not run the task inline,
    /// and must not block beyond a short critical section. The executor outlives its tasks.
    virtual void enqueue(detail::TaskContext& task) noexcept = 0;

protected:
    ~Executor() = default;
};

} // namespace Platform
