#include "Children.h"

namespace Platform {

TEST(ChildProcess, StartsFreshWhateverTheHostIsLike) {
    const NobodyLeft check;
    const Scratch scratch;
    const FileDescriptor stray(
        ::open("/dev/null", O_RDONLY)); // another library's: not close-on-exec
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
    const std::string here = std::filesystem::current_path(),
                      there = std::filesystem::canonical("/usr/lib/.");
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

TEST(ChildProcess, TakesDescriptorsFromAnywhere) {
    const NobodyLeft check;
    const std::array<int, 3> standard{0, 1, 2};
    std::array<int, 3> saved{}, order = standard;
    for (const int number : standard)
        saved[static_cast<std::size_t>(number)] = ::fcntl(number, F_DUPFD_CLOEXEC, 50);
    const auto restore = [&] {
        for (const int number : standard) ::dup2(saved[static_cast<std::size_t>(number)], number);
    };
    const std::string path = "/bin/sh", arguments[] = {"-c", "cat; echo said >&2"};
    do { // The host's standard descriptors are the very pipes, in any order; or closed: the null
         // device then.
        Pipe in = makePipe(), out = makePipe(), error = makePipe();
        in.writing.write(Data("given "));
        in.writing.reset();
        const std::array<int, 3> ends{in.reading.get(), out.writing.get(), error.writing.get()};
        for (std::size_t i = 0; i < 3; ++i) ::dup2(ends[i], order[i]);
        in.reading.reset(), out.writing.reset(), error.writing.reset();
        const ChildProcess child =
            ChildProcess::launch({.path = path, .arguments = arguments, .descriptors = order});
        for (const int number : standard) FileDescriptor(number).reset();
        const ChildProcess quiet = startShell("cat && echo x && echo x >&2");
        quiet.waitForEnd(); // its own descriptor is one of those
        restore();
        EXPECT_EQ(out.reading.readToEnd().view(), "given ");
        EXPECT_EQ(error.reading.readToEnd().view(), "said\n");
        EXPECT_EQ(quiet.status(), 0) << "the null device, though 0, 1 and 2 were closed";
    } while (std::next_permutation(order.begin(), order.end()));
    for (const int number : saved) FileDescriptor(number).reset();
}

static std::string failure(const Launch& launch) {
    try {
        ChildProcess::launch(launch);
    } catch (const std::system_error& error) {
        return error.what();
    }
    return "started";
}

TEST(ChildProcess, SaysWhichFileAFailedLaunchIsAbout) {
    const NobodyLeft check;
    const Scratch scratch;
    const auto file = [&](const char* name, const std::string& contents, mode_t mode) {
        ::chmod(write(scratch / name, contents).c_str(), mode);
        return scratch / name;
    };
    const std::string none = scratch / "none", sh = "/bin/sh", plain = file("plain", "x", 0600);
    const std::string below = plain + "/x";
    const std::string script = file("script", "#! " + none + " -x\n", 0700);
    const std::string orphan = file("orphan", "nothing\n", 0700);
    const std::string huge[] = {std::string(4 << 20, 'x')};
    const std::string hidden[] = {std::string("secret\0", 7)};
    const std::string nul("/bin/sh\0x", 9);
    const std::map<std::string, std::string> equals{{"A=secret", "1"}}, empty{{"", "1"}},
        zero{{"A", std::string("\0", 1)}};
    const std::string gone = ": No such file or directory", denied = ": Permission denied";
    const std::string invalid = ": Invalid argument";
    const struct {
        Launch launch;
        std::string text;
    } cases[] = {
        {{.path = none}, none + gone},
        {{.path = plain}, plain + denied},
        {{.path = below}, below + ": Not a directory"},
        {{.path = script}, none + " (the interpreter of " + script + ")" + gone},
        {{.path = orphan}, orphan + ": Exec format error"},
        {{.path = sh, .workingDirectory = &none},
         none + " (the working directory for /bin/sh)" + gone},
        {{.path = sh, .workingDirectory = &plain},
         plain + " (the working directory for /bin/sh): Not a directory"},
        {{.path = sh, .arguments = huge},
         sh + " (arguments and environment together): Argument list too long"},
        {{.path = sh, .arguments = hidden}, sh + " (a NUL in an argument)" + invalid},
        {{.path = nul}, sh + " (a NUL in the path)" + invalid},
        {{.path = sh, .environment = &zero}, sh + " (a NUL in a variable)" + invalid},
        {{.path = sh, .environment = &equals},
         sh + " (a variable's name is empty or has a '=')" + invalid},
        {{.path = sh, .environment = &empty},
         sh + " (a variable's name is empty or has a '=')" + invalid},
    };
    for (const auto& [launch, text] : cases) EXPECT_EQ(failure(launch), text);

    const struct {
        SystemCall call;
        int number;
    } faults[] = {
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

TEST(ChildProcess, ReportsHowItEnded) {
    const NobodyLeft check;
    for (const int status : {0, 1, 127, 255}) {
        const ChildProcess child = startShell("exit " + std::to_string(status));
        child.waitForEnd();
        EXPECT_EQ(child.status(), status);
    }
    for (const int number : {SIGINT, SIGTERM, SIGKILL, SIGSEGV}) {
        const ChildProcess child = startShell("kill -STOP $$");
        EXPECT_TRUE(child.isRunning());
        EXPECT_FALSE(child.waitForEnd(std::chrono::milliseconds(0)));
        EXPECT_TRUE(child.sendSignal(number));
        child.sendSignal(SIGCONT);
        child.waitForEnd();
        EXPECT_EQ(child.status(), number);
        EXPECT_FALSE(child.isRunning());
        EXPECT_FALSE(child.sendSignal(0)) << "the id is somebody else's now";
    }
    // The host has its children's ends thrown away while one runs: an error, nobody hangs.
    const ChildProcess lost = startShell("kill -STOP $$");
    std::signal(SIGCHLD, SIG_IGN);
    lost.sendSignal(SIGKILL);
    lost.waitForEnd();
    EXPECT_EQ(thrownNumber([&] { lost.status(); }), ECHILD);
    std::signal(SIGCHLD, SIG_DFL);
}

TEST(ChildProcess, TheGroupOutlivesItsLeaderOnlyWhereTheIdIsHeld) {
    const NobodyLeft check;
    for (const bool holds : {true, false}) {
        Pipe in = makePipe(), out = makePipe();
        const ChildProcess leader =
            startShell("exec 3<&0; cat <&3 & exit 7", &out.writing, &in.reading, holds);
        out.writing.reset();
        leader.waitForEnd();
        EXPECT_EQ(leader.status(), 7);
        EXPECT_FALSE(leader.isRunning());
        EXPECT_EQ(leader.sendSignalToGroup(SIGKILL), holds);
        if (!holds) in.writing.reset();
        EXPECT_TRUE(out.reading.readToEnd().empty()) << "ends once the one left behind has";
    }
}

namespace {

/// Counts its calls; and each while nobody may call.
struct Counter : detail::ProcessEndObserver {
    void processEnded() noexcept override { ++calls; }
    std::atomic<int> calls = 0;
};

} // namespace

TEST(ChildProcess, TellsAnObserverOnceOrNeverAfterItsStop) {
    const NobodyLeft check;
    std::minstd_rand random(7);
    int told = 0;
    for (int round = 0; round < 8; ++round) {
        std::array<Counter, 40> observers;
        std::vector<ChildProcess> children;
        for (Counter& observer : observers) {
            children.push_back(startShell(":"));
            if (!children.back().observeEnd(observer)) observer.calls = 1;
        }
        for (std::size_t i = 0; i < observers.size(); ++i) {
            if (random() % 2 == 0) children[i].waitForEnd();
            if (random() % 4 == 0) children[i].sendSignalToGroup(SIGKILL);
            const bool stopped = children[i].stopObserving(observers[i]);
            const int calls = observers[i].calls;
            EXPECT_EQ(calls, stopped ? 0 : 1);
            told += calls;
            if (random() % 4 == 0)
                children[i] = {};
            else
                children[i].waitForEnd();
            EXPECT_EQ(observers[i].calls, calls);
        }
    }
    EXPECT_GT(told, 0);
}

} // namespace Platform
