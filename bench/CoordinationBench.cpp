#include <Platform/Platform.h>

#include "BareCoroutine.h"
#include "Comparison.h"
#include "Memory.h"
#include "Pool.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <coroutine>
#include <cstddef>
#include <deque>
#include <latch>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace Bench {

namespace {

using namespace Platform;
using std::chrono::nanoseconds;

using Channel = AsyncChannel<int>;

Task<> sendAll(Channel& channel, int count) {
    for (int i = 0; i < count; ++i) co_await channel.send(i);
}

Task<> receiveAll(Channel& channel, int count) {
    for (int i = 0; i < count; ++i) benchmark::DoNotOptimize(co_await channel.receive());
}

/// So many pairs of tasks, each with a channel of its own; the time from first start to last end.
/// The heap in use is looked at when every receiver waits.
Seconds runPairs(std::size_t pairs, int items, double* bytes = nullptr) {
    Seconds time{};
    runDetached([&]() -> Task<> {
        std::vector<TaskHandle<>> tasks(2 * pairs);
        const double before = heapInUse();
        std::vector<Channel> channels(pairs);
        const auto start = std::chrono::steady_clock::now();
        for (std::size_t i = 0; i < pairs; ++i) {
            tasks[i] = detached([&, i] { return receiveAll(channels[i], items); });
        }
        for (std::size_t i = 0; i < pairs; ++i) {
            tasks[pairs + i] = detached([&, i] { return sendAll(channels[i], items); });
        }
        if (bytes) *bytes = (heapInUse() - before) / static_cast<double>(pairs);
        for (auto& task : tasks) co_await task;
        time = std::chrono::steady_clock::now() - start;
    });
    return time;
}

/// The same by hand: one coroutine puts a value down, the other takes it.
BareCoroutine bareSide(int& place, int count, bool sends) {
    for (int i = 0; i < count; ++i) {
        if (sends) {
            place = i;
        } else {
            benchmark::DoNotOptimize(place);
        }
        co_await std::suspend_always{};
    }
    co_return 0;
}

void runBarePairs(std::size_t pairs, int items, double* bytes = nullptr) {
    const double before = heapInUse();
    std::vector<int> places(pairs);
    std::vector<BareCoroutine> sides;
    sides.reserve(2 * pairs);
    for (int& place : places) {
        sides.push_back(bareSide(place, items, true));
        sides.push_back(bareSide(place, items, false));
    }
    if (bytes) *bytes = (heapInUse() - before) / static_cast<double>(pairs);
    for (int i = 0; i <= items; ++i) {
        for (const BareCoroutine& side : sides) side.handle.resume();
    }
    for (const BareCoroutine& side : sides) side.handle.destroy();
}

/// Two threads that hand values over, as the shortest thing that works across threads.
void runThreadPair(int items) {
    std::mutex mutex;
    std::condition_variable changed;
    std::optional<int> place;
    std::thread taker([&] {
        for (int i = 0; i < items; ++i) {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return place.has_value(); });
            place.reset();
            changed.notify_one();
        }
    });
    for (int i = 0; i < items; ++i) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return !place.has_value(); });
        place = i;
        changed.notify_one();
    }
    taker.join();
}

void rendezvousOnOne(benchmark::State& state) {
    constexpr int items = 5'000;
    const Workers workers(1);
    compareTimes(
        state, items, [] { return runPairs(1, items); }, wholly([] { runBarePairs(1, items); }));
    aimAt(state, nanoseconds(60));
}
BENCHMARK(rendezvousOnOne)->Name("rendezvous, one worker")->UseManualTime();

void rendezvousOnTwo(benchmark::State& state) {
    constexpr int items = 5'000;
    const Workers workers(2);
    compareTimes(
        state, items, [] { return runPairs(1, items); }, wholly([] { runThreadPair(items); }));
    aimAt(state, nanoseconds(100));
}
BENCHMARK(rendezvousOnTwo)->Name("rendezvous, two workers beside two threads")->UseManualTime();

void rendezvousOfPairs(benchmark::State& state) {
    const auto pairs = static_cast<std::size_t>(state.range(0));
    constexpr int items = 100;
    const Workers workers(1);
    double ours = 0;
    double bare = 0;
    compareTimes(
        state, state.range(0) * items, [&] { return runPairs(pairs, items, &ours); },
        wholly([&] { runBarePairs(pairs, items, &bare); }));
    noteBytes(state, ours, bare);
    aimAt(state, nanoseconds(60));
}
BENCHMARK(rendezvousOfPairs)
    ->Name("rendezvous, so many pairs at once")
    ->UseManualTime()
    ->ArgsProduct({{100, 1'000, 10'000}});

void contendedLock(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    constexpr std::size_t turns = 12'800;
    const Workers workers(2);
    std::size_t total = 0;
    const auto ours = [&] {
        runDetached([&]() -> Task<> {
            AsyncLock lock;
            std::vector<TaskHandle<>> tasks(count);
            for (auto& task : tasks) {
                task = detached([&]() -> Task<> {
                    for (std::size_t i = 0; i < turns / count; ++i) {
                        co_await lock.lock();
                        benchmark::DoNotOptimize(++total);
                        lock.unlock();
                    }
                });
            }
            for (auto& task : tasks) co_await task;
        });
    };
    const auto bare = [&] {
        std::mutex mutex;
        std::vector<std::thread> threads(count);
        for (auto& thread : threads) {
            thread = std::thread([&] {
                for (std::size_t i = 0; i < turns / count; ++i) {
                    const std::lock_guard guard(mutex);
                    benchmark::DoNotOptimize(++total);
                }
            });
        }
        for (auto& thread : threads) thread.join();
    };
    compareTimes(state, turns, wholly(ours), wholly(bare));
}
BENCHMARK(contendedLock)
    ->Name("lock, so many tasks beside threads")
    ->UseManualTime()
    ->ArgsProduct({{2, 8, 64}});

BareCoroutine bareWaits(int count) {
    for (int i = 0; i < count; ++i) co_await std::suspend_always{};
    co_return 0;
}

void broadcast(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const int times = static_cast<int>(std::max<std::size_t>(10'000 / count, 10));
    const Workers workers(1);
    // The last to wait again wakes the broadcaster, which cannot miss it on one worker.
    const auto ours = [&] {
        runDetached([&]() -> Task<> {
            AsyncCond condition;
            AsyncCond allWait;
            std::size_t waiting = 0;
            std::vector<TaskHandle<>> tasks(count);
            for (auto& task : tasks) {
                task = detached([&]() -> Task<> {
                    for (int i = 0; i < times; ++i) {
                        if (++waiting == count) allWait.broadcast();
                        co_await condition.wait();
                    }
                });
            }
            for (int i = 0; i < times; ++i) {
                co_await allWait.wait();
                waiting = 0;
                condition.broadcast();
            }
            for (auto& task : tasks) co_await task;
        });
    };
    const auto bare = [&] {
        std::vector<BareCoroutine> coroutines(count);
        for (auto& coroutine : coroutines) (coroutine = bareWaits(times)).handle.resume();
        for (int i = 0; i < times; ++i) {
            for (const auto& coroutine : coroutines) coroutine.handle.resume();
        }
        for (const auto& coroutine : coroutines) coroutine.handle.destroy();
    };
    compareTimes(state, static_cast<std::int64_t>(count) * times, wholly(ours), wholly(bare));
}
BENCHMARK(broadcast)
    ->Name("broadcast, so many waiters")
    ->UseManualTime()
    ->ArgsProduct({{1, 100, 10'000}});

BareCoroutine bareNothing() {
    co_return 0;
}

Task<> nothing() {
    co_return;
}

void queueOfTasks(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto ours = [count] {
        runDetached([count]() -> Task<> {
            AsyncQueue queue(8);
            for (std::size_t i = 0; i < count; ++i) queue.addTask(nothing);
            auto wait = queue.waitUntilAllTasksAreFinished();
            co_await wait;
        });
    };
    const auto bare = [count] {
        std::deque<BareCoroutine> ready;
        for (std::size_t i = 0; i < count; ++i) ready.push_back(bareNothing());
        for (; !ready.empty(); ready.pop_front()) {
            ready.front().handle.resume();
            ready.front().handle.destroy();
        }
    };
    compareTimes(state, state.range(0), wholly(ours), wholly(bare));
    aimAt(state, nanoseconds(250));
}
BENCHMARK(queueOfTasks)
    ->Name("queue of 8 slots, so many tasks")
    ->UseManualTime()
    ->ArgsProduct({{2'000, 20'000, 200'000}});

/// Nothing runs before everything is queued.
void pendingTasks(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    double oursBytes = 0;
    double bareBytes = 0;
    const auto ours = [&] {
        AsyncQueue queue(1);
        AsyncCond gate;
        std::latch closed(1);
        queue.addTask([&]() -> Task<> {
            closed.count_down();
            co_await gate.wait();
        });
        closed.wait();
        const double before = heapInUse();
        const Seconds adding = timed([&] {
            for (std::size_t i = 0; i < count; ++i) queue.addTask(nothing);
        });
        oursBytes = (heapInUse() - before) / static_cast<double>(count);
        return adding + timed([&] {
                   queue.cancelAllTasks();
                   runMain(queue.waitUntilAllTasksAreFinished());
               });
    };
    const auto bare = [&] {
        const double before = heapInUse();
        std::deque<BareCoroutine> pending;
        for (std::size_t i = 0; i < count; ++i) pending.push_back(bareNothing());
        bareBytes = (heapInUse() - before) / static_cast<double>(count);
        for (const BareCoroutine& coroutine : pending) coroutine.handle.destroy();
    };
    compareTimes(state, state.range(0), ours, wholly(bare));
    noteBytes(state, oursBytes, bareBytes);
}
BENCHMARK(pendingTasks)
    ->Name("pending task added and cancelled, so many")
    ->UseManualTime()
    ->ArgsProduct({{10'000, 100'000, 1'000'000}});

} // namespace

} // namespace Bench
