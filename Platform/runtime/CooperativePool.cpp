#include <Platform/runtime/CooperativePool.h>

#include <Platform/base/detail/CacheLine.h>
#include <Platform/runtime/detail/DefaultExecutor.h>
#include <Platform/runtime/detail/Poller.h>
#include <Platform/runtime/detail/ReadyQueue.h>
#include <Platform/runtime/detail/Threads.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace Platform {

using detail::Poller;
using detail::ReadyQueue;
using detail::TaskContext;

namespace {

/// How many times in a row a worker prefers its slot to tasks that wait in queues.
constexpr unsigned slotBudget = 64;
/// Every so many tasks a worker looks at the shared queue first.
constexpr unsigned sharedQueueInterval = 61;
/// How many tasks a worker takes over from another at most.
constexpr unsigned stealLimit = 64;
/// How long a slot may lie before an idle worker takes it over.
constexpr std::chrono::milliseconds slotPatience{2};

/// A ready queue that several threads use. Whether it is empty can be seen without the lock.
class SharedQueue {
public:
    int topLevel() const noexcept { return topLevel_.load(std::memory_order_seq_cst); }
    bool empty() const noexcept { return topLevel() < 0; }

    void push(TaskContext& task) noexcept {
        const std::lock_guard guard(mutex_);
        queue_.push(task);
        note();
    }

    TaskContext* pop() noexcept {
        if (empty()) return nullptr;
        const std::lock_guard guard(mutex_);
        TaskContext* const task = queue_.pop();
        note();
        return task;
    }

    /// Takes about half, `stealLimit` at most: the first is returned, the others go to `target`.
    TaskContext* popHalf(SharedQueue& target) noexcept {
        if (empty()) return nullptr;
        ReadyQueue taken;
        {
            const std::lock_guard guard(mutex_);
            const std::size_t wanted = std::min<std::size_t>(stealLimit, (queue_.size() + 1) / 2);
            for (std::size_t i = 0; i < wanted; ++i) taken.push(*queue_.pop());
            note();
        }
        TaskContext* const first = taken.pop();
        if (!taken.empty()) {
            const std::lock_guard guard(target.mutex_);
            while (TaskContext* const task = taken.pop()) target.queue_.push(*task);
            target.note();
        }
        return first;
    }

private:
    void note() noexcept {
        const int level = queue_.topLevel();
        if (level != topLevel_.load(std::memory_order_relaxed)) topLevel_ = level;
    }

    std::mutex mutex_;
    ReadyQueue queue_;
    std::atomic<int> topLevel_{-1};
};

} // namespace

class alignas(detail::cacheLine) CooperativePool::Worker {
public:
    explicit Worker(State& owner) noexcept : pool(owner) {}

    State& pool;
    std::atomic<TaskContext*> slot{nullptr}; ///< Filled by its own thread, emptied by any.
    SharedQueue queue;
    std::atomic<std::uint32_t> taskCount{0}; ///< Written by its own thread only.
    unsigned slotRun = 0;
    bool isIdle = false; ///< Runs no task: what comes to the slot is next.

    // Parking; under the pool's mutex.
    std::condition_variable wake;
    bool signalled = false;
    bool isSeated = false;           ///< Waits for the system's events instead.
    std::uint32_t seenTaskCount = 0; ///< By whoever watches the slots, under the pool's mutex.

    detail::Thread thread;

    static thread_local constinit Worker* current;

    TaskContext* takeSlot() noexcept {
        if (!slot.load(std::memory_order_relaxed)) return nullptr;
        return slot.exchange(nullptr, std::memory_order_acq_rel);
    }
    /// On its own thread. Returns what lay there.
    TaskContext* fillSlot(TaskContext& task) noexcept {
        TaskContext* const displaced = takeSlot();
        slot.store(&task, std::memory_order_release);
        return displaced;
    }
};

thread_local constinit CooperativePool::Worker* CooperativePool::Worker::current = nullptr;

/// Workers search for tasks when they have none of their own; when they find none they park. Nobody
/// who adds a task and sees a searching worker needs to wake another: a search that ends without
/// success looks at all queues once more after it has said so. One of the parked has the poller's
/// seat, and is the last to be woken for a task.
struct CooperativePool::State {
    std::vector<std::unique_ptr<Worker>> workers;
    SharedQueue shared;
    std::atomic<std::size_t> searching{0};
    std::atomic<std::size_t> parkedCount{0};
    std::atomic<bool> watched{false}; ///< A parked worker looks after the slots.
    /// Calls from outside that add a task: that task may be the last, and its end the pool's.
    std::atomic<std::size_t> guests{0};

    std::mutex mutex;
    std::vector<Worker*> parked;
    bool ending = false;

    void run(Worker& self);
    TaskContext* next(Worker& self) noexcept;
    TaskContext* search(Worker& self) noexcept;
    TaskContext* steal(Worker& self) noexcept;
    TaskContext* takeStaleSlot(Worker& self) noexcept;
    bool park(Worker& self);
    void wakeOne() noexcept;
    bool workIsQueued() const noexcept;
    void haveSlotsWatched() noexcept {
        if (!watched.load(std::memory_order_relaxed)) wakeOne();
    }
    void end();
};

TaskContext* CooperativePool::State::next(Worker& self) noexcept {
    const std::uint32_t count = self.taskCount.load(std::memory_order_relaxed) + 1;
    self.taskCount.store(count, std::memory_order_relaxed);
    if (count % sharedQueueInterval == 0) {
        if (TaskContext* const task = shared.pop()) {
            if (self.slot.load(std::memory_order_relaxed)) haveSlotsWatched();
            return task;
        }
    }
    const int queued = std::max(self.queue.topLevel(), shared.topLevel());
    if (TaskContext* const task = self.takeSlot()) {
        const bool mayRun =
            queued < 0 || (ReadyQueue::levelOf(*task) >= queued && self.slotRun < slotBudget);
        if (mayRun) {
            ++self.slotRun;
            return task;
        }
        self.queue.push(*task);
    }
    self.slotRun = 0;
    if (shared.topLevel() > self.queue.topLevel()) {
        if (TaskContext* const task = shared.popHalf(self.queue)) return task;
    }
    if (TaskContext* const task = self.queue.pop()) return task;
    return shared.popHalf(self.queue);
}

TaskContext* CooperativePool::State::steal(Worker& self) noexcept {
    for (const auto& other : workers) {
        if (other.get() == &self) continue;
        if (TaskContext* const task = other->queue.popHalf(self.queue)) return task;
    }
    return nullptr;
}

TaskContext* CooperativePool::State::search(Worker& self) noexcept {
    ++searching;
    TaskContext* task = shared.popHalf(self.queue);
    if (!task) task = steal(self);
    const bool lastSearcher = searching.fetch_sub(1) == 1;
    if (task && lastSearcher && workIsQueued()) wakeOne();
    return task;
}

bool CooperativePool::State::workIsQueued() const noexcept {
    return !shared.empty() || std::any_of(workers.begin(), workers.end(), [](const auto& worker) {
        return !worker->queue.empty();
    });
}

/// A task that has lain in the slot of a busy worker since the last look. Called with the mutex
/// held.
TaskContext* CooperativePool::State::takeStaleSlot(Worker& self) noexcept {
    for (const auto& other : workers) {
        const std::uint32_t count = other->taskCount.load(std::memory_order_relaxed);
        const bool stale = std::exchange(other->seenTaskCount, count) == count;
        if (other.get() == &self || !stale) continue;
        if (TaskContext* const task = other->takeSlot()) return task;
    }
    return nullptr;
}

/// Waits until there may be work. False: the pool ends.
bool CooperativePool::State::park(Worker& self) {
    std::unique_lock lock(mutex);
    if (ending) return false;
    self.isIdle = true;
    parked.push_back(&self);
    parkedCount = parked.size();
    self.signalled = workIsQueued();
    Poller* left = nullptr;
    while (!left && !self.signalled && !ending) {
        // One of the parked looks after the slots of those that work; with none at work all sleep.
        if (parked.size() < workers.size() && !watched) {
            watched = true;
            self.wake.wait_for(lock, slotPatience);
            watched = false;
            if (self.signalled || ending) break;
            if (TaskContext* const task = takeStaleSlot(self)) {
                self.slot = task;
                break;
            }
        } else if (Poller* const poller = Poller::ifUsed(); poller && poller->takeSeat()) {
            // Whoever waits for the system's events is at once where they lead to.
            self.isSeated = true;
            lock.unlock();
            poller->waitSeated();
            lock.lock();
            self.isSeated = false;
            left = poller;
        } else {
            self.wake.wait(lock);
        }
    }
    std::erase(parked, &self);
    parkedCount = parked.size();
    if (left) {
        lock.unlock();
        left->leaveSeat(); // tasks come to the slot
        lock.lock();
    }
    self.signalled = false;
    self.isIdle = false;
    return !ending;
}

void CooperativePool::State::wakeOne() noexcept {
    if (searching != 0 || parkedCount == 0) return;
    std::unique_lock lock(mutex);
    if (parked.empty()) return;
    auto chosen = std::find_if(parked.rbegin(), parked.rend(),
                               [](const Worker* worker) { return !worker->isSeated; });
    if (chosen == parked.rend()) chosen = parked.rbegin();
    Worker& worker = **chosen;
    parked.erase(std::next(chosen).base());
    parkedCount = parked.size();
    worker.signalled = true;
    const bool isSeated = worker.isSeated;
    lock.unlock(); // which the worker takes first
    isSeated ? Poller::shared().ringBell() : worker.wake.notify_one();
}

void CooperativePool::State::run(Worker& self) {
    Worker::current = &self;
    detail::setThreadName("cooperative");
    constexpr int usual = detail::urgencyOf(TaskPriority::unspecified);
    int urgency = usual;
    const auto adopt = [&urgency](int wanted) noexcept {
        if (std::exchange(urgency, wanted) != wanted) detail::setThreadUrgency(wanted);
    };
    do {
        while (true) {
            TaskContext* task = next(self);
            if (!task) task = search(self);
            if (!task) break;
            adopt(ReadyQueue::levelOf(*task));
            task->run();
        }
        adopt(usual); // so that it is woken in time, whatever for
    } while (park(self));
}

void CooperativePool::State::end() {
    {
        const std::lock_guard guard(mutex);
        ending = true;
        for (const auto& worker : workers) {
            worker->isSeated ? Poller::shared().ringBell() : worker->wake.notify_one();
        }
    }
    for (const auto& worker : workers) {
        if (worker->thread.id()) worker->thread.join();
    }
    while (guests != 0) std::this_thread::yield(); // a few instructions of theirs
}

CooperativePool::CooperativePool(std::size_t workers) : state_(std::make_unique<State>()) {
    State& state = *state_;
    for (std::size_t i = 0; i < std::max<std::size_t>(workers, 1); ++i) {
        state.workers.push_back(std::make_unique<Worker>(state));
    }
    state.parked.reserve(state.workers.size());
    try {
        for (const auto& worker : state.workers) {
            worker->thread = detail::Thread([&state, &self = *worker] { state.run(self); });
        }
    } catch (...) {
        state.end();
        throw;
    }
}

CooperativePool::~CooperativePool() {
    state_->end();
}

CooperativePool& CooperativePool::shared() {
    static auto* const pool = new CooperativePool(std::thread::hardware_concurrency());
    return *pool;
}

void CooperativePool::enqueue(TaskContext& task) noexcept {
    State& state = *state_;
    Worker* const worker = Worker::current;
    if (!worker || &worker->pool != &state) {
        ++state.guests;
        state.shared.push(task);
        state.wakeOne();
        --state.guests;
        return;
    }
    if (TaskContext* const displaced = worker->fillSlot(task)) {
        worker->queue.push(*displaced);
        state.wakeOne();
    } else if (!worker->isIdle) {
        state.haveSlotsWatched();
    }
}

namespace detail {

namespace {
std::atomic<Executor*> chosenExecutor{nullptr};
}

Executor& defaultExecutor() {
    Executor* const chosen = chosenExecutor.load(std::memory_order_acquire);
    return chosen ? *chosen : CooperativePool::shared();
}

void setDefaultExecutor(Executor* executor) noexcept {
    chosenExecutor.store(executor, std::memory_order_release);
}

} // namespace detail

} // namespace Platform
