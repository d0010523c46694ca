#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Executor.h>
#include <Platform/runtime/detail/BlockingPool.h>
#include <Platform/runtime/detail/ReadyQueue.h>

#include <condition_variable>
#include <mutex>

namespace Platform::detail {

class MainExecutor;

/// The task of a `runMain`: its end ends the loop.
class PLATFORM_EXPORT MainContext : public TaskContext {
protected:
    explicit MainContext(MainExecutor& executor) noexcept;

    void publishEnd() noexcept;

private:
    MainExecutor& main_;
};

/// Runs tasks on the thread that calls `runUntilEnd`.
class PLATFORM_EXPORT MainExecutor final : public Executor, private ThreadLender {
public:
    explicit MainExecutor(bool lendsThread) noexcept;
    ~MainExecutor();

    void enqueue(TaskContext& task) noexcept override;

    void runUntilEnd(MainContext& root);

private:
    friend class MainContext;

    bool take(BlockingJob& job) noexcept override;

    std::mutex mutex_;
    std::condition_variable work_;
    ReadyQueue ready_;
    BlockingJob* lent_ = nullptr;
    bool lendsThread_;
    bool busyWithJob_ = false;
    bool ended_ = false; ///< Used by the running thread only.
};

/// Lets go of one reference to a task at the end of its scope.
class TaskReference {
public:
    explicit TaskReference(TaskContext& task) noexcept : task_(task) {}
    TaskReference(const TaskReference&) = delete;
    TaskReference& operator=(const TaskReference&) = delete;
    ~TaskReference() { task_.release(); }

private:
    TaskContext& task_;
};

} // namespace Platform::detail
