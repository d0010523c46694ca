#include <Platform/base/Log.h>

#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/SystemLogger.h>

#include "Faults.h"
#include "Scratch.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Platform {
namespace {

using detail::sendToSystemLogger;
using detail::SystemCall;

FileDescriptor listenAt(const std::string& path, int type) {
    FileDescriptor socket(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    if (type == SOCK_STREAM) {
        EXPECT_EQ(::listen(socket.get(), 1), 0);
    }
    return socket;
}

std::string oneRead(const FileDescriptor& descriptor) {
    std::array<std::byte, 8192> buffer;
    return std::string(descriptor.readData(buffer).view());
}

/// The entry without its time, which is checked to be the present one.
std::string withoutTime(const std::string& entry) {
    constexpr std::size_t start = 4;
    constexpr std::size_t length = 15;
    std::tm time{};
    const std::time_t now = std::time(nullptr);
    ::localtime_r(&now, &time);
    const std::string text = entry.substr(start, length);
    EXPECT_EQ(::strptime(text.c_str(), "%b %e %H:%M:%S", &time), text.c_str() + length) << entry;
    time.tm_isdst = -1;
    EXPECT_NEAR(std::difftime(std::mktime(&time), now), 0, 60);
    return entry.substr(0, start) + entry.substr(start + length);
}

TEST(SystemLogger, TakesOneDatagramAnEntry) {
    const NothingLeft check;
    const Scratch scratch;
    const FileDescriptor logger = listenAt(scratch / "log", SOCK_DGRAM);
    const std::string pid = std::to_string(::getpid());
    EXPECT_TRUE(sendToSystemLogger((scratch / "log").c_str(), "label", "error: no\xC3\xA9"));
    EXPECT_EQ(withoutTime(oneRead(logger)), "<11> label[" + pid + "]: error: no\xC3\xA9");

    // One that no longer reads is not waited for.
    while (sendToSystemLogger((scratch / "log").c_str(), "label", "error: again")) {
    }
    EXPECT_EQ(errno, EAGAIN);
}

TEST(SystemLogger, TakesAStreamWhereItListensForOne) {
    const NothingLeft check;
    const Scratch scratch;
    const FileDescriptor logger = listenAt(scratch / "log", SOCK_STREAM);
    EXPECT_TRUE(sendToSystemLogger((scratch / "log").c_str(), "label", "error: no"));
    const FileDescriptor connection(::accept(logger.get(), nullptr, nullptr));
    EXPECT_EQ(withoutTime(oneRead(connection)),
              "<11> label[" + std::to_string(::getpid()) + "]: error: no" + std::string(1, '\0'));
}

TEST(SystemLogger, SaysSoWhenTheEntryIsNotTaken) {
    const NothingLeft check;
    const Scratch scratch;
    EXPECT_FALSE(sendToSystemLogger((scratch / "nothing").c_str(), "label", "error: no"));
    listenAt(scratch / "dead", SOCK_DGRAM).reset();
    EXPECT_FALSE(sendToSystemLogger((scratch / "dead").c_str(), "label", "error: no"));
    const FileDescriptor logger = listenAt(scratch / "log", SOCK_DGRAM);
    for (const SystemCall call : {SystemCall::socket, SystemCall::connect, SystemCall::send}) {
        const Faults faults(Faults::failing(call, ENOBUFS));
        EXPECT_FALSE(sendToSystemLogger((scratch / "log").c_str(), "label", "error: no"));
    }
}

TEST(Log, LeavesOneLineOnStandardErrorWhereNoLoggerListens) {
    const NothingLeft check;
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    FileDescriptor reader(ends[0]);
    FileDescriptor writer(ends[1]);
    const FileDescriptor standardError(::dup(STDERR_FILENO));
    int writes = 0;
    {
        const Faults faults([&](SystemCall call, std::size_t*) {
            writes += call == SystemCall::write;
            return call == SystemCall::connect ? ECONNREFUSED : 0;
        });
        ::dup2(writer.get(), STDERR_FILENO);
        writer.reset();
        Logger("editorClient").error("no\nhost");
        const std::string line = oneRead(reader);
        reader.reset();
        Logger("editorClient").error("nobody reads this"); // and nobody dies of SIGPIPE
        ::dup2(standardError.get(), STDERR_FILENO);
        EXPECT_EQ(line, "editorClient: error: no host\n");
    }
    EXPECT_EQ(writes, 2);
}

} // namespace
} // namespace Platform
