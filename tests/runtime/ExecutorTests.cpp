#include <Platform/runtime/detail/BlockingPool.h>

#include <semaphore>

#include <support/Commands.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

TEST(CooperativePool, ServesMoreUrgentTasksFirstAndEqualsInOrder) {
    const OwnPool pool(1);
    std::binary_semaphore started(0), go(0);
    std::vector<TaskHandle<void>> handles;
    handles.push_back(detached([&]() -> Task<void> {
        started.release();
        go.acquire();
        co_return;
    }));
    started.acquire();
    std::string order;
    const std::pair<TaskPriority, char> tasks[] = {
        {TaskPriority::background, 'h'},  {TaskPriority::low, 'f'},
        {TaskPriority::utility, 'g'},     {TaskPriority::medium, 'c'},
        {TaskPriority::unspecified, 'd'}, {TaskPriority::medium, 'e'},
        {TaskPriority::high, 'a'},        {TaskPriority::userInitiated, 'b'},
    };
    for (const auto& [priority, name] : tasks) {
        handles.push_back(detached(priority, [&order, letter = name]() -> Task<void> {
            order += letter;
            co_return;
        }));
    }
    go.release();
    for (auto& handle : handles) result(std::move(handle));
    EXPECT_EQ(order, "abcdefgh");
}

TEST(CooperativePool, TwoTasksThatWakeEachOtherDoNotStarveAThird) {
    const OwnPool pool(1);
    std::atomic<bool> stop = false;
    auto busy = detached([&]() -> Task<void> {
        while (!stop) co_await Yield(); // goes to the worker's own slot each time
    });
    result(detached([&]() -> Task<void> {
        stop = true;
        co_return;
    }));
    result(std::move(busy));
}

// A task that keeps its worker busy after it has woken another: an idle worker takes that one over.
TEST(CooperativePool, TakesOverATaskThatABusyWorkerDoesNotComeTo) {
    const OwnPool pool(2);
    for (int round = 0; round < rounds(20, 2000); ++round) {
        std::binary_semaphore ran(0);
        auto busy = detached([&]() -> Task<void> {
            auto woken = detached([&]() -> Task<void> {
                ran.release();
                co_return;
            });
            ran.acquire();
            co_await woken;
        });
        result(std::move(busy));
    }
}

TEST(SerialQueue, RunsInOrderOneAtATimeEvenAfterItsEnd) {
    int next = 0; // unguarded
    std::latch done(1000);
    {
        SerialQueue queue("testQueue");
        for (int i = 0; i < 1000; ++i) {
            queue.submit([&, i] {
                EXPECT_EQ(std::exchange(next, i + 1), i);
                done.count_down();
            });
        }
    }
    done.wait();
}

TEST(SerialQueue, AThousandIdleQueuesNeedNoThreadAndBusyOnesNeverWaitForEachOther) {
    std::deque<SerialQueue> queues;
    const std::size_t before = detail::BlockingPool::shared().threadCount();
    for (int i = 0; i < 1000; ++i) queues.emplace_back("idle");
    EXPECT_EQ(detail::BlockingPool::shared().threadCount(), before);
    const auto all = std::make_shared<std::latch>(51); // passed only when all run at once
    for (std::size_t i = 0; i < 50; ++i) queues[i].submit([all] { all->arrive_and_wait(); });
    all->arrive_and_wait();
    EXPECT_LE(detail::BlockingPool::shared().threadCount(), before + 50u);
}

Task<std::thread::id> whereItRuns(SerialQueue& queue) {
    auto wait = withCheckedContinuation<std::thread::id>("where", [&queue](auto continuation) {
        queue.submit([continuation] { continuation.resume(std::this_thread::get_id()); });
    });
    co_return co_await wait;
}

TEST(RunMain, LendsItsIdleThreadWhenTold) {
    SerialQueue queue("lent");
    const auto here = std::this_thread::get_id();
    const std::size_t before = detail::BlockingPool::shared().threadCount();
    EXPECT_EQ(runMain(whereItRuns(queue), IdleThread::runsBlockingWork), here);
    EXPECT_EQ(detail::BlockingPool::shared().threadCount(), before);
    EXPECT_NE(runMain(whereItRuns(queue)), here);

    // A second queue's work does not wait behind the first one's.
    const auto both = [](SerialQueue& first) -> Task<std::thread::id> {
        const auto meeting = std::make_shared<std::latch>(2);
        SerialQueue second("second");
        first.submit([meeting] { meeting->arrive_and_wait(); });
        second.submit([meeting] { meeting->arrive_and_wait(); });
        auto end = whereItRuns(first);
        co_return co_await end;
    };
    runMain(both(queue), IdleThread::runsBlockingWork);
}

} // namespace
} // namespace Platform
