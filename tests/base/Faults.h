#pragma once

#include <Platform/base/detail/SystemCall.h>
#include <Platform/runtime/detail/Poller.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

namespace Platform {

/// Puts a function in front of the system calls for as long as it lives; one at a time.
class Faults {
    using Hook = std::function<int(detail::SystemCall, std::size_t*)>;
    static inline Hook current_;

public:
    explicit Faults(Hook hook) {
        current_ = std::move(hook);
        detail::setSystemCallHook(
            [](auto call, std::size_t* count) { return current_(call, count); });
    }
    ~Faults() { detail::setSystemCallHook(nullptr); }

    /// The calls of one kind fail: the first `times` of them, with `number`.
    static Hook failing(detail::SystemCall which, int number, int times = 1) {
        return [=](detail::SystemCall call, std::size_t*) mutable {
            return call == which && times-- > 0 ? number : 0;
        };
    }
};

/// Expects, when it goes, the open descriptors and this thread's signal mask to be what they were.
class NothingLeft {
    static std::set<std::string> state() {
        detail::Poller::shared(); // which stays for good
        std::set<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator("/dev/fd"))
            result.insert("descriptor " + entry.path().filename().string());
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        for (int signal = 1; signal < 32; ++signal)
            if (sigismember(&mask, signal) == 1) result.insert("blocked " + std::to_string(signal));
        return result;
    }
    const std::set<std::string> before_ = state();

public:
    ~NothingLeft() { EXPECT_EQ(state(), before_); }
};

/// The number that `function` throws as `Errno`; 0 when it throws nothing.
template <class Function>
int thrownNumber(Function&& function) {
    try {
        function();
    } catch (const std::system_error& error) {
        return error.code().value();
    }
    return 0;
}

} // namespace Platform
