#include <support/Testing.h>

namespace Platform {

static sigset_t blocked(std::initializer_list<int> numbers) {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : numbers) sigaddset(&set, number);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return set;
}

static int next(const sigset_t& set) {
    int number = 0;
    EXPECT_EQ(sigwait(&set, &number), 0);
    return number;
}

TEST(DarwinSignals, WithoutAHandlerWhatIsIgnoredByDefaultNeverComes) {
    for (const int number : {SIGCHLD, SIGIO, SIGURG, SIGWINCH}) {
        const sigset_t set = blocked({number, SIGTERM});
        ::raise(number);
        ::raise(SIGTERM);
        EXPECT_EQ(next(set), SIGTERM);
        struct sigaction action{};
        action.sa_handler = [](int) {};
        ::sigaction(number, &action, nullptr);
        ::raise(SIGTERM);
        EXPECT_EQ(next(set), SIGTERM) << "what came before is gone";
        ::raise(number);
        EXPECT_EQ(next(set), number);
    }
}

TEST(DarwinSignals, ASecondOneMayBeHandledWhileAWaiterWakes) {
    static std::atomic<int> handled, seen;
    struct sigaction action{};
    action.sa_handler = [](int) { ++handled; };
    ::sigaction(SIGUSR2, &action, nullptr);
    const sigset_t set = blocked({SIGUSR1, SIGUSR2, SIGTERM});
    std::thread waiter([&set] {
        while (next(set) != SIGTERM) ++seen;
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (int sent = 2; handled == 0 && std::chrono::steady_clock::now() < deadline; sent += 2) {
        ::pthread_kill(waiter.native_handle(), SIGUSR1);
        ::pthread_kill(waiter.native_handle(), SIGUSR2);
        while (handled + seen < sent) std::this_thread::yield();
    }
    ::pthread_kill(waiter.native_handle(), SIGTERM);
    waiter.join();
    EXPECT_EQ(handled, 1);
}

} // namespace Platform
