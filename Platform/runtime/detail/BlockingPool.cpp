#include <Platform/runtime/detail/BlockingPool.h>

#include <Platform/runtime/detail/Threads.h>

#include <chrono>
#include <utility>

namespace Platform::detail {

namespace {
constexpr std::chrono::seconds idleLimit{5};
}

BlockingPool& BlockingPool::shared() {
    static auto* const pool = new BlockingPool;
    return *pool;
}

void BlockingPool::submit(BlockingJob& job) {
    std::unique_lock lock(mutex_);
    if (lender_ && lender_->take(job)) return;
    if (queued_ >= idle_) {
        Thread([this] { serve(); }).detach();
        ++threads_;
        ++idle_;
    }
    job.next_ = nullptr;
    (last_ ? last_->next_ : first_) = &job;
    last_ = &job;
    ++queued_;
    lock.unlock(); // which the thread takes first
    work_.notify_one();
}

ThreadLender* BlockingPool::setLender(ThreadLender* lender) noexcept {
    const std::lock_guard guard(mutex_);
    return std::exchange(lender_, lender);
}

std::size_t BlockingPool::threadCount() const noexcept {
    const std::lock_guard guard(mutex_);
    return threads_;
}

void BlockingPool::serve() noexcept {
    const char* name = nullptr;
    std::unique_lock lock(mutex_);
    while (work_.wait_for(lock, idleLimit, [this] { return first_ != nullptr; })) {
        BlockingJob& job = *first_;
        first_ = job.next_;
        if (!first_) last_ = nullptr;
        --queued_;
        --idle_;
        lock.unlock();
        if (name != job.label()) setThreadName(name = job.label());
        job.run();
        lock.lock();
        ++idle_;
    }
    --idle_;
    --threads_;
}

} // namespace Platform::detail
