#include <support/BarePeer.h>
#include <support/HandOffs.h>

namespace Platform {
namespace {

TEST(FIFO, ARemovalThatFailsLeavesThingsAsTheyWere) {
    const Scratch scratch;
    const std::string path = scratch / "pipe";
    for (const SystemCall call :
         {SystemCall::rename, SystemCall::open, SystemCall::fstat, SystemCall::unlink}) {
        SCOPED_TRACE(static_cast<int>(call));
        const NothingLeft check;
        const auto fifo = FIFO::createAtPath(path);
        {
            const Faults faults(Faults::failing(call, EIO));
            EXPECT_EQ(thrownNumber([&] { fifo->unlink(); }), EIO);
        }
        EXPECT_TRUE(isPipe(path));
        fifo->unlink();
        EXPECT_FALSE(isPipe(path)) << "a failure can be made good";
        write(path, "not ours");
        fifo->unlink();
        EXPECT_EQ(contentsOf(path), "not ours") << "the second call does nothing";
        std::filesystem::remove(path);
    }
    const Faults faults(Faults::failing(SystemCall::unlink, EBUSY));
    FIFO::createAtPath(path); // whose destructor ignores it
    EXPECT_TRUE(isPipe(path));
}

TEST(FIFO, WhoIsReleasedByItsRemovalDoesNotReadItsOwnWords) {
    const Scratch scratch;
    const std::string path = scratch / "pipe";
    const auto fifo = FIFO::createAtPath(path);
    // The whole exchange of a client fits between the two steps of the removal.
    std::optional<Data> answer;
    std::latch started(1);
    std::thread client([&] {
        const auto pipe = FIFO::openAtPath(path);
        started.count_down();
        thrownNumber([&] { pipe->send(Data("request")); });
        thrownNumber([&] { answer = pipe->receive(100); });
    });
    started.wait();
    const Faults faults([&](SystemCall call, std::size_t*) {
        if (call == SystemCall::unlink) client.join();
        return 0;
    });
    fifo->unlink();
    EXPECT_FALSE(answer);
    EXPECT_TRUE(std::filesystem::is_empty(scratch / ""));
}

TEST(FIFO, OnlyItsCreatorRemovesIt) {
    const NothingLeft check;
    const Scratch scratch;
    const std::string path = scratch / "pipe";
    EXPECT_EQ(thrownNumber([&] { FIFO::openAtPath(path)->handleForReading(); }), ENOENT);
    write(path, "not ours");
    EXPECT_EQ(thrownNumber([&] { FIFO::createAtPath(path); }), EEXIST);
    EXPECT_EQ(contentsOf(path), "not ours");
    std::filesystem::remove(path);
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(thrownNumber([&] { FIFO::createAtPath(path); }), EEXIST);
    EXPECT_TRUE(isPipe(path));
    const FileDescriptor reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    FIFO::openAtPath(path)->send(Data("x"));
    EXPECT_TRUE(isPipe(path)) << "adopted: left";
    FIFO::openAtPath(path)->unlink();
    EXPECT_FALSE(isPipe(path)) << "unless told";

    auto fifo = FIFO::createAtPath(path);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
    BarePeer writer(path, "<", "25 bytes, of which 10 come");
    EXPECT_EQ(fifo->receive(10).view(), "25 bytes, ");
    writer.finish();
    BarePeer other(path, ">");
    {
        const auto handle = fifo->handleForWriting();
        EXPECT_EQ(handle.write(Data("hello")), 5u);
        fifo.reset();
        EXPECT_TRUE(isPipe(path)) << "an open handle keeps it";
    }
    EXPECT_EQ(other.finish(), std::vector{"hello"s});
    EXPECT_FALSE(isPipe(path));
}

} // namespace
} // namespace Platform
