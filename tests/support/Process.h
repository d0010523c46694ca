#pragma once

#include <chrono>
#include <cstdio>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Platform::Testing {

/// The path of a program that was built beside the tests.
std::string program(const std::string& name);

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
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    /// Kills the group unless the end was waited for.
    ~Process();

    pid_t id() const noexcept { return id_; }
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
Process::Result run(std::vector<std::string> arguments, const Process::Environment& changes = {});

} // namespace Platform::Testing
