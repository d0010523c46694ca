#include <Platform/runtime/detail/MainExecutor.h>

#include <utility>

namespace Platform::detail {

MainContext::MainContext(MainExecutor& executor) noexcept
    : TaskContext(executor, TaskPriority::userInitiated), main_(executor) {}

void MainContext::publishEnd() noexcept {
    main_.ended_ = true;
}

MainExecutor::MainExecutor(bool lendsThread) noexcept : lendsThread_(lendsThread) {
    if (lendsThread_) BlockingPool::shared().setLender(this);
}

MainExecutor::~MainExecutor() {
    if (!lendsThread_) return;
    BlockingPool::shared().setLender(nullptr);
    // Nobody offers a job any more; one that was taken on and not begun still has to be run.
    if (!lent_) return;
    try {
        BlockingPool::shared().submit(*lent_);
    } catch (...) {
        lent_->run();
    }
}

void MainExecutor::enqueue(TaskContext& task) noexcept {
    const std::lock_guard guard(mutex_);
    ready_.push(task);
    work_.notify_one();
}

bool MainExecutor::take(BlockingJob& job) noexcept {
    const std::lock_guard guard(mutex_);
    if (lent_ || busyWithJob_) return false;
    lent_ = &job;
    work_.notify_one();
    return true;
}

void MainExecutor::runUntilEnd(MainContext& root) {
    enqueue(root);
    std::unique_lock lock(mutex_);
    while (!ended_) {
        if (TaskContext* const task = ready_.pop()) {
            lock.unlock();
            task->run();
            lock.lock();
        } else if (BlockingJob* const job = std::exchange(lent_, nullptr)) {
            busyWithJob_ = true;
            lock.unlock();
            job->run();
            lock.lock();
            busyWithJob_ = false;
        } else {
            work_.wait(lock);
        }
    }
}

} // namespace Platform::detail
