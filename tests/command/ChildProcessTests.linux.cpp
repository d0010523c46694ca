#include "Children.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <support/Commands.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>

namespace Platform {

using ChildProcesses = CommandTest;

/// This thread, and what it starts, is a sandbox that knows neither call.
static void forbidNewCalls() {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_close_range, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{5, filter};
    ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

TEST_F(ChildProcesses, StartFreshInASandboxWithoutTheNewCalls) {
    std::vector<FileDescriptor> strays;
    for (int i = 0; i < 100; ++i) strays.emplace_back(::open("/dev/null", O_RDONLY));
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGRTMAX, [](int) {});
    std::thread([] {
        forbidNewCalls();
        const std::map<std::string, std::string> none;
        const std::string path = program("helper-child-state"), missing = "/none";
        const std::string state = outputOf({.path = path, .environment = &none});
        EXPECT_TRUE(state.starts_with("descriptors 0 1 2\nsignals\nleads group\n")) << state;
        EXPECT_EQ(thrownNumber([&] { ChildProcess::launch({.path = missing}); }), ENOENT);
    }).join();
}

TEST(ChildProcess, HoldsUpNobodyWhileADebuggerKeepsItsEnd) {
    const NobodyLeft check;
    const ChildProcess traced = startShell("exec tail -f /dev/null");
    Pipe said = makePipe();
    const pid_t debugger = ::fork();
    if (debugger == 0) {
        const bool seized = ::ptrace(PTRACE_SEIZE, traced.id(), nullptr, nullptr) == 0;
        if (::write(said.writing.get(), seized ? "y" : "n", 1) != 1) ::_exit(1);
        for (;;) ::pause();
    }
    said.writing.reset();
    std::array<char, 1> answer{};
    ASSERT_EQ(::read(said.reading.get(), answer.data(), 1), 1);
    EXPECT_TRUE(traced.isRunning());
    EXPECT_TRUE(traced.sendSignalToGroup(SIGCONT));
    EXPECT_TRUE(traced.sendSignal(SIGKILL));
    EXPECT_TRUE(startShell(":").waitForEnd(std::chrono::seconds(60)));
    if (answer[0] == 'y') {
        EXPECT_TRUE(traced.isRunning()) << "as far as can be told";
        EXPECT_TRUE(traced.sendSignal(SIGKILL));
    }
    ::kill(debugger, SIGKILL);
    EXPECT_EQ(::waitpid(debugger, nullptr, 0), debugger);
    traced.waitForEnd();
    EXPECT_EQ(traced.endingSignal(), SIGKILL);
    if (answer[0] == 'n') GTEST_SKIP() << "this system lets nobody debug";
}

TEST(ByteScanner, IsAsItWasWhenThereIsNoMemoryForAPiece) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need more address space than a limit leaves them";
#endif
    ByteScanner scanner;
    scanner.append("first\n" + std::string(64 << 20, 'x') + "|tail\n");
    EXPECT_EQ(scanner.viewTo("i", false), "f");
    rlim_t pages = 0; // of address space, as it is
    std::ifstream("/proc/self/statm") >> pages;
    rlimit usual{};
    ::getrlimit(RLIMIT_AS, &usual);
    const rlimit limit{pages * static_cast<rlim_t>(::getpagesize()) + (16 << 20), usual.rlim_max};
    ::setrlimit(RLIMIT_AS, &limit);
    EXPECT_THROW(scanner.scanTo("|", true), std::bad_alloc);
    EXPECT_THROW(scanner.scanToAnyOf("|", true), std::bad_alloc);
    EXPECT_THROW(scanner.finish(), std::bad_alloc);
    ::setrlimit(RLIMIT_AS, &usual);
    EXPECT_EQ(scanner.offset(), 1U);
    EXPECT_EQ(scanner.viewToEndOfLine(true), "irst");
    EXPECT_EQ(scanner.viewTo("|", true)->size(), std::size_t{64 << 20});
    EXPECT_EQ(scanner.viewToEndOfLine(true), "tail");
}

TEST(Cmd, EndsACaptureThatHasNoMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need more address space than a limit leaves them";
#endif
    // Whether the program ends or not: it loses who reads it.
    for (const char* const writes : {"head -c 3G /dev/zero", "exec cat /dev/zero"}) {
        const auto refused = run({"sh", "-c", "ulimit -v 300000; exec \"$@\"", "sh",
                                  program("example-capture-output"), "/bin/sh", "-c", writes});
        EXPECT_EQ(refused.status, 1);
        EXPECT_EQ(refused.errors, "std::bad_alloc\n");
    }
}

} // namespace Platform
