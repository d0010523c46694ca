#pragma once

#include <coroutine>
#include <exception>

namespace Bench {

/// A coroutine and nothing round it: no task, no executor. Starts suspended; whoever resumes it
/// last destroys it.
struct BareCoroutine {
    struct promise_type {
        int value = 0;

        BareCoroutine get_return_object() noexcept {
            return {std::coroutine_handle<promise_type>::from_promise(*this)};
        }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        std::suspend_always final_suspend() const noexcept { return {}; }
        void return_value(int result) noexcept { value = result; }
        [[noreturn]] void unhandled_exception() const noexcept { std::terminate(); }
    };

    std::coroutine_handle<promise_type> handle;
};

} // namespace Bench
