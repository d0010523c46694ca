#include <support/Commands.h>
#include <support/HandOffs.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

TEST(CheckedContinuation, EndsTheWaitWithWhatItWasGiven) {
    runMain([]() -> Task<void> {
        EXPECT_EQ(co_await withCheckedContinuation<int>("now", [](auto it) { it.resume(3); }), 3);
        const auto error = std::make_exception_ptr(std::runtime_error("given"));
        EXPECT_THROW(co_await withCheckedContinuation<int>(
                         "error", [error](auto it) { it.resumeThrowing(error); }),
                     std::runtime_error);
        EXPECT_THROW(co_await withCheckedContinuation<int>(
                         "body", [](auto) { throw std::logic_error("body"); }),
                     std::logic_error);
        // As a host keeps it: in a copyable callback, answered later from another thread.
        std::function<void(std::string)> answer;
        std::thread window;
        auto wait = withCheckedContinuation<std::string>("ask", [&](auto it) {
            answer = [it](std::string text) { it.resume(std::move(text)); };
            window = std::thread([answer] { answer("later"); });
        });
        EXPECT_EQ(co_await wait, "later");
        window.join();
    }());
}

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
    const auto before = detail::setLogSink([](const char* label, std::string_view text) {
        std::fprintf(stderr, "%s: %.*s\n", label, static_cast<int>(text.size()), text.data());
    });
    EXPECT_DEATH(runMain([]() -> Task<void> {
                     co_await withCheckedContinuation("double", [](auto it) {
                         it.resume();
                         it.resume();
                     });
                 }()),
                 "continuation: error: double was resumed twice");
    detail::setLogSink(before);
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
