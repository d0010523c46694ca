#include <Platform/base/FileDescriptor.h>

#include "Faults.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace Platform {
namespace {

using detail::SystemCall;

struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        reader = FileDescriptor(ends[0]);
        writer = FileDescriptor(ends[1]);
    }
    FileDescriptor reader;
    FileDescriptor writer;
};

std::span<const std::byte> bytes(std::string_view text) {
    return std::as_bytes(std::span(text));
}

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) != -1;
}

TEST(FileDescriptor, ClosesOnceAndKeepsErrno) {
    const NothingLeft check;
    Pipe pipe;
    const int number = pipe.reader.get();
    FileDescriptor& self = pipe.reader;
    pipe.reader = std::move(self);
    EXPECT_EQ(pipe.reader.get(), number);

    FileDescriptor owner = std::move(pipe.reader);
    EXPECT_FALSE(pipe.reader); // NOLINT: what a moved-from owner is, is promised
    EXPECT_EQ(pipe.reader.get(), -1);
    EXPECT_TRUE(owner && isOpen(number));

    FileDescriptor released(owner.release());
    owner.reset();
    EXPECT_TRUE(isOpen(number));

    int closes = 0;
    {
        // A close that fails, or is interrupted, has closed all the same.
        const Faults faults([&](SystemCall call, std::size_t*) {
            return call == SystemCall::close && ++closes == 1 ? EINTR : 0;
        });
        errno = EXDEV;
        released = std::move(pipe.writer);
    }
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(closes, 1);
    EXPECT_FALSE(isOpen(number));
    EXPECT_TRUE(isOpen(released.get()));
}

TEST(FileDescriptor, ReadsOnceIntoABuffer) {
    const NothingLeft check;
    Pipe pipe;
    std::array<std::byte, 4> buffer;
    EXPECT_EQ(pipe.writer.write(bytes("seven b")), 7u);
    EXPECT_EQ(pipe.reader.readData(buffer).view(), "seve");
    EXPECT_TRUE(pipe.reader.readData({}).empty());
    EXPECT_EQ(pipe.reader.read(buffer), 3u);
    pipe.writer.reset();
    EXPECT_TRUE(pipe.reader.readData(buffer).empty());
    EXPECT_EQ(pipe.reader.read(buffer), 0u);
    EXPECT_EQ(thrownNumber([&] { FileDescriptor().read(buffer); }), EBADF);
}

TEST(FileDescriptor, ReadsToTheEndWhateverTheChunks) {
    const NothingLeft check;
    for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 300'000U}) {
        Pipe pipe;
        std::string text(size, 'x');
        for (std::size_t index = 0; index < size; ++index) {
            text[index] = static_cast<char>(index * 7);
        }
        std::thread writing([&] {
            for (std::string_view rest = text; !rest.empty();) {
                rest.remove_prefix(pipe.writer.write(bytes(rest)));
            }
            pipe.writer.reset();
        });
        const Data data = pipe.reader.readToEnd();
        writing.join();
        EXPECT_TRUE(data.view() == text) << size;
    }
}

TEST(FileDescriptor, RepeatsWhatIsInterruptedAndReportsShortCounts) {
    const NothingLeft check;
    Pipe pipe;
    int calls = 0;
    const Faults faults([&](SystemCall call, std::size_t* count) {
        if (call == SystemCall::close) {
            return 0;
        }
        *count = std::min<std::size_t>(*count, 3);
        return ++calls % 3 == 0 ? 0 : EINTR;
    });
    EXPECT_EQ(pipe.writer.write(bytes("hello")), 3u);
    EXPECT_EQ(pipe.writer.write(bytes("lo")), 2u);
    EXPECT_EQ(calls, 6);
    pipe.writer.reset();
    EXPECT_EQ(pipe.reader.readToEnd().view(), "hello");
    EXPECT_EQ(calls, 15) << "two reads with bytes and one at the end";
}

TEST(FileDescriptor, ReportsFailures) {
    const NothingLeft check;
    Pipe pipe;
    pipe.writer.write(bytes("lost"));
    int reads = 0;
    const Faults faults([&](SystemCall call, std::size_t*) {
        return call == SystemCall::read && ++reads == 2 ? EIO
               : call == SystemCall::write              ? ENOSPC
                                                        : 0;
    });
    EXPECT_EQ(thrownNumber([&] { pipe.reader.readToEnd(); }), EIO);
    EXPECT_EQ(thrownNumber([&] { pipe.writer.write(bytes("x")); }), ENOSPC);
}

} // namespace
} // namespace Platform
