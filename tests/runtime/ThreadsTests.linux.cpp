#include <Platform/runtime/detail/Threads.h>

#include <support/Testing.h>

namespace Platform {

TEST(Thread, IsAnErrorWhereThereIsNoRoomForItsStack) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need more address space than a limit leaves them";
#endif
    rlim_t pages = 0; // of address space, as it is
    std::ifstream("/proc/self/statm") >> pages;
    rlimit usual{};
    ::getrlimit(RLIMIT_AS, &usual);
    const rlimit limit{pages * static_cast<rlim_t>(::getpagesize()) + (4 << 20), usual.rlim_max};
    ::setrlimit(RLIMIT_AS, &limit);
    EXPECT_EQ(thrownNumber([] { detail::Thread([] {}).join(); }), EAGAIN);
    ::setrlimit(RLIMIT_AS, &usual);
    bool ran = false;
    detail::Thread thread([&] { ran = true; });
    EXPECT_NE(thread.id(), detail::Thread::currentId());
    detail::Thread owner;
    owner = std::move(thread);
    EXPECT_FALSE(thread.id()); // NOLINT: what a moved-from owner is, is promised
    owner.join();
    EXPECT_TRUE(ran);
    EXPECT_FALSE(owner.id());
}

} // namespace Platform
