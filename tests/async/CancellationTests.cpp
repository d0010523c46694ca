#include <ostream>

#include <support/SeededExecutor.h>

namespace Platform {
namespace {

/// One of everything that can be waited for, with nobody there to end the wait.
struct Rig {
    explicit Rig(std::uint64_t seed) : executor(seed) {
        detached([this]() -> Task<> { co_await lock.lock(); });
        const auto untilGate = [this]() -> Task<> { co_await gate->receive(); };
        queue.addTask(untilGate);
        handle = detached(untilGate);
        executor.runUntilIdle();
    }
    ~Rig() {
        gate->close();
        channel->close();
        executor.runUntilIdle();
    }

    SeededExecutor executor;
    std::shared_ptr<AsyncChannel<int>> channel = std::make_shared<AsyncChannel<int>>();
    std::shared_ptr<AsyncChannel<int>> gate = std::make_shared<AsyncChannel<int>>();
    AsyncCond condition;
    AsyncLock lock;
    AsyncQueue queue{1};
    TaskHandle<> handle;
    std::optional<CheckedContinuation<>> continuation;
};

/// An awaitable: how to wait for it, how the wait is ended by others, and how by cancellation: as
/// if it were complete ('k'), with an error ('c'; here also for no value), or not at all.
struct Subject {
    const char* name;
    char whenCancelled;
    Task<> (*wait)(Rig&);
    void (*complete)(Rig&);
};

void PrintTo(const Subject& subject, std::ostream* out) {
    *out << subject.name;
}

const Subject subjects[] = {
    {"send", 'c', [](Rig& rig) -> Task<> { co_await rig.channel->send(1); },
     [](Rig& rig) { detached([&rig]() -> Task<> { co_await rig.channel->receive(); }); }},
    {"receive", 'c',
     [](Rig& rig) -> Task<> {
         if (!co_await rig.channel->receive()) throw CancellationError();
     },
     [](Rig& rig) { detached([&rig]() -> Task<> { co_await rig.channel->send(1); }); }},
    {"condition", 'k', [](Rig& rig) -> Task<> { co_await rig.condition.wait(); },
     [](Rig& rig) { rig.condition.broadcast(); }},
    {"lock", '-', [](Rig& rig) -> Task<> { co_await rig.lock.lock(); },
     [](Rig& rig) { rig.lock.unlock(); }},
    {"guard", '-', [](Rig& rig) -> Task<> { const auto guard = co_await rig.lock.guard(); },
     [](Rig& rig) { rig.lock.unlock(); }},
    {"queue", '-', [](Rig& rig) { return rig.queue.waitUntilAllTasksAreFinished(); },
     [](Rig& rig) { rig.gate->close(); }},
    {"handle", '-', [](Rig& rig) -> Task<> { co_await rig.handle; },
     [](Rig& rig) { rig.gate->close(); }},
    {"continuation", '-',
     [](Rig& rig) -> Task<> {
         auto wait = withCheckedContinuation([&rig](auto given) { rig.continuation = given; });
         co_await wait;
     },
     [](Rig& rig) {
         if (const auto given = std::exchange(rig.continuation, std::nullopt)) given->resume();
     }},
};

class CancellationMatrix : public testing::TestWithParam<Subject> {
protected:
    TaskHandle<> begin(Rig& rig) {
        return detached([this, &rig]() -> Task<> {
            auto wait = GetParam().wait(rig);
            try {
                co_await wait;
                ended_ = 'k';
            } catch (const CancellationError&) {
                ended_ = 'c';
            }
        });
    }
    bool ignoresIt() const { return GetParam().whenCancelled == '-'; }

    char ended_ = '-';
};

TEST_P(CancellationMatrix, BeforeTheStartWhileParkedAndAfterTheEnd) {
    for (const bool parkedFirst : {false, true}) {
        Rig rig(1);
        ended_ = '-';
        const auto task = begin(rig);
        if (parkedFirst) rig.executor.runUntilIdle();
        EXPECT_EQ(ended_, '-');
        task.cancel();
        rig.executor.runUntilIdle();
        EXPECT_EQ(ended_, GetParam().whenCancelled);
        if (ignoresIt()) {
            GetParam().complete(rig);
            EXPECT_EQ(ended_, '-') << "who ends a wait only schedules who waits";
            rig.executor.runUntilIdle();
            EXPECT_EQ(ended_, 'k');
        }
        task.cancel();
    }
}

TEST_P(CancellationMatrix, RacingTheEnd) {
    for (int seed = 0; seed < rounds(300, 100'000); ++seed) {
        Rig rig(static_cast<std::uint64_t>(seed));
        ended_ = '-';
        const auto task = begin(rig);
        bool cancelledFirst = false, completed = false;
        rig.executor.later(3, [&] {
            completed = true;
            GetParam().complete(rig);
        });
        rig.executor.later(3, [&] {
            cancelledFirst = !completed;
            task.cancel();
        });
        rig.executor.runUntilIdle();
        if (ended_ == '-') GetParam().complete(rig); // it came before the wait
        rig.executor.runUntilIdle();
        EXPECT_TRUE(ended_ == 'k' || ended_ == GetParam().whenCancelled) << "seed " << seed;
        if (cancelledFirst && !ignoresIt()) {
            EXPECT_EQ(ended_, GetParam().whenCancelled);
        }
    }
}

/// A task that can be dropped where it waits.
class Abandoned final : public detail::RootResult<void, detail::TaskContext> {
public:
    Abandoned(Rig& rig, Task<> task)
        : RootResult(rig.executor, TaskPriority::unspecified), outermost_(begin(std::move(task))) {}

private:
    std::coroutine_handle<> start() noexcept override { return outermost_; }
    void finish() noexcept override { ADD_FAILURE() << "went on"; }

    std::coroutine_handle<> outermost_;
};

TEST_P(CancellationMatrix, DestroyedWhileParked) {
    Rig rig(1);
    auto* const task = new Abandoned(rig, GetParam().wait(rig));
    task->schedule();
    rig.executor.runUntilIdle();
    task->release();
    GetParam().complete(rig);
    rig.executor.runUntilIdle();
}

INSTANTIATE_TEST_SUITE_P(Awaitables, CancellationMatrix, testing::ValuesIn(subjects),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(Coordination, HoldsUnderRealThreads) {
    const int count = rounds(20'000, 2'000'000);
    const auto channel = std::make_shared<AsyncChannel<int>>();
    AsyncLock lock;
    AsyncCond condition;
    AsyncQueue queue(8);
    long sent = 0; // under the lock
    std::atomic<long> received = 0;
    std::atomic<int> left = 4;

    const auto sender = [&]() -> Task<> {
        try {
            for (int i = 0; i < count; ++i) {
                co_await channel->send(i);
                const auto guard = co_await lock.guard();
                sent += i;
            }
        } catch (const CancellationError&) { // the first
        }
        if (--left == 0) channel->close();
        condition.broadcast();
    };
    const auto receiver = [&]() -> Task<> {
        while (const auto value = co_await channel->receive()) {
            received += *value;
            if (*value % 64 == 0) condition.broadcast();
        }
    };
    const auto watcher = [&]() -> Task<> {
        while (left != 0) co_await condition.wait();
    };
    const auto main = [&]() -> Task<> {
        std::vector<TaskHandle<>> senders;
        for (int i = 0; i < 4; ++i) senders.push_back(detached(sender));
        for (int i = 0; i < 4; ++i) queue.addTask(receiver);
        auto watching = detached(watcher);
        for (int i = 0; i < count; ++i) {
            auto task = detached([&]() -> Task<> { co_await condition.wait(); });
            task.cancel();
            co_await task;
        }
        senders[0].cancel();
        queue.addTask(receiver).cancel();
        for (auto& task : senders) co_await task;
        watching.cancel(); // it may have looked before the last broadcast, and waited after it
        co_await watching;
        auto wait = queue.waitUntilAllTasksAreFinished();
        co_await wait;
    };
    runMain(main());
    EXPECT_EQ(received, sent);
}

} // namespace
} // namespace Platform
