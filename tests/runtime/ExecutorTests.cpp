#include <Platform/runtime/detail/BlockingPool.h>

#include <semaphore>

#include <support/Commands.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

/// Detached tasks run on a pool of one's own meanwhile.
class OwnPool {
public:
    explicit OwnPool(std::size_t workers) : pool_(workers) { detail::setDefaultExecutor(&pool_); }
    OwnPool(const OwnPool&) = delete;
    OwnPool& operator=(const OwnPool&) = delete;
    ~OwnPool() { detail::setDefaultExecutor(nullptr); }

private:
    CooperativePool pool_;
};

TEST(CooperativePool, ServesMoreUrgentTasksFirstAndEqualsInOrder) {
    const OwnPool pool(1);
    std::binary_semaphore started(0);
    std::binary_semaphore go(0);
    auto blocker = detached([&]() -> Task<void> {
        started.release();
        go.acquire();
        co_return;
    });
    started.acquire();
    std::string order;
    std::vector<TaskHandle<void>> handles;
    const auto add = [&](TaskPriority priority, char name) {
        handles.push_back(detached(priority, [&order, name]() -> Task<void> {
            order += name;
            co_return;
        }));
    };
    add(TaskPriority::background, 'h');
    add(TaskPriority::low, 'f');
    add(TaskPriority::utility, 'g');
    add(TaskPriority::medium, 'c');
    add(TaskPriority::unspecified, 'd');
    add(TaskPriority::medium, 'e');
    add(TaskPriority::high, 'a');
    add(TaskPriority::userInitiated, 'b');
    go.release();
    for (auto& handle : handles) result(std::move(handle));
    result(std::move(blocker));
    EXPECT_EQ(order, "abcdefgh");
}

TEST(CooperativePool, TwoTasksThatWakeEachOtherDoNotStarveAThird) {
    const OwnPool pool(1);
    std::atomic<bool> stop = false;
    auto busy = detached([&]() -> Task<void> {
        while (!stop) co_await Yield(); // goes to the worker's own slot each time
    });
    auto third = detached([&]() -> Task<void> {
        stop = true;
        co_return;
    });
    result(std::move(third));
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

// Tasks spread over the workers by every road: from outside, from tasks, by waking.
TEST(CooperativePool, LosesNoTask) {
    const OwnPool pool(3);
    for (int round = 0; round < rounds(200, 20'000); ++round) {
        std::atomic<int> ran = 0;
        std::vector<TaskHandle<void>> outer;
        for (int i = 0; i < 20; ++i) {
            outer.push_back(detached([&]() -> Task<void> {
                std::vector<TaskHandle<void>> inner;
                for (int j = 0; j < 5; ++j) {
                    inner.push_back(detached([&]() -> Task<void> {
                        co_await Yield();
                        ++ran;
                    }));
                }
                for (auto& handle : inner) co_await handle;
            }));
        }
        for (auto& handle : outer) result(std::move(handle));
        ASSERT_EQ(ran, 100);
    }
}

TEST(SerialQueue, RunsInOrderOneAtATimeEvenAfterItsEnd) {
    std::vector<int> order;
    std::atomic<int> inside = 0;
    std::latch done(1000);
    {
        SerialQueue queue("testQueue");
        for (int i = 0; i < 1000; ++i) {
            queue.submit([&, i] {
                EXPECT_EQ(inside.fetch_add(1), 0);
                order.push_back(i);
                inside.fetch_sub(1);
                done.count_down();
            });
        }
    }
    done.wait();
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(SerialQueue, AThousandIdleQueuesNeedNoThreadAndBusyOnesNeverWaitForEachOther) {
    std::vector<std::unique_ptr<SerialQueue>> queues;
    const std::size_t before = detail::BlockingPool::shared().threadCount();
    for (int i = 0; i < 1000; ++i) queues.push_back(std::make_unique<SerialQueue>("idle"));
    EXPECT_EQ(detail::BlockingPool::shared().threadCount(), before);
    std::latch all(50);
    std::latch done(50);
    for (std::size_t i = 0; i < 50; ++i) {
        queues[i]->submit([&] {
            all.arrive_and_wait(); // passes only when all fifty run at once
            done.count_down();
        });
    }
    done.wait();
    EXPECT_LE(detail::BlockingPool::shared().threadCount(), before + 50u);
}

TEST(RunMain, LendsItsIdleThreadWhenTold) {
    SerialQueue queue("lent");
    const auto whereItRuns = [](SerialQueue& on) -> Task<std::thread::id> {
        auto wait = withCheckedContinuation<std::thread::id>("where", [&on](auto continuation) {
            on.submit([continuation] { continuation.resume(std::this_thread::get_id()); });
        });
        co_return co_await wait;
    };
    const auto here = std::this_thread::get_id();
    const std::size_t before = detail::BlockingPool::shared().threadCount();
    EXPECT_EQ(runMain(whereItRuns(queue), IdleThread::runsBlockingWork), here);
    EXPECT_EQ(detail::BlockingPool::shared().threadCount(), before);
    EXPECT_NE(runMain(whereItRuns(queue)), here);

    // A second queue's work does not wait behind the first one's.
    SerialQueue other("other");
    const auto both = [](SerialQueue& first, SerialQueue& second) -> Task<void> {
        const auto meeting = std::make_shared<std::latch>(2);
        first.submit([meeting] { meeting->arrive_and_wait(); });
        second.submit([meeting] { meeting->arrive_and_wait(); });
        auto end = withCheckedContinuation("end", [&](auto continuation) {
            first.submit([continuation] { continuation.resume(); });
        });
        co_await end;
    };
    runMain(both(queue, other), IdleThread::runsBlockingWork);
}

} // namespace
} // namespace Platform
