#include <Platform/base/detail/Sigpipe.h>
#include <Platform/command/detail/Pipe.h>

#include <poll.h>
#include <support/Testing.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <termios.h>

namespace Platform {

static_assert(PIPE_BUF == 512 && PATH_MAX == 1024);

static int eventsOf(int descriptor, short events) {
    pollfd subject{descriptor, events, 0};
    return ::poll(&subject, 1, 0) == 0 ? 0 : subject.revents;
}

TEST(DarwinFiles, PollLooksOnlyWhereAnEventIsAskedFor) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const FileDescriptor end(ends[0]);
    FileDescriptor(ends[1]).reset();
    EXPECT_EQ(eventsOf(end.get(), 0), 0);
    EXPECT_EQ(eventsOf(end.get(), POLLHUP), POLLHUP);
}

TEST(DarwinFiles, TheTerminalCannotBePolled) {
    const FileDescriptor terminal(::posix_openpt(O_RDWR | O_NOCTTY));
    ASSERT_EQ(::unlockpt(terminal.get()), 0);
    const std::string name = ::ptsname(terminal.get());
    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        ::open(name.c_str(), O_RDWR); // which is the terminal of the session from now on
        const int tty = ::open("/dev/tty", O_RDWR);
        ::_exit(tty != -1 && eventsOf(tty, POLLOUT) == POLLNVAL ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(DarwinFiles, AnOpenFailsAfterAHandlerAlthoughTheOtherSideCame) {
    const Scratch scratch;
    const std::string path = scratch / "pipe";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    static std::atomic<bool> hasRun;
    struct sigaction action{};
    action.sa_handler = [](int) { hasRun = true; };
    action.sa_flags = SA_RESTART; // so that the open goes on to sleep here
    ::sigaction(SIGUSR1, &action, nullptr);
    for (const bool isSignalled : {false, true}) {
        std::promise<std::pair<pthread_t, pid_t>> started;
        std::thread opening([&] {
            started.set_value({::pthread_self(), ::gettid()});
            const FileDescriptor reader(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
            EXPECT_EQ(reader ? 0 : errno, isSignalled ? EINTR : 0);
        });
        const auto [thread, id] = started.get_future().get();
        const std::string call = "/proc/self/task/" + std::to_string(id) + "/syscall";
        while (!contentsOf(call).starts_with(std::to_string(SYS_openat) + " "))
            std::this_thread::yield();
        if (isSignalled) ::pthread_kill(thread, SIGUSR1);
        while (isSignalled && !hasRun) std::this_thread::yield();
        FileDescriptor writer;
        while (!writer) // the open that sleeps is begun again
            writer = FileDescriptor(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        opening.join();
        detail::suppressSigpipe(writer.get());
        EXPECT_EQ(thrownNumber([&] { writer.write(Data("x")); }), EPIPE) << "nobody holds it";
    }
}

TEST(DarwinFiles, AFifoHolds8KiB) {
    const Scratch scratch;
    const std::string path = scratch / "pipe";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const FileDescriptor both(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    EXPECT_EQ(::write(both.get(), std::string(10'000, 'x').data(), 10'000), 8192);
}

TEST(DarwinFiles, AWriteWhoseReaderGoesInTheMiddleHasFailed) {
    auto [reader, writer] = detail::makePipe();
    ::fcntl(writer.get(), F_SETNOSIGPIPE, 1);
    const Data bytes(std::string(1'000'000, 'x'));
    auto writing = std::async(std::launch::async, [&writer, &bytes] {
        const auto result = ::write(writer.get(), bytes.data(), bytes.size());
        return std::pair(result, errno);
    });
    std::array<std::byte, 4096> first;
    EXPECT_EQ(reader.readData(first).size(), first.size());
    reader.reset();
    EXPECT_EQ(writing.get(), std::pair(ssize_t{-1}, EPIPE));
}

TEST(DarwinFiles, SigpipeIsSwitchedOffForTheCopiesOfADescriptor) {
    sigset_t sigpipe, pending;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
    const FileDescriptor usual = detail::makePipe().writing, quiet = detail::makePipe().writing;
    ::fcntl(quiet.get(), F_SETNOSIGPIPE, 1);
    const FileDescriptor copy(::dup(quiet.get())), moved(::fcntl(quiet.get(), F_DUPFD_CLOEXEC, 3));
    for (const FileDescriptor* const writer : {&quiet, &copy, &moved, &usual}) {
        EXPECT_EQ(::write(writer->get(), "x", 1), -1);
        sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGPIPE), writer == &usual);
    }
}

TEST(DarwinFiles, ALinkItselfCanBeOpened) {
    const Scratch scratch;
    const FileDescriptor folder(::open((scratch / "").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::filesystem::create_symlink("nowhere", scratch / "link");
    std::ofstream(scratch / "file") << "text";
    const auto open = [&](const char* name) {
        return FileDescriptor(
            ::openat(folder.get(), name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_SYMLINK));
    };
    struct stat status;
    EXPECT_EQ(::fstat(open("link").get(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ(open("file").readToEnd().view(), "text");
}

} // namespace Platform
