#include <support/Testing.h>
#include <sys/prctl.h>

namespace Platform {

TEST(Mach, CountsTheThreadsOfThisProcess) {
    // A name that looks like the end of itself.
    ::prctl(PR_SET_NAME, ") R 1 1 1 1 1", 0, 0, 0);
    std::thread([] {}).join(); // with the first, a sanitizer may start one of its own
    const auto before = Mach::numberOfActiveThreads();
    ASSERT_GE(before, 1);
    constexpr int extra = 20;
    std::latch done(1);
    std::vector<std::future<void>> threads; // waits for them when it goes
    for (int i = 0; i < extra; ++i)
        threads.push_back(std::async(std::launch::async, [&] { done.wait(); }));
    EXPECT_EQ(Mach::numberOfActiveThreads(), *before + extra);
    done.count_down();
}

TEST(Mach, SaysNothingWhenTheSystemDoesNot) {
    const NothingLeft nothingLeft;
    for (const auto call : {SystemCall::open, SystemCall::read}) {
        const Faults failing(Faults::failing(call, EMFILE));
        EXPECT_FALSE(Mach::numberOfActiveThreads());
    }
}

} // namespace Platform
