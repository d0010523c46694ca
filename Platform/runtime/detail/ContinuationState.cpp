#include <Platform/runtime/detail/ContinuationState.h>

#include <Platform/base/Log.h>

#include <cstdlib>
#include <string>

namespace Platform::detail {

namespace {

void report(const char* label, const char* what) noexcept {
    try {
        Logger("continuation").error(std::string(label) + what);
    } catch (...) {
        Logger("continuation").error(what);
    }
}

// Gives up one share. Who holds the only one need not write.
template <class Count>
bool isLast(std::atomic<Count>& shares) noexcept {
    return shares.load(std::memory_order_acquire) == 1 ||
           shares.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

} // namespace

void ContinuationStateBase::claim() noexcept {
    if (!claimed_.exchange(true, std::memory_order_relaxed)) return;
    report(label_, " was resumed twice");
    std::abort();
}

void ContinuationStateBase::publish() noexcept {
    if (phase_.exchange(Phase::resumed, std::memory_order_acq_rel) == Phase::suspended) {
        task_->schedule();
    }
}

void ContinuationStateBase::removeOwner() noexcept {
    if (!isLast(owners_)) return;
    const Phase phase = phase_.load(std::memory_order_acquire);
    if (phase == Phase::starting || phase == Phase::suspended) {
        report(label_, " was dropped without being resumed: its task waits for ever");
    }
    release();
}

bool ContinuationStateBase::suspend() noexcept {
    Phase starting = Phase::starting;
    return phase_.compare_exchange_strong(starting, Phase::suspended, std::memory_order_acq_rel);
}

void ContinuationStateBase::release() noexcept {
    if (isLast(references_)) delete this;
}

} // namespace Platform::detail
