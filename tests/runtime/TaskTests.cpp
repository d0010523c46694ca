#include <support/Commands.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

template <class T>
Task<T> value(T given) {
    co_return given;
}

Task<int> failing(std::string text) {
    co_await Yield();
    throw std::runtime_error(text);
}

/// The text of the error that a task of the seeded executor ends with; empty without one.
template <class T>
std::string errorOf(SeededExecutor& executor, TaskHandle<T>& task) {
    std::string error;
    const auto check = detached([&]() -> Task<void> {
        try {
            co_await task;
        } catch (const std::exception& thrown) {
            error = thrown.what();
        }
    });
    executor.runUntilIdle();
    EXPECT_TRUE(check.hasEnded());
    return error;
}

/// How far apart the stack was at the calls of `note`.
class StackDepth {
public:
    void note() {
        const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        lowest_ = std::min(lowest_, here);
        highest_ = std::max(highest_, here);
    }
    std::uintptr_t extent() const { return highest_ - lowest_; }

private:
    std::uintptr_t lowest_ = UINTPTR_MAX;
    std::uintptr_t highest_ = 0;
};

TEST(Task, GivesItsValueOrThrowsItsError) {
    EXPECT_EQ(runMain(value(7)), 7);
    EXPECT_EQ(*runMain(value(std::make_unique<int>(8))), 8);
    runMain([]() -> Task<void> { co_return; }());
    EXPECT_THROW(runMain(failing("x")), std::runtime_error);
    EXPECT_THROW(runMain(Task<int>()), std::logic_error);
    runMain([]() -> Task<void> {
        Task<int> empty;
        EXPECT_THROW(co_await empty, std::logic_error);
        auto twice = value(1);
        co_await twice;
        EXPECT_THROW(co_await twice, std::logic_error);
    }());
}

TEST(Task, AwaitsNeedNoStack) {
    StackDepth depth;
    constexpr int count = 1'000'000;
    const auto one = [](StackDepth& noted) -> Task<int> {
        noted.note();
        co_return 1;
    };
    const auto inARow = [&one](StackDepth& noted) -> Task<int> {
        int sum = 0;
        for (int i = 0; i < count; ++i) sum += co_await one(noted);
        co_return sum;
    };
    EXPECT_EQ(runMain(inARow(depth)), count);

    struct Nested {
        static Task<int> run(StackDepth& noted, int level) {
            noted.note();
            if (level == 0) co_return 0;
            auto inner = run(noted, level - 1);
            const int below = co_await inner;
            noted.note();
            co_return below + 1;
        }
    };
    EXPECT_EQ(runMain(Nested::run(depth, count)), count);
    EXPECT_LT(depth.extent(), 4096u);
}

TEST(Task, AMillionAtOnce) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr int count = 200'000;
#else
    constexpr int count = 1'000'000;
#endif
    std::vector<CheckedContinuation<int>> parked;
    parked.reserve(count);
    std::mutex mutex;
    std::latch allParked(count);
    std::vector<TaskHandle<int>> handles;
    for (int i = 0; i < count; ++i) {
        handles.push_back(detached([&]() -> Task<int> {
            auto wait = withCheckedContinuation<int>([&](const CheckedContinuation<int>& it) {
                {
                    const std::lock_guard guard(mutex);
                    parked.push_back(it);
                }
                allParked.count_down();
            });
            co_return co_await wait;
        }));
    }
    allParked.wait();
    for (auto& continuation : parked) continuation.resume(2);
    for (auto& handle : handles) ASSERT_EQ(result(std::move(handle)), 2);
}

TEST(Task, DestroysEverythingOnceAndInTime) {
    const auto token = std::make_shared<int>(0);
    const std::weak_ptr<int> alive = token;
    const auto use = [](std::shared_ptr<int> kept, int) -> Task<long> {
        co_return kept.use_count();
    };
    runMain([](decltype(use)& call, std::shared_ptr<int> held) -> Task<void> {
        const long before = held.use_count();
        EXPECT_GT(co_await call(held, co_await value(1)), before);
        EXPECT_EQ(held.use_count(), before);
        {
            auto wait = withCheckedContinuation([held](CheckedContinuation<> it) { it.resume(); });
            co_await wait;
        }
        EXPECT_EQ(held.use_count(), before);
        // The callable and the frame of a detached task are gone when its result is there.
        auto handle = detached([held]() -> Task<std::shared_ptr<int>> { co_return held; });
        auto result = co_await handle;
        EXPECT_EQ(result.use_count(), before + 1);
        EXPECT_THROW(co_await handle, std::logic_error);
        {
            auto neverAwaited = call(held, 1);
        }
        EXPECT_EQ(held.use_count(), before + 1);
    }(use, token));
    EXPECT_EQ(token.use_count(), 1);
}

TEST(Detached, InheritsNothingAndCanBeCancelled) {
    SeededExecutor executor(1);
    bool cancelledInside = false;
    TaskPriority priority{};
    auto outer = detached(TaskPriority::background, [&]() -> Task<void> {
        auto inner = detached(TaskPriority::high, [&]() -> Task<void> {
            priority = currentTaskPriority();
            cancelledInside = isTaskCancelled();
            EXPECT_NO_THROW(checkCancellation());
            co_return;
        });
        EXPECT_TRUE(isTaskCancelled());
        EXPECT_THROW(checkCancellation(), CancellationError);
        auto failed = detached([]() -> Task<int> { throw std::runtime_error("not a coroutine"); });
        EXPECT_THROW(co_await failed, std::runtime_error);
        co_await inner;
    });
    outer.cancel();
    outer.cancel();
    EXPECT_TRUE(outer.isCancelled());
    EXPECT_FALSE(isTaskCancelled());
    executor.runUntilIdle();
    EXPECT_TRUE(outer.hasEnded());
    EXPECT_EQ(priority, TaskPriority::high);
    EXPECT_FALSE(cancelledInside);
}

TEST(Cancellation, HandlersRunOnceAfterTheFlagInnermostFirst) {
    SeededExecutor executor(1);
    std::string order;
    TaskHandle<void> self;
    self = detached([&]() -> Task<void> {
        auto scoped = withTaskCancellationHandler(
            [&]() -> Task<void> {
                auto inner = withTaskCancellationHandler(
                    [&]() -> Task<void> {
                        co_await withTaskCancellationHandler([]() -> Task<void> { co_return; },
                                                             [&] { order += "left "; });
                        self.cancel();
                        order += "body ";
                    },
                    [&] { order += isTaskCancelled() ? "inner " : "early "; });
                co_await inner;
            },
            [&] { order += "outer "; });
        co_await scoped;
        auto late = withTaskCancellationHandler([]() -> Task<void> { co_return; },
                                                [&] { order += "late"; });
        co_await late;
    });
    executor.runUntilIdle();
    EXPECT_EQ(order, "inner outer body late");
}

// A handler that has not run when its scope is left never runs; one that runs is waited for.
TEST(Cancellation, RacesWithLeavingItsScope) {
    std::atomic<int> ran = 0;
    for (int round = 0; round < rounds(10'000, 500'000); ++round) {
        std::latch started(2);
        auto handle = detached([&]() -> Task<void> {
            const auto owned = std::make_unique<std::atomic<bool>>(false);
            auto scope = withTaskCancellationHandler(
                [&]() -> Task<void> {
                    started.arrive_and_wait();
                    co_return;
                },
                [&] {
                    EXPECT_TRUE(owned) << "after the scope";
                    EXPECT_FALSE(owned->exchange(true));
                    ++ran;
                });
            co_await scope;
            const int seen = ran;
            EXPECT_EQ(owned->load() ? 1 : 0, seen);
            EXPECT_TRUE(seen == 0 || isTaskCancelled());
        });
        started.arrive_and_wait();
        handle.cancel();
        result(std::move(handle));
        ran = 0;
    }
}

// Random children that yield, fail, are cancelled and add more: all end before the group's scope
// does, and each is told of once.
TEST(TaskGroup, EndsAllChildrenOnEveryWayOut) {
    for (int seed = 0; seed < rounds(3'000, 300'000); ++seed) {
        SeededExecutor executor(static_cast<std::uint64_t>(seed));
        int running = 0;
        std::multiset<int> given;
        const int count = static_cast<int>(executor.choose(6));
        const int failingChild = static_cast<int>(executor.choose(8));
        const bool bodyFails = executor.choose(4) == 0;
        const int asked = static_cast<int>(executor.choose(7));
        auto parent = detached([&]() -> Task<int> {
            co_return co_await withTaskGroup<int>([&](TaskGroup<int>& group) -> Task<int> {
                for (int i = 0; i < count; ++i) {
                    group.addTask([&, i]() -> Task<int> {
                        ++running;
                        for (std::size_t n = executor.choose(4); n > 0 && !isTaskCancelled(); --n) {
                            co_await Yield();
                        }
                        --running;
                        if (i == failingChild) throw std::runtime_error("child");
                        co_return i;
                    });
                }
                if (bodyFails) throw std::logic_error("body");
                for (int i = 0; i < asked; ++i) {
                    auto child = group.next();
                    const auto next = co_await child;
                    if (!next) {
                        EXPECT_EQ(given.size(), static_cast<std::size_t>(count));
                        break;
                    }
                    given.insert(*next);
                }
                co_return count;
            });
        });
        const bool cancels = executor.choose(3) == 0;
        auto canceller = detached([&]() -> Task<void> {
            for (std::size_t n = executor.choose(8); n > 0; --n) co_await Yield();
            if (cancels) parent.cancel();
        });
        executor.runUntilIdle();
        ASSERT_TRUE(parent.hasEnded() && canceller.hasEnded()) << "seed " << seed;
        ASSERT_EQ(running, 0) << "seed " << seed;
        ASSERT_EQ(std::set(given.begin(), given.end()).size(), given.size()) << "seed " << seed;
        const std::string error = errorOf(executor, parent);
        const std::string childError = failingChild < count && asked > 0 ? "child" : "";
        if (bodyFails) {
            ASSERT_EQ(error, "body") << "seed " << seed;
        } else {
            ASSERT_TRUE(error.empty() || error == childError) << "seed " << seed;
        }
    }
}

TEST(TaskGroup, WaitForAllThrowsTheFirstErrorAfterAllHaveEnded) {
    SeededExecutor executor(3);
    int ended = 0;
    auto parent = detached([&]() -> Task<void> {
        co_await withTaskGroup([&](TaskGroup<>& group) -> Task<void> {
            for (int i = 0; i < 5; ++i) {
                group.addTask([&]() -> Task<void> {
                    co_await Yield();
                    ++ended;
                    throw std::runtime_error("child " + std::to_string(ended));
                });
            }
            auto all = group.waitForAll();
            co_await all;
        });
    });
    EXPECT_EQ(errorOf(executor, parent), "child 1");
    EXPECT_EQ(ended, 5);
}

} // namespace
} // namespace Platform
