#include <Platform/runtime/detail/Poller.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <utility>

namespace Platform::detail {

namespace {

/// How long the seat may be empty: longer than most tasks run, and than the system's tick, before
/// which a timer costs the system much more.
constexpr std::chrono::milliseconds patience{5};

std::atomic<Poller*> used{nullptr};

} // namespace

void Watch::arm() {
    if (!isUsed_) isUsed_ = true; // once only: another thread may be in `cancel`
    Poller::shared().arm(*this);
}

bool Watch::cancel() noexcept {
    return isUsed_ && Poller::shared().cancel(*this);
}

Poller& Poller::shared() {
    static auto* const poller = new Poller;
    return *poller;
}

Poller* Poller::ifUsed() noexcept {
    return used.load(std::memory_order_acquire);
}

Poller::Poller() {
    Thread thread([this] { serve(); });
    {
        const std::lock_guard guard(mutex_);
        thread_ = sitter_ = thread.id();
    }
    thread.detach();
    used.store(this, std::memory_order_release);
}

void Poller::arm(Watch& watch) {
    const std::lock_guard guard(mutex_);
    if (watch.isStopping_) return;
    queue_.add(watch, watch.isKnown_);
    watch.isKnown_ = true;
    watch.isArmed_ = true;
}

bool Poller::cancel(Watch& watch) noexcept {
    std::unique_lock lock(mutex_);
    if (std::exchange(watch.isKnown_, false)) queue_.remove(watch);
    std::replace(batch_.begin(), batch_.end(), &watch, static_cast<Watch*>(nullptr));
    const bool wasArmed = std::exchange(watch.isArmed_, false);
    if (running_ == &watch && Thread::currentId() != sitter_) {
        watch.isStopping_ = true;
        settled_.wait(lock, [&] { return running_ != &watch; });
        watch.isStopping_ = false;
    }
    return wasArmed;
}

bool Poller::takeSeat() noexcept {
    const std::lock_guard guard(mutex_);
    // The own thread, while it waits, learns that it has lost the seat when there are events.
    const bool isFree = !sitter_ || (sitter_ == thread_ && !isDelivering_);
    if (isFree) sitter_ = Thread::currentId();
    return isFree;
}

void Poller::leaveSeat() noexcept {
    std::unique_lock lock(mutex_);
    deliver(lock);
    sitter_ = {};
    lock.unlock();
    emptySeat_.restart(patience);
}

/// With the seat.
void Poller::deliver(std::unique_lock<std::mutex>& lock) noexcept {
    isDelivering_ = true;
    const std::size_t count = queue_.take(batch_);
    for (std::size_t i = 0; i < count; ++i) {
        Watch* const watch = std::exchange(batch_[i], nullptr);
        if (!watch) continue;
        running_ = watch;
        watch->isArmed_ = false;
        if (watch->event() == WatchEvent::processEnd) watch->isKnown_ = false;
        lock.unlock();
        watch->ready(); // may be the end of it
        lock.lock();
        running_ = nullptr;
        settled_.notify_all();
    }
    isDelivering_ = false;
}

void Poller::serve() noexcept {
    setThreadName("platform-poller");
    for (;;) {
        queue_.wait();
        std::unique_lock lock(mutex_);
        if (!sitter_) sitter_ = thread_;
        if (sitter_ == thread_) {
            deliver(lock);
            continue;
        }
        do {
            lock.unlock();
            emptySeat_.wait();
            lock.lock();
        } while (sitter_);
        sitter_ = thread_;
    }
}

} // namespace Platform::detail
