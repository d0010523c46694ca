#include <Platform/base/detail/WriteAll.h>

#include <Platform/command/detail/Pipe.h>

#include <support/Testing.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace Platform {
namespace {

using detail::writeAll;

std::string pattern(std::size_t size) {
    std::string text;
    while (text.size() < size) text += std::to_string(text.size()) + ' ';
    text.resize(size);
    return text;
}

int callsOfWriter = 0;

/// In a process of its own: the terminal becomes its controlling one. Tells the number of system
/// calls that the write took, or an error number below 0, and waits to be killed.
[[noreturn]] void writeToTerminal(const char* name, const std::string& text, int report) {
    ::setsid();
    const int terminal = ::open(name, O_RDWR);
    ::ioctl(terminal, TIOCSCTTY, nullptr);
    termios modes{};
    ::tcgetattr(terminal, &modes);
    ::cfmakeraw(&modes);
    ::tcsetattr(terminal, TCSANOW, &modes);
    const int own = ::open("/dev/tty", O_WRONLY | O_NONBLOCK);
    detail::setSystemCallHook([](SystemCall, std::size_t*) { return ++callsOfWriter, 0; });
    const int number = thrownNumber([&] { writeAll(own, std::as_bytes(std::span(text))); });
    const int result = number == 0 ? callsOfWriter : -number;
    if (::write(report, &result, sizeof result) != sizeof result) ::_exit(1);
    for (;;) ::pause();
}

} // namespace

TEST(WriteAll, SleepsWhileATerminalThatDoesNotBlockIsFull) {
    const std::string text = pattern(1 << 20);
    const FileDescriptor screen(::posix_openpt(O_RDWR | O_NOCTTY));
    ASSERT_EQ(::grantpt(screen.get()), 0);
    ASSERT_EQ(::unlockpt(screen.get()), 0);
    const std::string name = ::ptsname(screen.get());
    detail::Pipe report = detail::makePipe();
    const pid_t writer = ::fork();
    if (writer == 0) writeToTerminal(name.c_str(), text, report.writing.get());
    report.writing.reset();
    std::string shown;
    std::array<std::byte, 256> buffer;
    while (shown.size() < text.size()) shown += screen.readData(buffer).view();
    int calls = 0;
    EXPECT_EQ(::read(report.reading.get(), &calls, sizeof calls), ssize_t{sizeof calls});
    ::kill(writer, SIGKILL);
    EXPECT_EQ(::waitpid(writer, nullptr, 0), writer);
    EXPECT_TRUE(shown == text);
    EXPECT_GT(calls, 2) << "was never full";
    EXPECT_LT(calls, static_cast<int>(text.size() / 128));
}

TEST(WriteAll, LosesNothingWhenTheSystemIsTooShortToWait) {
    const NothingLeft check;
    const std::string text = pattern(1 << 20);
    detail::Pipe pipe = detail::makePipe();
    detail::makeNonBlocking(pipe.writing);
    std::atomic<int> shortages = 0;
    auto reading = std::async(std::launch::async, [&] {
        while (shortages < 2) std::this_thread::yield(); // the pipe stays full until then
        return pipe.reading.readToEnd();
    });
    {
        const Faults faults([&](SystemCall call, std::size_t*) {
            if (call != SystemCall::poll) return 0;
            return ++shortages % 2 == 0 ? ENOMEM : EAGAIN;
        });
        EXPECT_EQ(
            thrownNumber([&] { writeAll(pipe.writing.get(), std::as_bytes(std::span(text))); }), 0);
    }
    shortages = 2;
    pipe.writing.reset();
    EXPECT_TRUE(reading.get().view() == text);
}

} // namespace Platform
