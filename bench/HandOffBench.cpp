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

constexpr const char* shim = PLATFORM_BIN_DIR "/editor-shim";
constexpr const char* plainClient = PLATFORM_BIN_DIR "/bench-editor-client";

template <class Result>
Result checked(Result result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::system_category(), what);
    return result;
}

/// A host of nothing but system calls, with a client started by hand the way a tool does it.
class Host {
public:
    Host() {
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
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    /// Starts the client, takes its request, accepts it, and reaps the client.
    /// `whileItWaits(process)` is called before the answer is written.
    template <class F>
    void handOff(const char* program, F whileItWaits) const {
        char path[] = "/repository/.git/COMMIT_EDITMSG";
        char* const arguments[] = {const_cast<char*>(program), path, nullptr};
        pid_t process = 0;
        const int error = posix_spawn(&process, program, nullptr, nullptr, arguments, environ);
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
        const char ok = 0;
        checked(write(writing, &ok, 1), "write");
        close(writing);

        int status = 0;
        checked(waitpid(process, &status, 0), "waitpid");
        const bool whole = std::string_view(request, size) == std::string("\4") + path;
        if (!whole || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            throw std::runtime_error(std::string(program) + " failed");
        }
    }

private:
    std::string folder_;
    std::string pipe_;
};

void handOff(benchmark::State& state) {
    const Host host;
    const auto round = [&host](const char* program) {
        return wholly([&host, program] { host.handOff(program, [](pid_t) {}); });
    };
    compareTimes(state, 1, round(shim), round(plainClient));
    aimAtRatio(state, 1.10);
}
BENCHMARK(handOff)->Name("hand-off as git sees it")->UseManualTime();

void clientMemory(benchmark::State& state) {
    const Host host;
    const auto peak = [&host](const char* program) {
        double bytes = 0;
        host.handOff(program, [&](pid_t process) { bytes = peakMemory(process); });
        return bytes;
    };
    double ours = 0;
    double bare = 0;
    for (auto _ : state) {
        ours = std::max(ours, peak(shim));
        bare = std::max(bare, peak(plainClient));
    }
    noteBytes(state, ours, bare);
    aimAtRatio(state, 1.5);
}
BENCHMARK(clientMemory)->Name("client's peak memory")->Iterations(10);

void clientSize(benchmark::State& state) {
    for (auto _ : state) {
        noteBytes(state, static_cast<double>(std::filesystem::file_size(shim)),
                  static_cast<double>(std::filesystem::file_size(plainClient)));
    }
}
BENCHMARK(clientSize)->Name("client's file size")->Iterations(1);

} // namespace

} // namespace Bench
