#pragma once

#include <Platform/runtime/Task.h>
#include <Platform/runtime/detail/MainExecutor.h>
#include <Platform/runtime/detail/RootTask.h>

#include <utility>

namespace Platform {

/// What the calling thread of `runMain` does while its task waits.
enum class IdleThread {
    /// It sleeps until the task is ready.
    sleeps,
    /// It runs blocking work of the process's serial queues itself, which saves starting a thread.
    /// While it does, the task cannot go on, even when it is ready. Right for a small program whose
    /// task waits for nothing but that work, and that handles no signals: on macOS a handler that
    /// runs while a named pipe is opened breaks the hand-off. The library's own threads take none.
    runsBlockingWork,
};

/// Runs a task on the calling thread, until it has ended; returns its value or throws its error.
///
/// The main executor of a program: what the task awaits runs on this thread too, at its own pace,
/// while other executors run beside it. Blocks. To be called outside any task; not more than one
/// call at a time may lend its idle thread.
template <class T>
T runMain(Task<T> task, IdleThread idle = IdleThread::sleeps) {
    detail::MainExecutor executor(idle == IdleThread::runsBlockingWork);
    auto callable = [&task] { return std::move(task); };
    auto* const root = new detail::RootTask<T, decltype(callable), detail::MainContext>(
        std::move(callable), executor);
    root->retain();
    const detail::TaskReference reference(*root);
    executor.runUntilEnd(*root);
    auto outcome = root->takeOutcomeWhole();
    return detail::takeOutcome<T>(outcome);
}

} // namespace Platform
