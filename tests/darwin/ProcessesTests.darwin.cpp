#include <Platform/command/detail/Pipe.h>

#include <poll.h>
#include <spawn.h>
#include <support/Testing.h>
#include <sys/epoll.h>
#include <sys/ptrace.h>
#include <sys/socket.h>

namespace Platform {
namespace {

using detail::makePipe;

template <class Function>
pid_t forked(Function function) {
    const pid_t child = ::fork();
    if (child != 0) return child;
    function();
    ::_exit(0);
}

int waitFor(pid_t child, int options, siginfo_t* info) {
    return ::waitid(P_PID, static_cast<id_t>(child), info, options) == 0 ? 0 : errno;
}

struct Spawn {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;

    Spawn() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~Spawn() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }

    int run(const std::string& path) const {
        char* arguments[] = {nullptr};
        pid_t child = -1;
        const int error =
            ::posix_spawn(&child, path.c_str(), &actions, &attributes, arguments, arguments);
        siginfo_t info;
        if (error == 0) waitFor(child, WEXITED, &info);
        return error;
    }
};

} // namespace

TEST(DarwinProcesses, AChildUnderADebuggerIsNotItsParents) {
    const pid_t child = forked([] { ::pause(); });
    auto [answer, answers] = makePipe();
    auto [end, ends] = makePipe();
    const pid_t debugger = forked([&] {
        ends.reset();
        answers.write(Data(::ptrace(PTRACE_SEIZE, child, nullptr, nullptr) == 0 ? "y" : "n"));
        end.readToEnd();
    });
    std::array<std::byte, 1> attached;
    answer.readData(attached);
    siginfo_t info{};
    const bool isAttached = attached[0] == std::byte{'y'};
    EXPECT_EQ(waitFor(child, WEXITED | WNOHANG, &info), isAttached ? ECHILD : 0);
    EXPECT_EQ(::kill(child, SIGKILL), 0);
    ends.reset();
    EXPECT_EQ(waitFor(debugger, WEXITED, &info), 0);
    EXPECT_EQ(waitFor(child, WEXITED, &info), 0);
    if (!isAttached) GTEST_SKIP() << "this system lets nobody debug";
}

TEST(DarwinProcesses, NothingIsToldOfAChildThatRuns) {
    const pid_t child = forked([] { ::pause(); });
    siginfo_t info;
    info.si_pid = 7;
    EXPECT_EQ(waitFor(child, WEXITED | WNOHANG, &info), 0);
    EXPECT_EQ(info.si_pid, 7);
    ::kill(child, SIGKILL);
    EXPECT_EQ(waitFor(child, WEXITED, &info), 0);
}

TEST(DarwinProcesses, AGroupOfZombiesCannotBeSignalled) {
    const pid_t child = forked([] { ::setpgid(0, 0); });
    siginfo_t info;
    EXPECT_EQ(waitFor(child, WEXITED | WNOWAIT, &info), 0);
    EXPECT_EQ(::kill(child, SIGTERM), 0);
    EXPECT_EQ(::kill(-child, SIGTERM), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(waitFor(child, WEXITED, &info), 0);
}

TEST(DarwinProcesses, OnlyTargetsOfActionsStayOpen) {
    auto [reader, writer] = makePipe();
    const FileDescriptor stays(::dup(writer.get())); // which an exec alone would not close
    Spawn spawn;
    EXPECT_EQ(posix_spawnattr_setflags(&spawn.attributes, POSIX_SPAWN_CLOEXEC_DEFAULT), 0);
    EXPECT_EQ(posix_spawn_file_actions_adddup2(&spawn.actions, writer.get(), 1), 0);
    EXPECT_EQ(posix_spawn_file_actions_adddup2(&spawn.actions, writer.get(), 40), 0);
    EXPECT_EQ(posix_spawn_file_actions_adddup2(&spawn.actions, writer.get(), writer.get()), 0);
    EXPECT_EQ(spawn.run(program("helper-child-state")), 0);
    std::array<std::byte, 4096> output;
    EXPECT_TRUE(reader.readData(output).view().starts_with("descriptors 1 40\n"));
}

TEST(DarwinProcesses, ALaunchRefusesLargeNumbersAndSignalsThatHaveNoHandler) {
    Spawn spawn;
    EXPECT_EQ(posix_spawn_file_actions_adddup2(&spawn.actions, 10'239, 1), 0);
    EXPECT_EQ(posix_spawn_file_actions_adddup2(&spawn.actions, 10'240, 1), EBADF);
    for (const int number : {SIGKILL, SIGSTOP, SIGTERM}) {
        Spawn refused;
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, number);
        posix_spawnattr_setflags(&refused.attributes, POSIX_SPAWN_SETSIGDEF);
        posix_spawnattr_setsigdefault(&refused.attributes, &set);
        EXPECT_EQ(refused.run("/bin/true"), number == SIGTERM ? 0 : EINVAL);
    }
}

// Linux does it by itself, which this relies on.
TEST(DarwinProcesses, ADyingOneClosesFromTheHighestNumberDown) {
    for (const bool socketIsHigher : {false, true}) {
        int pipe[2], sockets[2];
        for (const bool isSocket : {!socketIsHigher, socketIsHigher})
            ASSERT_EQ(isSocket ? ::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) : ::pipe(pipe), 0);
        const pid_t child = forked([] { ::pause(); });
        const FileDescriptor queue(::epoll_create1(EPOLL_CLOEXEC));
        for (const int descriptor : {pipe[0], sockets[0]}) {
            epoll_event event{EPOLLIN | EPOLLRDHUP, {.fd = descriptor}};
            ::epoll_ctl(queue.get(), EPOLL_CTL_ADD, descriptor, &event);
        }
        for (const int descriptor : {pipe[1], sockets[1]}) ::close(descriptor);
        ::kill(child, SIGKILL);
        siginfo_t info;
        EXPECT_EQ(waitFor(child, WEXITED, &info), 0);
        std::array<epoll_event, 2> events; // in the order in which they came
        EXPECT_EQ(::epoll_wait(queue.get(), events.data(), 2, -1), 2);
        EXPECT_EQ(events[0].data.fd, socketIsHigher ? sockets[0] : pipe[0]);
        for (const int descriptor : {pipe[0], sockets[0]}) ::close(descriptor);
    }
}

} // namespace Platform
