#pragma once

#include <support/Testing.h>

namespace Platform::Testing {

/// Gives way to the other ready tasks: on the seeded executor a point where the schedule may
/// branch.
struct Yield : detail::Awaitable {
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    void await_suspend(std::coroutine_handle<Promise> awaiting) const noexcept {
        auto& task = awaiting.promise().context();
        task.suspendAt(awaiting);
        task.schedule();
    }
    void await_resume() const noexcept {}
};

/// Detached tasks run on a pool of one's own meanwhile.
struct OwnPool {
    explicit OwnPool(std::size_t workers) : pool(workers) { detail::setDefaultExecutor(&pool); }
    ~OwnPool() { detail::setDefaultExecutor(nullptr); }
    CooperativePool pool;
};

/// Runs detached tasks on the calling thread, in an order that the seed decides: the same seed, the
/// same schedule. In place from construction to destruction.
class SeededExecutor final : public Executor {
public:
    explicit SeededExecutor(std::uint64_t seed) : random_(seed) {
        detail::setDefaultExecutor(this);
    }
    ~SeededExecutor() { detail::setDefaultExecutor(nullptr); }

    void enqueue(detail::TaskContext& task) noexcept override;

    /// Runs ready tasks until there are none.
    void runUntilIdle();

    /// Runs ready tasks, waiting for those that other threads make ready, until the condition
    /// holds. Aborts the program with a message when a minute passes without a ready task.
    void runUntil(const std::function<bool()>& condition);

    /// Below `bound`, from the same seed.
    std::size_t choose(std::size_t bound) { return random_() % bound; }

    /// Starts a task that gives way less than `bound` times and calls the function then.
    template <class Function>
    TaskHandle<> later(std::size_t bound, Function function) {
        return detached([this, bound, function]() -> Task<> {
            for (std::size_t left = choose(bound); left > 0; --left) co_await Yield();
            function();
        });
    }

private:
    bool runOne();

    std::mt19937_64 random_;
    std::mutex mutex_;
    std::condition_variable added_;
    std::vector<detail::TaskContext*> ready_;
};

} // namespace Platform::Testing
