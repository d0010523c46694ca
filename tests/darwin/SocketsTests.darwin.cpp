#include <poll.h>
#include <support/Testing.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace Platform {

static_assert(sizeof(sockaddr_un::sun_path) == 104);

namespace {

class DarwinSockets : public testing::Test {
protected:
    static FileDescriptor make(int type = SOCK_STREAM) {
        return FileDescriptor(::socket(AF_UNIX, type, 0));
    }

    sockaddr_un addressOf(const char* name) const {
        sockaddr_un address{AF_UNIX, {}};
        const std::string path = scratch_ / name;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        return address;
    }

    FileDescriptor listen(const char* name) const {
        FileDescriptor listener = make();
        const sockaddr_un address = addressOf(name);
        EXPECT_EQ(
            ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(listener.get(), SOMAXCONN), 0);
        return listener;
    }

    /// The number that the attempt fails with; 0 when it does not.
    int connect(const FileDescriptor& socket, const char* name) const {
        const sockaddr_un address = addressOf(name);
        const auto* const general = reinterpret_cast<const sockaddr*>(&address);
        return ::connect(socket.get(), general, sizeof address) == 0 ? 0 : errno;
    }

    const Scratch scratch_;
};

struct Pair {
    FileDescriptor one, other;

    Pair() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        one = FileDescriptor(ends[0]);
        other = FileDescriptor(ends[1]);
    }
};

} // namespace

TEST_F(DarwinSockets, SigioComesAlsoWhenThePeerTakesBytes) {
    static std::atomic<int> signals;
    struct sigaction action{};
    action.sa_handler = [](int) { ++signals; };
    ::sigaction(SIGIO, &action, nullptr);
    for (const bool readsPlainly : {false, true}) {
        const Pair pair;
        pair.one.write(Data("x"));
        ::fcntl(pair.one.get(), F_SETOWN, ::getpid());
        ::fcntl(pair.one.get(), F_SETFL, O_ASYNC);
        const int before = signals;
        char byte;
        EXPECT_EQ(readsPlainly ? ::read(pair.other.get(), &byte, 1)
                               : ::recv(pair.other.get(), &byte, 1, 0),
                  1);
        EXPECT_EQ(signals, before + 1);
    }
}

TEST_F(DarwinSockets, TakeNoOptionOnceThePeerHasGone) {
    Pair pair;
    const int yes = 1;
    const auto set = [&](int name) {
        return ::setsockopt(pair.one.get(), SOL_SOCKET, name, &yes, sizeof yes) == 0 ? 0 : errno;
    };
    EXPECT_EQ(set(SO_NOSIGPIPE), 0);
    pair.other.reset();
    EXPECT_EQ(set(SO_NOSIGPIPE), EINVAL);
    EXPECT_EQ(set(SO_PASSCRED), EINVAL);
    EXPECT_EQ(::send(pair.one.get(), "x", 1, 0), -1) << "and no SIGPIPE";
}

TEST_F(DarwinSockets, HaveWhatTheirListenerHas) {
    const FileDescriptor listener = listen("socket"), client = make();
    const int yes = 1;
    ::setsockopt(listener.get(), SOL_SOCKET, SO_NOSIGPIPE, &yes, sizeof yes);
    ::fcntl(listener.get(), F_SETFL, O_NONBLOCK);
    EXPECT_EQ(connect(client, "socket"), 0);
    const FileDescriptor accepted(::accept(listener.get(), nullptr, nullptr));
    EXPECT_TRUE(::fcntl(accepted.get(), F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(::shutdown(accepted.get(), SHUT_WR), 0);
    EXPECT_EQ(::write(accepted.get(), "x", 1), -1) << "and no SIGPIPE";

    uid_t user = 0;
    gid_t group = 0;
    EXPECT_EQ(::getpeereid(accepted.get(), &user, &group), 0);
    EXPECT_EQ(std::pair(user, group), std::pair(::geteuid(), ::getegid()));
}

TEST_F(DarwinSockets, AreRefusedByAFullQueue) {
    const FileDescriptor listener = listen("socket");
    std::vector<FileDescriptor> clients;
    for (int i = 0; i < 129; ++i)
        EXPECT_EQ(connect(clients.emplace_back(make()), "socket"), i < 128 ? 0 : ECONNREFUSED) << i;
}

TEST_F(DarwinSockets, AreToldWhatIsNoSocketOfTheirKind) {
    FileDescriptor listener = listen("socket");
    std::ofstream(scratch_ / "file") << "text";
    for (const int type : {SOCK_DGRAM, SOCK_STREAM})
        EXPECT_EQ(connect(make(type), "file"), ENOTSOCK);
    EXPECT_EQ(connect(make(SOCK_DGRAM), "socket"), EPROTOTYPE);
    listener.reset();
    for (const int type : {SOCK_DGRAM, SOCK_STREAM})
        EXPECT_EQ(connect(make(type), "socket"), ECONNREFUSED);
}

} // namespace Platform
