#include "Children.h"

namespace Platform {

using ChildProcesses = CommandTest;

TEST_F(ChildProcesses, SayThatAllLowDescriptorsAreInUse) {
    constexpr int limit = 10240; // from here on posix_spawn takes none
    rlimit usual{};
    ::getrlimit(RLIMIT_NOFILE, &usual);
    rlimit raised = usual;
    raised.rlim_cur = std::max<rlim_t>(usual.rlim_cur, limit + 100);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &raised), 0);
    std::deque<FileDescriptor> all;
    while (all.empty() || all.back().get() < limit) {
        all.emplace_back(::open("/dev/null", O_RDWR | O_CLOEXEC));
        ASSERT_TRUE(all.back()) << errno;
    }
    std::string text;
    try {
        startShell(":");
    } catch (const Errno& error) {
        EXPECT_EQ(error.number(), EMFILE);
        text = error.what();
    }
    EXPECT_NE(text.find("/bin/sh (all descriptors below 10240 are in use)"), text.npos) << text;
    for (int i = 0; i < 3; ++i) all.pop_front();
    const FileDescriptor& high = all.back();
    const ChildProcess child = startShell("cat; exit 7", &high, &high);
    child.waitForEnd();
    EXPECT_EQ(child.status(), 7);
    all.clear();
    ::setrlimit(RLIMIT_NOFILE, &usual);
}

} // namespace Platform
