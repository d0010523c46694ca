#include <support/Commands.h>
#include <support/HandOffs.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

TEST(CheckedContinuation, MisuseIsToldWithTheLabel) {
    LogEntries log;
    static TaskHandle<void> waitsForEver; // keeps the parked task reachable
    {
        SeededExecutor executor(1);
        waitsForEver = detached([]() -> Task<void> {
            auto wait = withCheckedContinuation("lost", [](const auto&) {});
            co_await wait;
        });
        executor.runUntilIdle();
        EXPECT_FALSE(waitsForEver.hasEnded());
    }
    EXPECT_EQ(log.take(),
              std::vector{"continuation: error: lost was dropped without being resumed: "
                          "its task waits for ever"s});
    const auto twice = []() -> Task<void> {
        detail::setLogSink([](const char* label, std::string_view text) {
            std::fprintf(stderr, "%s: %.*s\n", label, static_cast<int>(text.size()), text.data());
        });
        co_await withCheckedContinuation("double", [](auto it) {
            it.resume();
            it.resume();
        });
    };
    EXPECT_DEATH(runMain(twice()), "continuation: error: double was resumed twice");
    const auto fails = []() -> Task<void> {
        co_await withCheckedContinuation("body", [](auto) { throw std::logic_error("body"); });
    };
    EXPECT_THROW(runMain(fails()), std::logic_error);
}

TEST(CheckedContinuation, RacesWithItsOwnSuspension) {
    std::optional<CheckedContinuation<int>> shared;
    for (int round = 0; round < rounds(10'000, 500'000); ++round) {
        std::latch handedOver(2);
        auto task = detached([&]() -> Task<int> {
            auto wait = withCheckedContinuation<int>("race", [&](auto it) {
                shared = it;
                handedOver.arrive_and_wait();
            });
            co_return co_await wait;
        });
        handedOver.arrive_and_wait();
        std::exchange(shared, std::nullopt)->resume(round);
        ASSERT_EQ(result(std::move(task)), round);
    }
}

} // namespace
} // namespace Platform
