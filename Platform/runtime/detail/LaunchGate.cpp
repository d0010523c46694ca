#include <Platform/runtime/detail/LaunchGate.h>

namespace Platform::detail {

LaunchGate& LaunchGate::shared() noexcept {
    static LaunchGate gate;
    return gate;
}

void LaunchGate::waitForThoseUnderWay() {
    const std::lock_guard turn(turn_); // the phase before is over then
    std::unique_lock lock(mutex_);
    const std::size_t before = phase_;
    if (underWay_[before] == 0) return;
    phase_ = 1 - phase_;
    left_.wait(lock, [&] { return underWay_[before] == 0; });
}

std::size_t LaunchGate::enter() noexcept {
    const std::lock_guard guard(mutex_);
    ++underWay_[phase_];
    return phase_;
}

void LaunchGate::leave(std::size_t phase) noexcept {
    const std::lock_guard guard(mutex_);
    if (--underWay_[phase] == 0) left_.notify_all();
}

} // namespace Platform::detail
