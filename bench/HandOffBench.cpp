#include "Comparison.h"
#include "Memory.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" char** environ; // NOLINT(readability-redundant-declaration): not everywhere in a header

namespace Bench {

namespace {

/// One of the hand-offs: its client beside the plain one, what they ask and what they are told.
struct Kind {
    const char* name;
    const char* shim;
    const char* plainClient;
    std::string_view request;
    std::string_view answer;
};

constexpr Kind kinds[] = {
    {"hand-off as git sees it", PLATFORM_BIN_DIR "/editor-shim",
     PLATFORM_BIN_DIR "/bench-editor-client", "\4/repository/.git/COMMIT_EDITMSG",
     std::string_view("\0", 1)},
    {"credential hand-off", PLATFORM_BIN_DIR "/askpass-shim",
     PLATFORM_BIN_DIR "/bench-askpass-client",
     "\3Password for 'https://me@example.org': ", "\3correct horse battery staple"},
};

template <class Result>
Result checked(Result result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::system_category(), what);
    return result;
}

/// A host of nothing but system calls, with a client started by hand the way a tool does it.
class Host {
public:
    explicit Host(const Kind& kind) : kind_(kind) {
        posix_spawn_file_actions_init(&toNowhere_);
        posix_spawn_file_actions_addopen(&toNowhere_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        const auto pattern = std::filesystem::temp_directory_path() / "platform-bench-XXXXXX";
        std::string folder = pattern.string();
        if (!mkdtemp(folder.data())) checked(-1, "mkdtemp");
        folder_ = folder;
        pipe_ = folder + "/pipe";
        checked(mkfifo(pipe_.c_str(), 0600), "mkfifo");
        setenv("MV_EDITOR_CONN", pipe_.c_str(), 1);
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host() {
        unsetenv("MV_EDITOR_CONN");
        posix_spawn_file_actions_destroy(&toNowhere_);
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    /// Starts the client, takes its request, answers it, and reaps the client.
    /// `whileItWaits(process)` is called before the answer is written.
    template <class F>
    void handOff(const char* program, F whileItWaits) const {
        std::string asked(kind_.request.substr(1));
        char* const arguments[] = {const_cast<char*>(program), asked.data(), nullptr};
        pid_t process = 0;
        const int error = posix_spawn(&process, program, &toNowhere_, nullptr, arguments, environ);
        if (error) throw std::system_error(error, std::system_category(), program);

        char request[256];
        std::size_t size = 0;
        const int reading = checked(open(pipe_.c_str(), O_RDONLY | O_CLOEXEC), "open");
        while (const ssize_t count =
                   checked(read(reading, request + size, sizeof request - size), "read")) {
            size += static_cast<std::size_t>(count);
        }
        close(reading);

        const int writing = checked(open(pipe_.c_str(), O_WRONLY | O_CLOEXEC), "open");
        whileItWaits(process);
        checked(write(writing, kind_.answer.data(), kind_.answer.size()), "write");
        close(writing);

        int status = 0;
        checked(waitpid(process, &status, 0), "waitpid");
        const bool whole = std::string_view(request, size) == kind_.request;
        if (!whole || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            throw std::runtime_error(std::string(program) + " failed");
        }
    }

private:
    const Kind& kind_;
    posix_spawn_file_actions_t toNowhere_;
    std::string folder_;
    std::string pipe_;
};

void handOff(benchmark::State& state, const Kind& kind) {
    const Host host(kind);
    const auto round = [&host](const char* program) {
        return wholly([&host, program] { host.handOff(program, [](pid_t) {}); });
    };
    compareTimes(state, 1, round(kind.shim), round(kind.plainClient));
    aimAtRatio(state, 1.10);
}

void clientMemory(benchmark::State& state, const Kind& kind) {
    const Host host(kind);
    const auto peak = [&host](const char* program) {
        double bytes = 0;
        host.handOff(program, [&](pid_t process) { bytes = peakMemory(process); });
        return bytes;
    };
    double ours = 0;
    double bare = 0;
    for (auto _ : state) {
        ours = std::max(ours, peak(kind.shim));
        bare = std::max(bare, peak(kind.plainClient));
    }
    noteBytes(state, ours, bare);
    aimAtRatio(state, 1.5);
}

void clientSize(benchmark::State& state, const Kind& kind) {
    for (auto _ : state) {
        noteBytes(state, static_cast<double>(std::filesystem::file_size(kind.shim)),
                  static_cast<double>(std::filesystem::file_size(kind.plainClient)));
    }
}

const bool registered = [] {
    for (const Kind& kind : kinds) {
        const std::string name = kind.name;
        benchmark::RegisterBenchmark(name.c_str(), handOff, kind)->UseManualTime();
        benchmark::RegisterBenchmark((name + ": peak memory").c_str(), clientMemory, kind)
            ->Iterations(10);
        benchmark::RegisterBenchmark((name + ": file size").c_str(), clientSize, kind)
            ->Iterations(1);
    }
    return true;
}();

} // namespace

} // namespace Bench
