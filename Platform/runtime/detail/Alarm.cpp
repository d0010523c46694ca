#include <Platform/runtime/detail/Alarm.h>

#include <Platform/runtime/detail/Threads.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>

namespace Platform::detail {

struct Alarm::Entry {
    std::function<void()> function;
    std::multimap<Clock::time_point, std::shared_ptr<Entry>>::iterator place;
    bool isWaiting = true; ///< Has a place. With the bell's lock.
};

/// The thread, started on first use, never ended, and what it waits for.
class Alarm::Bell {
public:
    static Bell& shared() {
        static auto* const bell = new Bell;
        return *bell;
    }

    void add(Clock::time_point time, const std::shared_ptr<Entry>& entry) {
        const std::lock_guard guard(mutex_);
        entry->place = entries_.emplace(time, entry);
        if (entry->place == entries_.begin()) changed_.notify_one();
    }

    void remove(const Entry& entry) noexcept {
        std::unique_lock lock(mutex_);
        if (entry.isWaiting) {
            entries_.erase(entry.place);
        } else if (Thread::currentId() != thread_) {
            settled_.wait(lock, [&] { return running_ != &entry; });
        }
    }

private:
    Bell() {
        Thread thread([this] { serve(); });
        thread_ = thread.id(); // read only by those who found this object, after this
        thread.detach();
    }

    void serve() noexcept {
        setThreadName("platform-alarm");
        std::unique_lock lock(mutex_);
        for (;;) {
            if (entries_.empty()) {
                changed_.wait(lock);
                continue;
            }
            const Clock::time_point next = entries_.begin()->first;
            if (next > Clock::now()) {
                changed_.wait_until(lock, next);
                continue;
            }
            std::shared_ptr<Entry> entry = std::move(entries_.begin()->second);
            entries_.erase(entries_.begin());
            entry->isWaiting = false;
            running_ = entry.get();
            lock.unlock();
            entry->function();
            lock.lock();
            running_ = nullptr;
            settled_.notify_all();
            lock.unlock();
            entry = nullptr; // with what the function keeps
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::condition_variable settled_;
    std::multimap<Clock::time_point, std::shared_ptr<Entry>> entries_;
    const Entry* running_ = nullptr;
    Thread::Id thread_;
};

Alarm::Alarm(std::chrono::milliseconds time, std::function<void()> function)
    : entry_(std::make_shared<Entry>()) {
    entry_->function = std::move(function);
    constexpr std::chrono::hours never(24 * 365 * 100); // more does not fit into every clock
    Bell::shared().add(Clock::now() + std::min<std::chrono::milliseconds>(time, never), entry_);
}

Alarm& Alarm::operator=(Alarm&& other) noexcept {
    const Alarm old = std::move(*this);
    entry_ = std::move(other.entry_);
    return *this;
}

Alarm::~Alarm() {
    if (entry_) Bell::shared().remove(*entry_);
}

void Alarm::detach() noexcept {
    entry_ = nullptr;
}

} // namespace Platform::detail
