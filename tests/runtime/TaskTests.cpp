#include <support/Commands.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

template <class T>
Task<T> value(T given) {
    co_return given;
}

/// How far apart the stack was at the calls of `note`.
struct StackDepth {
    void note() {
        const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        lowest = std::min(lowest, here);
        highest = std::max(highest, here);
    }
    std::uintptr_t lowest = UINTPTR_MAX;
    std::uintptr_t highest = 0;
};

Task<int> nested(StackDepth& noted, int level) {
    noted.note();
    if (level == 0) co_return 0;
    auto inner = nested(noted, level - 1);
    const int below = co_await inner;
    noted.note();
    co_return below + 1;
}

TEST(Task, IsAwaitedOnce) {
    EXPECT_EQ(*runMain(value(std::make_unique<int>(8))), 8);
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
    EXPECT_EQ(runMain(nested(depth, count)), count);
    runMain([](StackDepth& noted) -> Task<void> {
        for (int i = 0; i < count; ++i) co_await nested(noted, 0);
    }(depth));
    EXPECT_LT(depth.highest - depth.lowest, 4096u);
}

TEST(Task, DestroysEverythingOnceAndInTime) {
    const auto token = std::make_shared<int>(0);
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
    const auto outer = detached(TaskPriority::background, []() -> Task<void> {
        EXPECT_THROW(checkCancellation(), CancellationError);
        auto inner = detached(TaskPriority::high, []() -> Task<void> {
            EXPECT_EQ(currentTaskPriority(), TaskPriority::high);
            EXPECT_NO_THROW(checkCancellation());
            co_return;
        });
        co_await inner;
        auto failed = detached([]() -> Task<int> { throw std::runtime_error("not a coroutine"); });
        EXPECT_THROW(co_await failed, std::runtime_error);
    });
    outer.cancel();
    outer.cancel();
    EXPECT_TRUE(outer.isCancelled());
    EXPECT_FALSE(isTaskCancelled());
    executor.runUntilIdle();
    EXPECT_TRUE(outer.hasEnded());
}

TEST(Cancellation, HandlersRunOnceAfterTheFlagInnermostFirst) {
    SeededExecutor executor(1);
    std::string order;
    TaskHandle<void> self;
    self = detached([&]() -> Task<void> {
        const auto nothing = []() -> Task<void> { co_return; };
        const auto body = [&]() -> Task<void> {
            co_await withTaskCancellationHandler(nothing, [&] { order += "left "; });
            self.cancel();
            order += "body ";
        };
        const auto note = [&] { order += isTaskCancelled() ? "inner " : "early "; };
        const auto inner = [&] { return withTaskCancellationHandler(body, note); };
        auto outer = withTaskCancellationHandler(inner, [&] { order += "outer "; });
        co_await outer;
        auto late = withTaskCancellationHandler(nothing, [&] { order += "late"; });
        co_await late;
    });
    executor.runUntilIdle();
    EXPECT_EQ(order, "inner outer body late");
}

// A handler that has not run when its scope is left never runs; one that runs is waited for.
TEST(Cancellation, RacesWithLeavingItsScope) {
    for (int round = 0; round < rounds(10'000, 500'000); ++round) {
        std::latch started(2);
        std::atomic<bool> isLeft = false;
        int ran = 0;
        auto handle = detached([&]() -> Task<void> {
            auto scope = withTaskCancellationHandler(
                [&]() -> Task<void> {
                    started.arrive_and_wait();
                    co_return;
                },
                [&] {
                    ++ran;
                    EXPECT_FALSE(isLeft);
                });
            co_await scope;
            isLeft = true;
            EXPECT_LE(ran, isTaskCancelled() ? 1 : 0);
        });
        started.arrive_and_wait();
        handle.cancel();
        result(std::move(handle));
    }
}

// Random children that yield, fail, are cancelled and add more: all end before the group's scope
// does, and each is told of once.
TEST(TaskGroup, EndsAllChildrenOnEveryWayOut) {
    for (int seed = 0; seed < rounds(3'000, 300'000); ++seed) {
        SCOPED_TRACE(seed);
        SeededExecutor executor(static_cast<std::uint64_t>(seed));
        int running = 0;
        std::set<int> given;
        std::string error, firstError;
        const int count = static_cast<int>(executor.choose(6));
        const int firstFailing = static_cast<int>(executor.choose(8)); // and all after it
        const bool bodyFails = executor.choose(4) == 0, waitsForAll = executor.choose(2) == 0;
        const std::size_t asked = executor.choose(7);
        auto parent = detached([&]() -> Task<void> {
            co_await withTaskGroup<int>([&](TaskGroup<int>& group) -> Task<void> {
                for (int i = 0; i < count; ++i) {
                    group.addTask([&, i]() -> Task<int> {
                        ++running;
                        for (std::size_t n = executor.choose(4); n > 0 && !isTaskCancelled(); --n) {
                            co_await Yield();
                        }
                        --running;
                        if (i < firstFailing) co_return i;
                        if (firstError.empty()) firstError = std::to_string(i);
                        throw std::runtime_error(std::to_string(i));
                    });
                }
                if (bodyFails) throw std::logic_error("body");
                if (waitsForAll) {
                    auto all = group.waitForAll();
                    co_await all;
                }
                for (std::size_t i = 0; i < asked; ++i) {
                    auto child = group.next();
                    const auto next = co_await child;
                    EXPECT_TRUE(waitsForAll ? !next
                                : next      ? given.insert(*next).second
                                            : std::ssize(given) == count);
                }
            });
        });
        const auto waiting = detached([&]() -> Task<void> {
            try {
                co_await parent;
            } catch (const std::exception& thrown) {
                error = thrown.what();
            }
        });
        if (executor.choose(3) == 0) executor.later(8, [&] { parent.cancel(); });
        executor.runUntilIdle();
        ASSERT_TRUE(waiting.hasEnded());
        ASSERT_EQ(running, 0);
        ASSERT_TRUE(error == (bodyFails ? "body" : firstError) ||
                    (error.empty() && !bodyFails && !waitsForAll))
            << error;
    }
}

} // namespace
} // namespace Platform
