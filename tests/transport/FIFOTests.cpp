#include <support/BarePeer.h>
#include <support/HandOffs.h>

namespace Platform {
namespace {

TEST(FIFO, MovesBytesThoughEveryCallIsInterrupted) {
    const NothingLeft check;
    const Scratch scratch;
    const std::string path = scratch / "pipe";
    std::map<SystemCall, int> calls;
    const Faults faults(
        [&](SystemCall call, std::size_t*) { return ++calls[call] % 2 != 0 ? EINTR : 0; });

    const auto fifo = FIFO::createAtPath(path);
    EXPECT_EQ(std::filesystem::status(path).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    BarePeer writer(path, "<", "25 bytes, of which 10 come");
    EXPECT_EQ(fifo->receive(10).view(), "25 bytes, ");
    writer.finish();
    const std::string large(10'000, 'x');
    BarePeer large_writer(path, "<", large);
    EXPECT_EQ(fifo->handleForReading().readToEnd(), Data(large));
    BarePeer silent_writer(path, "<");
    EXPECT_FALSE(fifo->handleForReading().readToEnd());
    BarePeer reader(path, ">");
    EXPECT_EQ(fifo->send(Data("hello")), 5u);
    EXPECT_EQ(reader.finish(), std::vector<std::string>{"hello"});

    fifo->unlink();
    EXPECT_FALSE(isPipe(path));
    write(path, "not ours");
    fifo->unlink();
    EXPECT_EQ(contentsOf(path), "not ours") << "the second call does nothing";
    for (const auto call : {SystemCall::mkfifo, SystemCall::open, SystemCall::fstat,
                            SystemCall::read, SystemCall::write, SystemCall::unlink}) {
        EXPECT_GE(calls[call], 2) << static_cast<int>(call);
    }
}

TEST(FIFO, AFailedCallIsThrownAndLeavesThingsAsTheyWere) {
    const Scratch scratch;
    const std::string path = scratch / "pipe";
    using Action = std::function<void(FIFO&)>;
    const Action read = [&](FIFO& fifo) {
        const BarePeer peer(path, "<", "lost");
        fifo.handleForReading().readToEnd();
    };
    const Action write = [&](FIFO& fifo) {
        const BarePeer peer(path, ">");
        fifo.send(Data("lost"));
    };
    const Action unlink = [](FIFO& fifo) { fifo.unlink(); };
    const Action create = [&](FIFO&) { FIFO::createAtPath(path + " 2"); };
    const struct {
        const Action& action;
        SystemCall call;
        int number;
    } rows[] = {
        {create, SystemCall::mkfifo, ENOSPC}, {create, SystemCall::mkfifo, EACCES},
        {read, SystemCall::open, EMFILE},     {read, SystemCall::fstat, EIO},
        {read, SystemCall::read, EIO},        {write, SystemCall::open, EMFILE},
        {write, SystemCall::fstat, EIO},      {write, SystemCall::write, EIO},
        {unlink, SystemCall::open, ENXIO},    {unlink, SystemCall::fstat, EIO},
        {unlink, SystemCall::unlink, EBUSY},
    };
    for (const auto& [action, call, number] : rows) {
        SCOPED_TRACE(static_cast<int>(call));
        const NothingLeft check;
        const auto fifo = FIFO::createAtPath(path);
        {
            const Faults faults(Faults::failing(call, number));
            EXPECT_EQ(thrownNumber([&] { action(*fifo); }), number);
        }
        EXPECT_TRUE(isPipe(path));
        EXPECT_FALSE(isPipe(path + " 2"));
        fifo->unlink();
        EXPECT_FALSE(isPipe(path)) << "a failure can be made good";
    }
    { // and is ignored by the destructor
        const auto fifo = FIFO::createAtPath(path);
        const Faults faults(Faults::failing(SystemCall::unlink, EBUSY));
    }
    EXPECT_FALSE(isPipe(path));
}

TEST(FIFO, WhoIsReleasedByItsRemovalDoesNotReadItsOwnWords) {
    const Scratch scratch;
    const std::string path = scratch / "pipe";
    const auto fifo = FIFO::createAtPath(path);
    // The whole exchange of a client fits between the two steps of the removal.
    std::optional<Data> answer;
    std::thread client;
    std::latch started(1);
    {
        const Faults faults([&](SystemCall call, std::size_t*) {
            if (call == SystemCall::unlink) client.join();
            return 0;
        });
        client = std::thread([&] {
            const auto pipe = FIFO::openAtPath(path);
            started.count_down();
            thrownNumber([&] { pipe->send(Data("request")); });
            thrownNumber([&] { answer = pipe->receive(100); });
        });
        started.wait();
        fifo->unlink();
    }
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
    const FileDescriptor other(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    {
        const auto handle = fifo->handleForWriting();
        fifo.reset();
        EXPECT_TRUE(isPipe(path)) << "an open handle keeps it";
    }
    EXPECT_FALSE(isPipe(path));
}

} // namespace
} // namespace Platform
