#include <Platform/runtime/detail/Threads.h>

#include <pthread.h>
#include <support/Commands.h>

namespace Platform {
namespace {

/// Touches every page of an array of two mebibytes, from the stack's end that is in use.
[[gnu::noinline]] bool useStack() {
    volatile char bytes[2 << 20];
    for (std::size_t end = sizeof bytes; end >= 4096; end -= 4096) bytes[end - 1] = 1;
    return bytes[4095] == 1;
}

[[noreturn]] void useStacksOfThreads() {
    bool fits = result(detached([]() -> Task<bool> { co_return useStack(); }));
    SerialQueue queue("deep");
    std::promise<bool> answer;
    queue.submit([&] { answer.set_value(useStack()); });
    fits = answer.get_future().get() && fits;
    std::_Exit(fits ? 0 : 1);
}

} // namespace

// In a process whose threads get 512 KiB unless somebody asks for more, as they always do on macOS.
TEST(Thread, HasRoomForDeepCallbacks) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // starts the program anew, under the limit
    rlimit limit{};
    ::getrlimit(RLIMIT_STACK, &limit);
    limit.rlim_cur = 512 << 10;
    ASSERT_EQ(::setrlimit(RLIMIT_STACK, &limit), 0);
    EXPECT_EXIT(useStacksOfThreads(), testing::ExitedWithCode(0), "");
}

TEST(Thread, KeepsTheBeginningOfALongName) {
    const std::string name(100, 'x');
    detail::setThreadName(name.c_str());
    std::array<char, 200> found{};
    ASSERT_EQ(::pthread_getname_np(::pthread_self(), found.data(), found.size()), 0);
    EXPECT_NE(found[0], '\0');
    EXPECT_TRUE(name.starts_with(found.data())) << found.data();
}

} // namespace Platform
