#pragma once

/// What nearly every test needs: the library, GoogleTest, the usual of C++ and of the system; and
/// ways to prepare what a test starts from, and to see that nothing is left of it.

#include <Platform/Platform.h>
#include <Platform/base/detail/SystemCall.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <latch>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Platform {

namespace Testing {}
using namespace Testing;
using namespace std::string_literals;
using detail::SystemCall;

/// An empty directory of its own, which goes with everything in it.
class Scratch {
    std::string path_ = std::filesystem::temp_directory_path() / "platform-tests-XXXXXX";

public:
    Scratch() { EXPECT_NE(::mkdtemp(path_.data()), nullptr); }
    ~Scratch() { std::filesystem::remove_all(path_); }

    std::string operator/(const char* name) const { return path_ + "/" + name; }
};

/// Gives a variable a value, or none, for as long as it lives.
class Variable {
    const char* const name_;
    const std::optional<std::string> before_ = ProcessInfo::environmentValue(name_);

    void set(const std::optional<std::string>& value) const {
        value ? ::setenv(name_, value->c_str(), 1) : ::unsetenv(name_);
    }

public:
    Variable(const char* name, const std::optional<std::string>& value) : name_(name) {
        set(value);
    }
    ~Variable() { set(before_); }
};

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
    static std::set<std::string> state();
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

namespace Testing {

inline std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Returns the path.
inline const std::string& write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

/// Writes a shell's script, and returns the path.
inline const std::string& writeScript(const std::string& path, const std::string& script) {
    write(path, "#!/bin/sh\n" + script + "\n");
    ::chmod(path.c_str(), 0700);
    return path;
}

/// The path of a program that was built beside the tests.
inline std::string program(const std::string& name) {
    return PLATFORM_BIN_DIR "/" + name;
}

/// A child process in a group of its own. Its outputs go to files, so it never waits for a reader.
class Process {
public:
    using Environment = std::map<std::string, std::optional<std::string>>;

    struct Result {
        int status; ///< The exit status, or -N when signal N ended it.
        std::string output;
        std::string errors;
    };

    /// Starts `arguments[0]`, which is looked up in PATH: with this process's environment and the
    /// changes to it (an absent value removes), nothing on standard input, default signal
    /// dispositions and an empty signal mask. A failure to start fails the test.
    explicit Process(std::vector<std::string> arguments, const Environment& changes = {});
    /// Kills the group unless the end was waited for.
    ~Process();

    void signalGroup(int signal) const;

    /// Waits for the end, once; kills what is left of the group then. Past the limit the test fails
    /// and the group is killed.
    Result wait(std::chrono::seconds limit = std::chrono::seconds(30));

private:
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

    std::string name_;
    File output_;
    File errors_;
    pid_t id_ = -1;
    std::future<void> ended_;
};

/// Starts the program and waits for its end.
inline Process::Result run(std::vector<std::string> arguments,
                           const Process::Environment& changes = {}) {
    return Process(std::move(arguments), changes).wait();
}

/// Rights of nobody for the command, which only root can give.
inline std::vector<std::string> asNobody(std::vector<std::string> command) {
    command.insert(command.begin(), program("helper-as-nobody"));
    return command;
}

/// `normal`, or `stress` for the long variant of the tests.
inline int rounds(int normal, int stress) noexcept {
    return std::getenv("PLATFORM_STRESS") ? stress : normal;
}

} // namespace Testing
} // namespace Platform
