#include <Platform/Platform.h>

#include "Comparison.h"
#include "Memory.h"
#include "Pool.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

namespace {

using namespace Platform;

constexpr std::size_t gibibyte = std::size_t{1} << 30;

Cmd command(std::string path, std::vector<std::string> arguments) {
    return {.path = std::move(path),
            .arguments = std::move(arguments),
            .environment = std::nullopt,
            .workingDirectoryPath = std::nullopt,
            .expectedExitStatus = {0},
            .mergeOutputIntoError = false,
            .standardInput = nullptr,
            .standardOutput = nullptr,
            .standardError = nullptr};
}

/// The least that starts a program; its standard output is `output`.
pid_t start(const char* const* arguments, int output) {
    const pid_t id = ::vfork();
    if (id == 0) {
        ::dup2(output, 1);
        ::execv(arguments[0], const_cast<char* const*>(arguments));
        ::_exit(127);
    }
    return id;
}

void waitFor(pid_t id) {
    int status = 0;
    if (::waitpid(id, &status, 0) != id || status != 0) throw std::runtime_error("a child failed");
}

/// Memory that this process holds.
class Ballast {
public:
    explicit Ballast(std::size_t size) : size_(size) {
        if (size == 0) return;
        bytes_ = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (bytes_ == MAP_FAILED) throw std::bad_alloc();
        std::memset(bytes_, 1, size);
    }
    Ballast(const Ballast&) = delete;
    Ballast& operator=(const Ballast&) = delete;
    ~Ballast() {
        if (size_ > 0) ::munmap(bytes_, size_);
    }

private:
    std::size_t size_;
    void* bytes_ = nullptr;
};

/// Runs commands, one after another within one task, or many at once.
void launch(benchmark::State& state, int atATime, std::size_t held) {
    constexpr int inARow = 32;
    const Ballast ballast(held);
    const Cmd nothing = command("/usr/bin/true", {});
    const auto ours = [&] {
        runDetached([&]() -> Task<> {
            if (atATime == 1) {
                for (int i = 0; i < inARow; ++i) {
                    auto running = nothing.run();
                    co_await running;
                }
                co_return;
            }
            auto body = [&](TaskGroup<>& group) -> Task<> {
                for (int i = 0; i < atATime; ++i) group.addTask([&] { return nothing.run(); });
                co_await group.waitForAll();
            };
            co_await withTaskGroup<>(body);
        });
    };
    const FileDescriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    const auto bare = [&] {
        const char* const arguments[] = {"/usr/bin/true", nullptr};
        if (atATime == 1) {
            for (int i = 0; i < inARow; ++i) waitFor(start(arguments, null.get()));
            return;
        }
        std::vector<pid_t> ids(static_cast<std::size_t>(atATime));
        for (pid_t& id : ids) id = start(arguments, null.get());
        for (const pid_t id : ids) waitFor(id);
    };
    compareTimes(state, atATime == 1 ? inARow : atATime, wholly(ours), wholly(bare));
    aimAtRatio(state, 1.10);
}

const std::string size = std::to_string(gibibyte);
const Cmd producer = command("/usr/bin/head", {"-c", size, "/dev/zero"});

/// Reads what the producer writes; `use` gets each piece, and says where the next goes.
void readBare(const std::function<char*(std::size_t)>& use, std::size_t most) {
    int ends[2];
    if (::pipe(ends) == -1) throw std::runtime_error("pipe");
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
    const char* const arguments[] = {"/usr/bin/head", "-c", size.c_str(), "/dev/zero", nullptr};
    const pid_t id = start(arguments, writing.get());
    writing.reset();
    std::size_t got = 0;
    for (;;) {
        const ssize_t count = ::read(reading.get(), use(got), most);
        if (count <= 0) break;
        got = static_cast<std::size_t>(count);
    }
    waitFor(id);
}

void captureBare() {
    char* data = nullptr;
    std::size_t used = 0;
    std::size_t room = 0;
    readBare(
        [&](std::size_t got) {
            used += got;
            if (room - used < 65536) {
                room = std::max<std::size_t>(2 * room, 131072);
                data = static_cast<char*>(std::realloc(data, room));
            }
            return data + used;
        },
        65536);
    std::free(data);
    if (used != gibibyte) throw std::runtime_error("not all was captured");
}

void captureOurs() {
    runDetached([]() -> Task<> {
        const Data data = co_await producer.output();
        if (data.size() != gibibyte) throw std::runtime_error("not all was captured");
    });
}

void streamBare() {
    std::vector<char> buffer(65536);
    std::size_t all = 0;
    readBare(
        [&](std::size_t got) {
            all += got;
            return buffer.data();
        },
        buffer.size());
}

void streamOurs() {
    runDetached([]() -> Task<> {
        Cmd streaming = producer;
        streaming.standardOutput = std::make_shared<Cmd::Channel>();
        auto reading = detached([channel = streaming.standardOutput]() -> Task<std::size_t> {
            std::size_t count = 0;
            while (auto chunk = co_await channel->receive()) count += chunk->size();
            co_return count;
        });
        co_await streaming.run();
        if (co_await reading != gibibyte) throw std::runtime_error("not all was delivered");
    });
}

void compareWays(benchmark::State& state, void (*ours)(), void (*bare)(), double most) {
    compareTimes(state, 1, wholly(ours), wholly(bare));
    aimAtRatio(state, most);
}

void comparePeaks(benchmark::State& state, void (*ours)(), double expected, double most) {
    double bytes = 0;
    for (auto _ : state) bytes = std::max(bytes, peakMemoryDuring(ours));
    noteBytes(state, bytes, expected);
    aimAtRatio(state, most);
}

const bool registered = [] {
    for (const std::size_t held : {std::size_t{0}, gibibyte}) {
        for (const int atATime : {1, 64}) {
            std::string name = "run true, " + std::to_string(atATime) + " at a time";
            if (held > 0) name += ", holding 1 GiB";
            benchmark::RegisterBenchmark(name.c_str(), launch, atATime, held)->UseManualTime();
        }
    }
    benchmark::RegisterBenchmark("capture 1 GiB", compareWays, captureOurs, captureBare, 1.0)
        ->UseManualTime();
    benchmark::RegisterBenchmark("capture 1 GiB: peak memory, to its size", comparePeaks,
                                 captureOurs, static_cast<double>(gibibyte), 1.05)
        ->Iterations(1);
    benchmark::RegisterBenchmark("stream 1 GiB through a channel", compareWays, streamOurs,
                                 streamBare, 1.25)
        ->UseManualTime();
    benchmark::RegisterBenchmark("stream 1 GiB: peak memory, to 1 MiB", comparePeaks, streamOurs,
                                 1048576.0, 1.0)
        ->Iterations(1);
    return true;
}();

} // namespace

} // namespace Bench
