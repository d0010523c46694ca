#include <Platform/base/FileDescriptor.h>

#include "Faults.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

#include <gtest/gtest.h>
#include <unistd.h>

namespace Platform {
namespace {

volatile std::sig_atomic_t delivered = 0;

bool isPending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

/// Writes into a pipe without a reader; true when that is `EPIPE`.
bool brokenPipeIsAnError() {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    FileDescriptor(std::exchange(ends[0], -1)).reset();
    const FileDescriptor writer(ends[1]);
    return thrownNumber([&] { writer.write(std::as_bytes(std::span("x"))); }) == EPIPE;
}

TEST(Sigpipe, AVanishedReaderIsAnErrorWhateverTheSignalsState) {
    const NothingLeft check;
    struct sigaction before;
    sigset_t sigpipe;
    sigset_t mask;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    sigaction(SIGPIPE, nullptr, &before);

    for (void (*const handler)(int) : {SIG_DFL, SIG_IGN, +[](int) { delivered = delivered + 1; }}) {
        struct sigaction action{};
        action.sa_handler = handler;
        sigaction(SIGPIPE, &action, nullptr);
        {
            const NothingLeft unblocked;
            EXPECT_TRUE(brokenPipeIsAnError());
            EXPECT_FALSE(isPending());
        }
        pthread_sigmask(SIG_BLOCK, &sigpipe, &mask);
        {
            const NothingLeft blocked;
            EXPECT_TRUE(brokenPipeIsAnError());
            EXPECT_FALSE(isPending());
            raise(SIGPIPE);
            EXPECT_TRUE(brokenPipeIsAnError());
            EXPECT_TRUE(isPending()) << "it was waiting before, and is somebody else's";
        }
        EXPECT_EQ(delivered, 0);
        const timespec atOnce{};
        EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &atOnce), SIGPIPE);
        EXPECT_FALSE(isPending());
        pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    }
    sigaction(SIGPIPE, &before, nullptr);
}

} // namespace
} // namespace Platform
