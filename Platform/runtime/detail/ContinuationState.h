#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/detail/TaskPromise.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Platform::detail {

/// What the waiting task and the continuation's copies share. Lives as long as either.
class PLATFORM_EXPORT ContinuationStateBase {
public:
    ContinuationStateBase(const ContinuationStateBase&) = delete;
    ContinuationStateBase& operator=(const ContinuationStateBase&) = delete;

    // The resuming side.

    /// The right to resume; aborts the program when it was taken before.
    void claim() noexcept;

    /// Lets the task go on, now that the outcome is there.
    void publish() noexcept;

    void addOwner() noexcept { owners_.fetch_add(1, std::memory_order_relaxed); }

    /// Reports a wait that nobody can end any more.
    void removeOwner() noexcept;

    // The waiting side.

    /// True: the task waits, and may be running again already. False: it was resumed before, and
    /// goes on.
    bool suspend() noexcept;

    /// The wait is over, failed to begin, or its frame is being destroyed: whoever resumes later
    /// resumes nobody.
    void giveUp() noexcept { phase_.store(Phase::givenUp, std::memory_order_release); }

    /// Lets go of the waiting side's, or all owners', reference.
    void release() noexcept;

protected:
    ContinuationStateBase(const char* label, TaskContext& task) noexcept
        : label_(label), task_(&task) {}
    virtual ~ContinuationStateBase() = default;

private:
    enum class Phase : std::uint8_t { starting, suspended, resumed, givenUp };

    const char* label_;
    TaskContext* task_;
    std::atomic<std::uint32_t> owners_{0};
    std::atomic<std::uint8_t> references_{2}; ///< One of the waiting side, one of all owners.
    std::atomic<bool> claimed_{false};
    std::atomic<Phase> phase_{Phase::starting};
};

template <class T>
class ContinuationState final : public ContinuationStateBase,
                                public WipedWhenFreed<mayBeSecret<T>> {
public:
    ContinuationState(const char* label, TaskContext& task) noexcept
        : ContinuationStateBase(label, task) {}

    Outcome<T> outcome;
};

/// A counted share in a continuation's state.
template <class T>
class ContinuationOwner {
public:
    explicit ContinuationOwner(ContinuationState<T>& state) noexcept : state_(&state) {
        state_->addOwner();
    }
    ContinuationOwner(const ContinuationOwner& other) noexcept : state_(other.state_) {
        if (state_) state_->addOwner();
    }
    ContinuationOwner(ContinuationOwner&& other) noexcept
        : state_(std::exchange(other.state_, nullptr)) {}
    ContinuationOwner& operator=(ContinuationOwner other) noexcept {
        std::swap(state_, other.state_);
        return *this;
    }
    ~ContinuationOwner() {
        if (state_) state_->removeOwner();
    }

    ContinuationState<T>* operator->() const noexcept { return state_; }

private:
    ContinuationState<T>* state_;
};

} // namespace Platform::detail
