#include <Platform/async/AsyncLock.h>

namespace Platform {

/// One attempt: true when the lock is held, false when it was freed and may be tried for again.
class AsyncLock::Turn final : public detail::Wait<Turn, detail::NoCancellation> {
public:
    explicit Turn(AsyncLock& lock) noexcept : lock_(lock) {}
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() { withdraw(); }

    bool await_resume() noexcept { return !endWait(); }

private:
    friend detail::Wait<Turn, detail::NoCancellation>;

    std::mutex& mutex() const noexcept { return lock_.mutex_; }
    detail::WaiterList& line() const noexcept { return lock_.waiters_; }
    bool mustWait(const detail::TaskContext&) const noexcept {
        return std::exchange(lock_.held_, true);
    }

    AsyncLock& lock_;
};

Task<> AsyncLock::compete() {
    detail::Operation<Turn, AsyncLock> turn(*this);
    while (!co_await turn) {
    }
}

void AsyncLock::unlock() noexcept {
    const std::lock_guard guard(mutex_);
    held_ = false;
    wakeAll(waiters_);
}

} // namespace Platform
