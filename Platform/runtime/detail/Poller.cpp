#include <Platform/runtime/detail/Poller.h>

#include <Platform/runtime/detail/Threads.h>

#include <algorithm>
#include <utility>

namespace Platform::detail {

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

Poller::Poller() {
    std::thread thread = startThread([this] { serve(); });
    thread_ = thread.get_id(); // read only by those who found this object, after this
    thread.detach();
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
    if (std::this_thread::get_id() != thread_) {
        watch.isStopping_ = true;
        settled_.wait(lock, [&] { return running_ != &watch; });
        watch.isStopping_ = false;
    }
    return wasArmed;
}

void Poller::serve() noexcept {
    setThreadName("platform-poller");
    for (;;) {
        queue_.wait();
        std::unique_lock lock(mutex_);
        const std::size_t count = queue_.take(batch_);
        for (std::size_t i = 0; i < count; ++i) {
            Watch* const watch = std::exchange(batch_[i], nullptr);
            if (!watch) continue;
            running_ = watch;
            watch->isArmed_ = false;
            lock.unlock();
            watch->ready(); // may be the end of it
            lock.lock();
            running_ = nullptr;
            settled_.notify_all();
        }
    }
}

} // namespace Platform::detail
