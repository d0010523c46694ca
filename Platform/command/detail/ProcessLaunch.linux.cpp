#include <Platform/command/detail/ProcessLaunch.h>

#include <Platform/base/detail/SystemCall.h>
#include <Platform/command/detail/CloneProcess.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

// The child runs in this process's memory until it becomes the program, while the thread that
// started it stands still. So it makes plain system calls only: the C library's own functions, and
// what sanitizers put in front of them or add to the code, would note things about this process.
#define UNSANITIZED                                                                                \
    __attribute__((no_sanitize("address"), no_sanitize("thread"), no_sanitize("undefined")))

namespace Platform::detail {

namespace {

constexpr int signalCount = 64;
constexpr std::uint64_t allSignals = ~std::uint64_t{0};
constexpr std::size_t signalSetSize = signalCount / 8; // the kernel's, not the C library's

struct Child {
    const LaunchPlan& plan;
    std::uint64_t resetSignals; ///< A bit for each signal whose disposition has to be reset.
    LaunchFailure failure;      ///< Written by the child.
};

struct DirectoryEntry { // as the system lays it out
    std::uint64_t inode;
    std::int64_t next;
    unsigned short size;
    unsigned char type;
    char name[1];
};

UNSANITIZED bool failed(long result) noexcept {
    return result == -1;
}

/// Sees to it that no descriptor above 2 reaches the program. False, with `errno`: not possible.
UNSANITIZED bool closeOthers() noexcept {
    if (!failed(::syscall(SYS_close_range, 3U, ~0U, 0U))) return true;
    // A kernel or a sandbox without that call: one by one, those that there are.
    const long folder = ::syscall(SYS_openat, AT_FDCWD, "/proc/self/fd", O_RDONLY | O_DIRECTORY);
    if (failed(folder)) return false;
    alignas(DirectoryEntry) char entries[1024];
    for (;;) {
        const long size = ::syscall(SYS_getdents64, folder, entries, sizeof entries);
        if (size <= 0) return size == 0;
        for (long at = 0; at < size;) {
            const auto* const entry = reinterpret_cast<const DirectoryEntry*>(entries + at);
            int number = 0;
            for (const char* digit = entry->name; *digit >= '0' && *digit <= '9'; ++digit) {
                number = number * 10 + (*digit - '0');
            }
            if (number > 2 && failed(::syscall(SYS_fcntl, number, F_SETFD, FD_CLOEXEC))) {
                return false;
            }
            at += entry->size;
        }
    }
}

/// Becomes the program. Returns the stage that failed, with `errno`.
UNSANITIZED LaunchStage becomeProgram(const Child& child) noexcept {
    const LaunchPlan& plan = child.plan;
    const char byDefault[64] = {}; // the kernel's action: no handler, no flags, no mask
    for (int signal = 1; signal <= signalCount; ++signal) {
        if ((child.resetSignals >> (signal - 1) & 1) == 0) continue;
        ::syscall(SYS_rt_sigaction, signal, byDefault, nullptr, signalSetSize);
    }
    if (plan.group == ProcessGroup::own && failed(::syscall(SYS_setpgid, 0, 0))) {
        return LaunchStage::start;
    }
    if (plan.group == ProcessGroup::ownInNewSession && failed(::syscall(SYS_setsid))) {
        return LaunchStage::start;
    }
    if (plan.workingDirectory && failed(::syscall(SYS_chdir, plan.workingDirectory))) {
        return LaunchStage::workingDirectory;
    }
    for (int number = 0; number < 3; ++number) {
        const int from = plan.descriptors[static_cast<std::size_t>(number)];
        if (failed(::syscall(SYS_dup3, from, number, 0))) return LaunchStage::start;
    }
    if (!closeOthers()) return LaunchStage::start;
    const std::uint64_t noSignals = 0;
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &noSignals, nullptr, signalSetSize);
    ::syscall(SYS_execve, plan.path, plan.arguments, plan.environment);
    return LaunchStage::execute;
}

UNSANITIZED int runChild(void* data) noexcept {
    auto& child = *static_cast<Child*>(data);
    child.failure.stage = becomeProgram(child);
    child.failure.number = errno;
    for (;;) ::syscall(SYS_exit_group, 127);
}

/// This process's status, kept open for good: to open it takes as long as to read it.
class OwnStatus {
public:
    /// Returns how much of it was read.
    std::size_t read(std::span<char> text) noexcept {
        const std::lock_guard guard(mutex_);
        if (!isOpen()) {
            // Whoever closed the one before may have got its number since.
            file_ = trySystemCall(SystemCall::open,
                                  [] { return ::open("/proc/self/status", O_RDONLY | O_CLOEXEC); });
            ::fstat(file_, &opened_);
        }
        const auto size = trySystemCall(SystemCall::read, text.size(), [&](std::size_t most) {
            return ::pread(file_, text.data(), most, 0);
        });
        return size > 0 ? static_cast<std::size_t>(size) : 0;
    }

private:
    bool isOpen() const noexcept {
        struct stat now;
        return ::fstat(file_, &now) == 0 && now.st_dev == opened_.st_dev &&
               now.st_ino == opened_.st_ino;
    }

    std::mutex mutex_;
    int file_ = -1;
    struct stat opened_ = {};
};

/// A bit for each signal that this process ignores, all of them where that cannot be told: reading
/// it costs much less than to reset every signal in each child.
std::uint64_t ignoredSignals() noexcept {
    static OwnStatus status;
    std::array<char, 4096> text;
    constexpr std::string_view label = "\nSigIgn:\t";
    const std::string_view all(text.data(), status.read(text));
    const std::size_t start = all.find(label);
    const std::size_t end = all.find('\n', start + label.size());
    std::uint64_t signals = allSignals;
    if (start != all.npos && end != all.npos) {
        std::from_chars(all.data() + start + label.size(), all.data() + end, signals, 16);
    }
    return signals;
}

/// Blocks every signal: a handler must not run in a child that shares our memory.
class AllSignalsBlocked {
public:
    AllSignalsBlocked() noexcept { change(allSignals, &before_); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
    ~AllSignalsBlocked() { change(before_, nullptr); }

private:
    // The C library's function leaves its own signals out, whose handlers must not run either.
    static void change(std::uint64_t mask, std::uint64_t* before) noexcept {
        ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &mask, before, signalSetSize);
    }

    std::uint64_t before_ = 0;
};

} // namespace

LaunchedProcess launchProcess(const LaunchPlan& plan, LaunchFailure& failure) noexcept {
    Child child{plan, ignoredSignals(), {}};
    LaunchedProcess process;
    int identity = -1;
    {
        const AllSignalsBlocked blocked;
        process.id = static_cast<int>(trySystemCall(SystemCall::spawn, [&] {
            const long id = cloneWithoutHandlers(runChild, &child, identity);
            if (id != -1 || (errno != ENOSYS && errno != EPERM && errno != EINVAL)) return id;
            child.resetSignals = allSignals;
            return cloneWithHandlers(runChild, &child, identity);
        }));
    }
    if (process.id == -1) {
        failure.number = errno;
        return process;
    }
    process.identity = FileDescriptor(identity);
    if (child.failure.number == 0) return process;
    failure = child.failure;
    siginfo_t ignored;
    trySystemCall(SystemCall::wait, [&] {
        return ::waitid(P_PID, static_cast<id_t>(process.id), &ignored, WEXITED);
    });
    return {};
}

} // namespace Platform::detail
