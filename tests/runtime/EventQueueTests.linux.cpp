#include <Platform/runtime/detail/EventQueue.h>

#include <support/Testing.h>

namespace Platform {

// A process that may open nothing may not poll either.
TEST(EventQueue, DoesNotSpinWhereTheSystemCannotWait) {
    const detail::EventQueue queue;
    rlimit usual{};
    ::getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none{0, usual.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto start = std::chrono::steady_clock::now();
    queue.wait();
    const auto time = std::chrono::steady_clock::now() - start;
    ::setrlimit(RLIMIT_NOFILE, &usual);
    EXPECT_GE(time, std::chrono::milliseconds(1));
}

} // namespace Platform
