#pragma once

#include <Platform/Platform.h>

#include <cstddef>
#include <utility>

namespace Bench {

/// Runs `f`'s task on the pool where detached tasks go, and waits for it.
template <class F>
void runDetached(F f) {
    Platform::runMain([](F callable) -> Platform::Task<> {
        auto handle = Platform::detached(std::move(callable));
        co_await handle;
    }(std::move(f)));
}

/// Detached tasks go to a pool with so many workers meanwhile.
class Workers {
public:
    explicit Workers(std::size_t count) : pool_(count) {
        Platform::detail::setDefaultExecutor(&pool_);
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;
    ~Workers() { Platform::detail::setDefaultExecutor(nullptr); }

private:
    Platform::CooperativePool pool_;
};

} // namespace Bench
