#include <support/SeededExecutor.h>

namespace Platform {
namespace {

/// What is known of one operation that a task has begun.
struct Step {
    std::size_t task;
    int value;                    ///< Sent; or expected by a receiver, `none` for no value.
    std::optional<char> expected; ///< How it has to end, once that is decided.
    bool ended = false;
};

constexpr int none = -1;

/// The channel's rules, run step by step beside the channel itself: says of every operation, at the
/// moment when that is decided, how it ends.
class ChannelModel {
public:
    explicit ChannelModel(std::size_t tasks) : cancelled_(tasks) {}

    void send(Step& step) {
        if (closed_) return settle(step, 'x');
        if (cancelled_[step.task]) return settle(step, 'c');
        if (receivers_.empty()) return senders_.push_back(&step);
        pair(step, *receivers_.front());
        receivers_.pop_front();
    }
    void receive(Step& step) {
        if (closed_ || cancelled_[step.task]) return settle(step, 'n');
        if (senders_.empty()) return receivers_.push_back(&step);
        pair(*senders_.front(), step);
        senders_.pop_front();
    }
    void close() {
        closed_ = true;
        for (Step* const step : std::exchange(senders_, {})) settle(*step, 'x');
        for (Step* const step : std::exchange(receivers_, {})) settle(*step, 'n');
    }
    void cancel(std::size_t task) {
        cancelled_[task] = true;
        withdraw(senders_, task, 'c');
        withdraw(receivers_, task, 'n');
    }

private:
    static void settle(Step& step, char how) { step.expected = how; }
    static void pair(Step& sender, Step& receiver) {
        settle(sender, 'k');
        settle(receiver, 'v');
        receiver.value = sender.value;
    }
    static void withdraw(std::deque<Step*>& line, std::size_t task, char how) {
        const auto found = std::ranges::find(line, task, &Step::task);
        if (found == line.end()) return;
        settle(**found, how);
        line.erase(found);
    }

    bool closed_ = false;
    std::vector<bool> cancelled_;
    std::deque<Step*> senders_;
    std::deque<Step*> receivers_;
};

/// Up to three senders and three receivers, a closer and cancellers, in the order of the seed.
/// Returns what went wrong, or nothing.
std::string checkChannel(std::uint64_t seed) {
    SeededExecutor executor(seed);
    using Channel = AsyncChannel<std::unique_ptr<int>>;
    const auto channel = std::make_shared<Channel>();
    const std::size_t senders = 1 + executor.choose(3);
    const std::size_t count = senders + 1 + executor.choose(3);
    ChannelModel model(count);
    std::deque<Step> steps;
    std::string wrong;

    const auto begin = [&](std::size_t task, int value) -> Step& {
        steps.push_back({.task = task, .value = value, .expected = {}});
        return steps.back();
    };
    const auto end = [&](Step& step, char how, int value) {
        step.ended = true;
        if (step.expected == how && step.value == value) return;
        wrong += "task " + std::to_string(step.task) + " ended with " + how + "; ";
    };
    const auto send = [&](std::size_t task) -> Task<> {
        for (int i = 0; i < 3; ++i) {
            const int value = static_cast<int>(task) * 10 + i;
            auto element = std::make_unique<int>(value);
            Step& step = begin(task, value);
            model.send(step);
            char how = 'k';
            try {
                co_await channel->send(std::move(element));
            } catch (const Channel::Error& error) {
                how = error == Channel::Error::channelClosed ? 'x' : '?';
            } catch (const CancellationError&) {
                how = 'c';
            }
            end(step, how, value);
            if (executor.choose(2) == 0) co_await Yield();
        }
    };
    const auto receive = [&](std::size_t task) -> Task<> {
        const auto iterator = channel->makeAsyncIterator();
        for (int i = 0; i < 3; ++i) {
            Step& step = begin(task, none);
            model.receive(step);
            const auto element = co_await iterator.next();
            end(step, element ? 'v' : 'n', element ? **element : none);
            if (executor.choose(2) == 0) co_await Yield();
        }
    };
    std::vector<TaskHandle<>> tasks;
    for (std::size_t task = 0; task < count; ++task) {
        tasks.push_back(
            detached([&, task] { return task < senders ? send(task) : receive(task); }));
    }
    for (std::size_t disturbers = executor.choose(4); disturbers > 0; --disturbers) {
        tasks.push_back(executor.later(6, [&] {
            const std::size_t victim = executor.choose(count + 1);
            victim < count ? model.cancel(victim) : model.close();
            victim < count ? tasks[victim].cancel() : channel->close();
        }));
    }
    const auto compare = [&] {
        executor.runUntilIdle();
        for (const Step& step : steps) {
            if (step.expected.has_value() != step.ended) wrong += "a task sleeps or woke alone; ";
        }
    };
    compare();
    model.close();
    channel->close();
    compare();
    for (const auto& task : tasks) {
        if (!task.hasEnded()) wrong += "a task never ended; ";
    }
    return wrong;
}

TEST(AsyncChannel, FollowsItsRulesInEverySchedule) {
    for (int seed = 0; seed < rounds(50'000, 10'000'000); ++seed) {
        ASSERT_EQ(checkChannel(static_cast<std::uint64_t>(seed)), "") << "seed " << seed;
    }
}

TEST(AsyncLock, HasOneHolderInEverySchedule) {
    for (int seed = 0; seed < rounds(10'000, 2'000'000); ++seed) {
        SeededExecutor executor(static_cast<std::uint64_t>(seed));
        AsyncLock lock;
        int holders = 0, turns = 0;
        const auto use = [&](bool byGuard) -> Task<> {
            for (int i = 0; i < 3; ++i) {
                std::optional<AsyncLock::Guard> guard;
                if (byGuard) guard.emplace(co_await lock.guard());
                if (!byGuard) co_await lock.lock();
                EXPECT_EQ(++holders, 1);
                if (executor.choose(4) != 0) co_await Yield();
                --holders;
                ++turns;
                if (!byGuard) lock.unlock();
            }
        };
        std::vector<TaskHandle<>> tasks;
        const std::size_t count = 2 + executor.choose(4);
        for (std::size_t i = 0; i < count; ++i) {
            tasks.push_back(detached([&, i] { return use(i % 2 == 0); }));
        }
        tasks[executor.choose(count)].cancel(); // ignored
        executor.runUntilIdle();
        ASSERT_EQ(turns, static_cast<int>(3 * count)) << "seed " << seed;
    }
}

TEST(AsyncCond, WakesWhoeverWaitsInEverySchedule) {
    for (int seed = 0; seed < rounds(10'000, 2'000'000); ++seed) {
        SeededExecutor executor(static_cast<std::uint64_t>(seed));
        AsyncCond condition;
        struct Waiting {
            bool begun = false, mustEnd = false, ended = false;
        };
        std::deque<Waiting> waits(1 + executor.choose(4));
        std::vector<TaskHandle<>> tasks;
        for (Waiting& wait : waits) {
            tasks.push_back(detached([&]() -> Task<> {
                if (executor.choose(2) == 0) co_await Yield();
                wait.begun = true;
                wait.mustEnd = isTaskCancelled();
                co_await condition.wait();
                EXPECT_TRUE(wait.mustEnd);
                wait.ended = true;
            }));
        }
        const auto broadcast = [&]() {
            for (Waiting& wait : waits) wait.mustEnd = wait.begun;
            condition.broadcast();
        };
        executor.later(4, broadcast);
        executor.later(2, [&] {
            const std::size_t victim = executor.choose(tasks.size());
            waits[victim].mustEnd = waits[victim].mustEnd || waits[victim].begun;
            tasks[victim].cancel();
        });
        const auto compare = [&] {
            executor.runUntilIdle();
            for (const Waiting& wait : waits) ASSERT_EQ(wait.ended, wait.mustEnd) << seed;
        };
        compare();
        broadcast();
        compare();
    }
}

TEST(AsyncQueue, KeepsItsBoundAndItsPromisesInEverySchedule) {
    for (int seed = 0; seed < rounds(10'000, 2'000'000); ++seed) {
        SeededExecutor executor(static_cast<std::uint64_t>(seed));
        const int given = static_cast<int>(executor.choose(5)) - 1;
        const int limit = std::max(given, 1);
        auto queue = std::make_unique<AsyncQueue>(given);
        struct Job {
            bool begun = false, ended = false, cancelledBefore = false, cancelledInside = false;
        };
        std::deque<Job> jobs(8);
        std::vector<Cancellable> handles;
        const auto alive = std::make_shared<int>();
        int running = 0;
        for (Job& job : jobs) {
            handles.push_back(queue->addTask([&, alive]() -> Task<> {
                EXPECT_LE(++running, limit);
                job.begun = true;
                for (std::size_t i = executor.choose(3); i > 0; --i) co_await Yield();
                EXPECT_EQ(isTaskCancelled(), job.cancelledInside);
                job.ended = true;
                --running;
            }));
        }
        const auto cancelled = [](Job& job) {
            (job.begun ? job.cancelledInside : job.cancelledBefore) = true;
        };
        executor.later(4, [&] {
            const std::size_t victim = executor.choose(jobs.size());
            cancelled(jobs[victim]);
            handles[victim].cancel();
        });
        const bool cancelsAll = executor.choose(4) == 0;
        if (cancelsAll) {
            executor.later(6, [&] {
                std::ranges::for_each(jobs, cancelled);
                queue->cancelAllTasks();
            });
        }
        const bool destroys = !cancelsAll && executor.choose(4) == 0;
        const auto waiting = detached([&]() -> Task<> {
            auto wait = queue->waitUntilAllTasksAreFinished();
            if (destroys) queue.reset();
            co_await wait;
            EXPECT_EQ(alive.use_count(), 1) << "blocks are still there";
        });
        executor.runUntilIdle();
        ASSERT_TRUE(waiting.hasEnded()) << "seed " << seed;
        for (const Job& job : jobs) ASSERT_EQ(job.ended, !job.cancelledBefore) << "seed " << seed;
    }
}

} // namespace
} // namespace Platform
