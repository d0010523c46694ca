#include <Platform/base/detail/QuickMutex.h>

namespace Platform::detail {

void QuickMutex::lockSlowly() noexcept {
    for (int looks = 0; looks < 1000; ++looks) {
        if (state_.load(std::memory_order_relaxed) != free) continue;
        std::uint32_t seen = free;
        if (state_.compare_exchange_weak(seen, taken, std::memory_order_acquire)) return;
    }
    while (state_.exchange(awaited, std::memory_order_acquire) != free) state_.wait(awaited);
}

} // namespace Platform::detail
