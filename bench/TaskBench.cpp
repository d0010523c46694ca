#include <Platform/Platform.h>

#include "BareCoroutine.h"
#include "Comparison.h"
#include "Memory.h"
#include "Pool.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <latch>
#include <optional>
#include <utility>
#include <vector>

namespace Bench {

namespace {

using namespace Platform;

Task<int> number(int value) {
    co_return value;
}

BareCoroutine bareNumber(int value) {
    co_return value;
}

void synchronousAwaits(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    const auto ours = [count] {
        runMain([](int limit) -> Task<> {
            for (int i = 0; i < limit; ++i) {
                auto task = number(i);
                benchmark::DoNotOptimize(co_await task);
            }
        }(count));
    };
    const auto bare = [count] {
        for (int i = 0; i < count; ++i) {
            const BareCoroutine coroutine = bareNumber(i);
            coroutine.handle.resume();
            benchmark::DoNotOptimize(coroutine.handle.promise().value);
            coroutine.handle.destroy();
        }
    };
    compareTimes(state, count, wholly(ours), wholly(bare));
}
BENCHMARK(synchronousAwaits)->Name("synchronous await, in a row")->UseManualTime()->Arg(1'000'000);

/// Suspends the task, with nothing but a note of it left.
struct Park : detail::Awaitable {
    explicit Park(detail::TaskContext*& note) noexcept : parked(note) {}

    bool await_ready() const noexcept { return false; }
    template <class Promise>
    void await_suspend(std::coroutine_handle<Promise> awaiting) const noexcept {
        detail::TaskContext& task = awaiting.promise().context();
        task.suspendAt(awaiting);
        if (detail::TaskContext* const other = std::exchange(parked, &task)) other->schedule();
    }
    void await_resume() const noexcept {}

    detail::TaskContext*& parked;
};

// Two tasks, each of which wakes the other and suspends; the first to
// end wakes the other once more.

Task<> hopByContinuation(std::optional<CheckedContinuation<>>& waiting, int hops) {
    for (int i = 0; i < hops; ++i) {
        co_await withCheckedContinuation("hop", [&waiting](CheckedContinuation<> own) {
            const auto other = std::exchange(waiting, std::move(own));
            if (other) other->resume();
        });
    }
    if (const auto other = std::exchange(waiting, std::nullopt)) other->resume();
}

Task<> hopByPark(detail::TaskContext*& waiting, int hops) {
    for (int i = 0; i < hops; ++i) {
        Park park(waiting);
        co_await park;
    }
    if (detail::TaskContext* const other = std::exchange(waiting, nullptr)) other->schedule();
}

BareCoroutine bareHop(int hops) {
    for (int i = 0; i < hops; ++i) co_await std::suspend_always{};
    co_return 0;
}

// So few that most rounds are spared an interruption by another process.
constexpr int hopsOfEach = 2'500;

template <class Waiting>
void hop(benchmark::State& state, Task<> (*hopper)(Waiting&, int)) {
    const Workers worker(1);
    const auto ours = [hopper] {
        Seconds time{};
        runDetached([&time, hopper]() -> Task<> {
            const auto start = std::chrono::steady_clock::now();
            Waiting waiting{};
            const auto begin = [&waiting, hopper] { return hopper(waiting, hopsOfEach); };
            auto one = detached(begin);
            auto other = detached(begin);
            co_await one;
            co_await other;
            time = std::chrono::steady_clock::now() - start;
        });
        return time;
    };
    const auto bare = [] {
        const BareCoroutine one = bareHop(hopsOfEach);
        const BareCoroutine other = bareHop(hopsOfEach);
        while (!other.handle.done()) {
            one.handle.resume();
            other.handle.resume();
        }
        one.handle.destroy();
        other.handle.destroy();
    };
    compareTimes(state, 2 * hopsOfEach, ours, wholly(bare));
    aimAt(state, std::chrono::nanoseconds(100));
}
BENCHMARK_CAPTURE(hop, continuation, &hopByContinuation)
    ->Name("hop between two tasks, by continuation")
    ->UseManualTime();
BENCHMARK_CAPTURE(hop, park, &hopByPark)
    ->Name("hop between two tasks, the runtime's own wait")
    ->UseManualTime();

Task<> nothing() {
    co_return;
}

/// Starts and ends bare coroutines through a queue, `batch` of them at a time.
void runBare(std::size_t count, std::size_t batch) {
    std::deque<BareCoroutine> ready;
    for (std::size_t done = 0; done < count; done += batch) {
        for (std::size_t i = 0; i < batch; ++i) ready.push_back(bareNumber(0));
        while (!ready.empty()) {
            ready.front().handle.resume();
            ready.front().handle.destroy();
            ready.pop_front();
        }
    }
}

void detachedInTurn(benchmark::State& state) {
    constexpr std::size_t count = 10'000;
    const auto ours = [] {
        runDetached([]() -> Task<> {
            for (std::size_t i = 0; i < count; ++i) {
                auto handle = detached(nothing);
                co_await handle;
            }
        });
    };
    compareTimes(state, count, wholly(ours), wholly([] { runBare(count, 1); }));
}
BENCHMARK(detachedInTurn)->Name("detached task, one at a time")->UseManualTime();

void detachedAtOnce(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto ours = [count] {
        runDetached([count]() -> Task<> {
            std::vector<TaskHandle<>> handles(count);
            for (auto& handle : handles) handle = detached(nothing);
            for (auto& handle : handles) co_await handle;
        });
    };
    compareTimes(state, state.range(0), wholly(ours), wholly([count] { runBare(count, count); }));
}
BENCHMARK(detachedAtOnce)
    ->Name("detached task, so many at once")
    ->UseManualTime()
    ->ArgsProduct({{1'000, 100'000, 1'000'000}});

// Tasks that all wait at the same time: the time from their start to their end, and the memory that
// they take meanwhile, the places where they are noted not counted.

BareCoroutine bareWait() {
    co_await std::suspend_always{};
    co_return 0;
}

void suspendedAtOnce(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<TaskHandle<>> handles(count);
    std::vector<std::optional<CheckedContinuation<>>> continuations(count);
    std::vector<BareCoroutine> coroutines(count);
    double oursBytes = 0;
    double bareBytes = 0;
    const auto ours = [&] {
        const double before = heapInUse();
        std::latch allWait(state.range(0));
        const Seconds starting = timed([&] {
            for (std::size_t i = 0; i < count; ++i) {
                handles[i] = detached([&own = continuations[i], &allWait]() -> Task<> {
                    co_await withCheckedContinuation("wait", [&](CheckedContinuation<> given) {
                        own.emplace(std::move(given));
                        allWait.count_down();
                    });
                });
            }
            allWait.wait();
        });
        oursBytes = heapInUse() - before;
        return starting + timed([&] {
                   for (auto& continuation : continuations) {
                       continuation->resume();
                       continuation.reset();
                   }
                   runMain([](auto& all) -> Task<> {
                       for (auto& handle : all) {
                           co_await handle;
                           handle = {};
                       }
                   }(handles));
               });
    };
    const auto bare = [&] {
        const double before = heapInUse();
        const Seconds starting = timed([&] {
            for (auto& coroutine : coroutines) (coroutine = bareWait()).handle.resume();
        });
        bareBytes = heapInUse() - before;
        return starting + timed([&] {
                   for (auto& coroutine : coroutines) {
                       coroutine.handle.resume();
                       coroutine.handle.destroy();
                   }
               });
    };
    compareTimes(state, state.range(0), ours, bare);
    const auto tasks = static_cast<double>(count);
    noteBytes(state, oursBytes / tasks, bareBytes / tasks);
}
BENCHMARK(suspendedAtOnce)
    ->Name("task suspended, so many at once")
    ->UseManualTime()
    ->ArgsProduct({{1'000, 100'000, 1'000'000}});

} // namespace

} // namespace Bench
