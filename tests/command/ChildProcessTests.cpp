#include "Children.h"

namespace Platform {

using ChildProcesses = CommandTest;

TEST_F(ChildProcesses, StartFreshWhateverTheHostIsLike) {
    // Another library's: not close-on-exec.
    const FileDescriptor stray(::open("/dev/null", O_RDONLY));
    const FileDescriptor far(::fcntl(stray.get(), F_DUPFD, 900));
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGUSR1, [](int) {});
    sigset_t interrupt, mask;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, &mask);

    const std::string path = program("helper-child-state");
    const std::string arguments[] = {"", "a b", "\xff\n"};
    const std::map<std::string, std::string> none, some{{"B", "=2="}, {"A", ""}};
    const std::string here = std::filesystem::current_path(), there = "/usr/bin";
    const std::string start = "descriptors 0 1 2\nsignals\nleads group";
    EXPECT_EQ(outputOf({.path = path, .environment = &none}),
              start + "\nfolder " + here + "\narguments\nenvironment\n");
    EXPECT_EQ(outputOf({.path = path,
                        .arguments = arguments,
                        .environment = &some,
                        .workingDirectory = &there,
                        .group = detail::ProcessGroup::ownInNewSession}),
              start + " session\nfolder " + there +
                  "\narguments <> <a b> <\xff\n>\nenvironment <A=> <B==2=>\n");
    const Variable variable("INHERITED", "yes");
    EXPECT_NE(outputOf({.path = path}).find(" <INHERITED=yes>"), std::string::npos);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

TEST_F(ChildProcesses, TakeDescriptorsFromAnywhere) {
    std::array<int, 3> order{0, 1, 2};
    std::vector<FileDescriptor> saved;
    for (const int number : order) saved.emplace_back(::fcntl(number, F_DUPFD_CLOEXEC, 50));
    const std::string path = "/bin/sh", arguments[] = {"-c", "cat; echo said >&2"};
    do { // The host's standard descriptors are the very pipes, in any order; or closed: the null
         // device then.
        Pipe in = makePipe(), out = makePipe(), error = makePipe();
        in.writing.write(Data("given "));
        in.writing.reset();
        FileDescriptor* const ends[] = {&in.reading, &out.writing, &error.writing};
        for (std::size_t i = 0; i < 3; ++i) ::dup2(ends[i]->get(), order[i]);
        for (FileDescriptor* const end : ends) end->reset();
        const ChildProcess child =
            ChildProcess::launch({.path = path, .arguments = arguments, .descriptors = order});
        for (const int number : order) FileDescriptor(number).reset();
        const ChildProcess quiet = startShell("cat && echo x && echo x >&2");
        quiet.waitForEnd(); // its own descriptor is one of those
        for (int number = 0; number < 3; ++number)
            ::dup2(saved[static_cast<std::size_t>(number)].get(), number);
        EXPECT_EQ(out.reading.readToEnd().view(), "given ");
        EXPECT_EQ(error.reading.readToEnd().view(), "said\n");
        EXPECT_EQ(quiet.status(), 0) << "the null device, though 0, 1 and 2 were closed";
    } while (std::next_permutation(order.begin(), order.end()));
}

static std::string failure(const Launch& launch) {
    try {
        ChildProcess::launch(launch);
    } catch (const std::system_error& error) {
        return error.what();
    }
    return "started";
}

TEST_F(ChildProcesses, SayWhichFileAFailedLaunchIsAbout) {
    const auto file = [&](const char* name, const std::string& contents, mode_t mode) {
        ::chmod(write(scratch / name, contents).c_str(), mode);
        return scratch / name;
    };
    const std::string none = scratch / "none", sh = "/bin/sh", plain = file("plain", "x", 0600);
    const std::string below = plain + "/x", nul("/bin/sh\0x", 9);
    const std::string script = file("script", "#! " + none + " -x\n", 0700);
    const std::string orphan = file("orphan", "nothing\n", 0700);
    const std::string huge[] = {std::string(4 << 20, 'x')}, hidden[] = {"secret\0"s};
    const std::map<std::string, std::string> equals{{"A=secret", "1"}}, empty{{"", "1"}},
        zero{{"A", "\0"s}};
    const std::string gone = ": No such file or directory", invalid = ": Invalid argument";
    const std::string folder = " (the working directory for /bin/sh)", other = ": Not a directory";
    const std::string badName = sh + " (a variable's name is empty or has a '=')" + invalid;
    const std::pair<Launch, std::string> cases[] = {
        {{.path = none}, none + gone},
        {{.path = plain}, plain + ": Permission denied"},
        {{.path = below}, below + other},
        {{.path = script}, none + " (the interpreter of " + script + ")" + gone},
        {{.path = orphan}, orphan + ": Exec format error"},
        {{.path = sh, .workingDirectory = &none}, none + folder + gone},
        {{.path = sh, .workingDirectory = &plain}, plain + folder + other},
        {{.path = sh, .arguments = huge},
         sh + " (arguments and environment together): Argument list too long"},
        {{.path = sh, .arguments = hidden}, sh + " (a NUL in an argument)" + invalid},
        {{.path = nul}, sh + " (a NUL in the path)" + invalid},
        {{.path = sh, .environment = &zero}, sh + " (a NUL in a variable)" + invalid},
        {{.path = sh, .environment = &equals}, badName},
        {{.path = sh, .environment = &empty}, badName},
    };
    for (const auto& [launch, text] : cases) EXPECT_EQ(failure(launch), text);

    const std::map<SystemCall, int> faults{
        {SystemCall::open, EMFILE}, {SystemCall::spawn, EAGAIN}, {SystemCall::watch, ENOSPC}};
    for (const auto& [call, number] : faults) {
        const Faults fault(Faults::failing(call, number));
        EXPECT_EQ(failure({.path = sh}), Errno(number, sh).what());
    }
    const Faults interrupted(Faults::failing(SystemCall::spawn, EINTR, 3));
    EXPECT_EQ(failure({.path = sh}), "started");
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(failure({.path = sh}), sh + " (this process ignores SIGCHLD): No child processes");
    std::signal(SIGCHLD, SIG_DFL);
}

TEST_F(ChildProcesses, TakeDescriptorsHoweverHigh) {
    constexpr int high = 10'300;
    rlimit usual{};
    ::getrlimit(RLIMIT_NOFILE, &usual);
    if (usual.rlim_max < high + 100) GTEST_SKIP() << "may not have so many descriptors";
    rlimit raised = usual;
    raised.rlim_cur = std::max<rlim_t>(usual.rlim_cur, high + 100);
    ::setrlimit(RLIMIT_NOFILE, &raised);
    Pipe in = makePipe(), out = makePipe();
    const auto lift = [](FileDescriptor& end) {
        end = FileDescriptor(::fcntl(end.get(), F_DUPFD_CLOEXEC, high));
    };
    lift(in.reading);
    lift(out.writing);
    ASSERT_GE(in.reading.get(), high);
    in.writing.write(Data("given "));
    in.writing.reset();
    const ChildProcess child = startShell("cat; echo said", &out.writing, &in.reading);
    out.writing.reset();
    EXPECT_EQ(out.reading.readToEnd().view(), "given said\n");
    child.waitForEnd();
    in.reading.reset();
    ::setrlimit(RLIMIT_NOFILE, &usual);
}

// While a debugger traces a child, waitid says on macOS that there is no such child.
TEST_F(ChildProcesses, StayOursWhileTheSystemDeniesIt) {
    const ChildProcess child = startShell("exec tail -f /dev/null");
    {
        const Faults fault(Faults::failing(SystemCall::wait, ECHILD, 1'000));
        EXPECT_TRUE(child.isRunning());
        EXPECT_TRUE(child.sendSignal(0));
        EXPECT_TRUE(child.sendSignalToGroup(0));
    }
    EXPECT_TRUE(child.sendSignalToGroup(SIGTERM));
    child.waitForEnd();
    EXPECT_FALSE(child.isRunning());
    EXPECT_EQ(thrownNumber([&] { EXPECT_EQ(child.status(), SIGTERM); }), 0);
}

TEST_F(ChildProcesses, AreGoneOnceOthersHaveCollectedThem) {
    Pipe in = makePipe();
    const ChildProcess child = startShell("exec cat", nullptr, &in.reading, true);
    std::atomic<bool> collects = false; // the end is not noted before
    const Faults holdUp([&](SystemCall call, std::size_t*) {
        if (call == SystemCall::wait) collects.wait(false);
        return 0;
    });
    in.reading.reset();
    in.writing.reset();
    EXPECT_EQ(::waitpid(child.id(), nullptr, 0), child.id());
    collects = true;
    collects.notify_all();
    EXPECT_FALSE(child.isRunning());
    child.waitForEnd();
    EXPECT_FALSE(child.sendSignal(0));
    EXPECT_FALSE(child.sendSignalToGroup(0));
    EXPECT_EQ(thrownNumber([&] { child.status(); }), ECHILD);
}

// An error, and nobody hangs.
TEST_F(ChildProcesses, MayHaveTheirEndThrownAwayByTheHost) {
    const ChildProcess lost = startShell("kill -STOP $$");
    EXPECT_TRUE(lost.isRunning());
    EXPECT_FALSE(lost.waitForEnd(std::chrono::milliseconds(0)));
    std::signal(SIGCHLD, SIG_IGN);
    lost.sendSignal(SIGKILL);
    lost.waitForEnd();
    EXPECT_EQ(thrownNumber([&] { lost.status(); }), ECHILD);
    std::signal(SIGCHLD, SIG_DFL);
}

TEST_F(ChildProcesses, LeaveAGroupThatIsReachedOnlyWhereTheIdIsHeld) {
    for (const bool holds : {true, false}) {
        Pipe in = makePipe(), out = makePipe();
        const ChildProcess leader =
            startShell("exec 3<&0; cat <&3 & exit 255", &out.writing, &in.reading, holds);
        out.writing.reset();
        leader.waitForEnd();
        EXPECT_EQ(leader.status(), 255);
        EXPECT_FALSE(leader.isRunning());
        EXPECT_FALSE(leader.sendSignal(0)) << "also where the id is still its own";
        EXPECT_EQ(leader.sendSignalToGroup(SIGKILL), holds);
        if (!holds) in.writing.reset();
        EXPECT_TRUE(out.reading.readToEnd().empty()) << "ends once the one left behind has";
    }
}

TEST_F(ChildProcesses, TellAnObserverOnceOrNeverAfterItsStop) {
    struct Counter : detail::ProcessEndObserver {
        void processEnded() noexcept override { ++calls; }
        std::atomic<int> calls = 0;
    };
    int told = 0;
    for (int round = 0; round < 320; ++round) {
        Counter observer;
        const ChildProcess child = startShell(":");
        const bool observes = child.observeEnd(observer);
        if (round % 2 == 0) child.waitForEnd(); // the observer is told just then
        const bool stopped = child.stopObserving(observer);
        const int calls = observer.calls;
        EXPECT_EQ(calls, observes && !stopped ? 1 : 0);
        told += calls;
        child.waitForEnd();
        EXPECT_EQ(observer.calls, calls);
    }
    EXPECT_GT(told, 0);
}

} // namespace Platform
