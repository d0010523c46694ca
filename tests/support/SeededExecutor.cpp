#include <support/SeededExecutor.h>

namespace Platform::Testing {

void SeededExecutor::enqueue(detail::TaskContext& task) noexcept {
    const std::lock_guard guard(mutex_);
    ready_.push_back(&task);
    added_.notify_one();
}

bool SeededExecutor::runOne() {
    detail::TaskContext* task = nullptr;
    {
        const std::lock_guard guard(mutex_);
        if (ready_.empty()) return false;
        std::swap(ready_[choose(ready_.size())], ready_.back());
        task = ready_.back();
        ready_.pop_back();
    }
    task->run();
    return true;
}

void SeededExecutor::runUntilIdle() {
    while (runOne()) {
    }
}

void SeededExecutor::runUntil(const std::function<bool()>& condition) {
    while (!condition()) {
        if (runOne()) continue;
        std::unique_lock lock(mutex_);
        if (!added_.wait_for(lock, std::chrono::minutes(1), [this] { return !ready_.empty(); })) {
            std::fprintf(stderr, "SeededExecutor: nothing became ready for a minute\n");
            std::abort();
        }
    }
}

} // namespace Platform::Testing
