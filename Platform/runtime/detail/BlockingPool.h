#pragma once

#include <Platform/base/Export.h>

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace Platform::detail {

/// A piece of blocking work. Its owner keeps it alive until it has run.
class BlockingJob {
public:
    virtual void run() noexcept = 0;

    /// What the thread that runs it is called meanwhile. Lives as long as the process.
    virtual const char* label() const noexcept = 0;

protected:
    BlockingJob() = default;
    ~BlockingJob() = default;

private:
    friend class BlockingPool;
    BlockingJob* next_ = nullptr;
};

/// A thread outside the pool that is ready to run blocking work while it has nothing else to do.
class PLATFORM_EXPORT ThreadLender {
public:
    /// True: will run the job, soon. Called with the pool's lock held.
    virtual bool take(BlockingJob& job) noexcept = 0;

protected:
    ~ThreadLender() = default;
};

/// The threads for all blocking work: as many as there is work at a time, each ended after some
/// idle seconds. One for the process, never destroyed.
class BlockingPool {
public:
    static BlockingPool& shared();

    /// Has the job run on some thread, as soon as may be; never waits behind other jobs. Throws
    /// std::system_error, without taking the job, when a new thread is needed and the system has
    /// none.
    void submit(BlockingJob& job);

    /// The lender is asked first from now on; null: none. Returns the lender before.
    ThreadLender* setLender(ThreadLender* lender) noexcept;

    /// Threads that exist, for tests and curiosity.
    std::size_t threadCount() const noexcept;

private:
    BlockingPool() = default;

    void serve() noexcept;

    mutable std::mutex mutex_;
    std::condition_variable work_;
    BlockingJob* first_ = nullptr;
    BlockingJob* last_ = nullptr;
    std::size_t queued_ = 0;
    std::size_t idle_ = 0;
    std::size_t threads_ = 0;
    ThreadLender* lender_ = nullptr;
};

} // namespace Platform::detail
