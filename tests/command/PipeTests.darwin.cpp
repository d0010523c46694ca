#include <Platform/command/detail/Pipe.h>

#include <support/Testing.h>

namespace Platform {
namespace {

/// Whether a descriptor above the standard ones and not in `known` would get through an exec.
bool hasStray(const std::array<bool, 256>& known) noexcept {
    for (int number = 3; number < 256; ++number) {
        const int flags = ::fcntl(number, F_GETFD);
        if (flags != -1 && (flags & FD_CLOEXEC) == 0 && !known[static_cast<std::size_t>(number)])
            return true;
    }
    return false;
}

} // namespace

// One thread makes pipes, and dawdles before it marks them; another forks just then.
TEST(Pipe, IsNeverHalfMadeInAForkedChild) {
    std::array<bool, 256> known{};
    for (std::size_t number = 0; number < known.size(); ++number)
        known[number] = ::fcntl(static_cast<int>(number), F_GETFD) == 0;
    std::atomic<int> born = 0;
    std::atomic<bool> stops = false;
    const Faults dawdling([&](SystemCall call, std::size_t*) {
        if (call != SystemCall::fcntl) return 0;
        ++born;
        for (int i = 0; i < 100; ++i) std::this_thread::yield();
        return 0;
    });
    std::thread making([&] {
        while (!stops) detail::makePipe();
    });
    int strays = 0;
    for (int round = 0; round < 50; ++round) {
        for (const int before = born; born == before;) std::this_thread::yield();
        const pid_t child = ::fork();
        if (child == 0) {
            const bool isClean = !hasStray(known);
            detail::makePipe(); // nothing is locked in the child
            ::_exit(isClean ? 0 : 1);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        strays += status != 0;
    }
    stops = true;
    making.join();
    EXPECT_EQ(strays, 0);
}

} // namespace Platform
