#include "Kqueue.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/event.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr timespec atOnce{};
constexpr timespec limit{20, 0};

/// Closes as the code under test does.
class Descriptor {
    int number_;

public:
    explicit Descriptor(int number) : number_(number) { EXPECT_NE(number, -1); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    ~Descriptor() { close(); }

    void close() {
        if (number_ == -1) return;
        DarwinEmulation::descriptorCloses(number_);
        ::close(std::exchange(number_, -1));
    }
    int get() const { return number_; }
};

class Pipe {
    Pipe(std::array<int, 2> ends) : reader(ends[0]), writer(ends[1]) {}
    static std::array<int, 2> open() {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
        return ends;
    }

public:
    Pipe() : Pipe(open()) {}

    void write() const { EXPECT_EQ(::write(writer.get(), "x", 1), 1); }
    void read() const {
        char byte;
        EXPECT_EQ(::read(reader.get(), &byte, 1), 1);
    }

    Descriptor reader;
    Descriptor writer;
};

class Queue {
    Descriptor descriptor_{::kqueue()};

public:
    /// 0 or an error's number.
    int change(std::uintptr_t ident, int filter, int flags, unsigned notes = 0,
               std::intptr_t data = 0, void* user = nullptr) const {
        struct kevent event;
        EV_SET(&event, ident, static_cast<std::int16_t>(filter), static_cast<std::uint16_t>(flags),
               notes, data, user);
        return ::kevent(get(), &event, 1, nullptr, 0, nullptr) == 0 ? 0 : errno;
    }
    int change(const Descriptor& descriptor, int filter, int flags, void* user = nullptr) const {
        return change(static_cast<std::uintptr_t>(descriptor.get()), filter, flags, 0, 0, user);
    }

    struct kevent next() const {
        struct kevent event{};
        EXPECT_EQ(::kevent(get(), nullptr, 0, &event, 1, &limit), 1) << errno;
        return event;
    }
    bool isQuiet() const {
        struct kevent event;
        return ::kevent(get(), nullptr, 0, &event, 1, &atOnce) == 0;
    }
    bool waitUntilReadable() const {
        pollfd waiting{get(), POLLIN, 0};
        return ::poll(&waiting, 1, 20'000) == 1;
    }

    int get() const { return descriptor_.get(); }
    void close() { descriptor_.close(); }
};

/// A child process that runs `body` and exits with 0. A destroyed one is killed and reaped.
class Child {
    pid_t id_;

public:
    template <class Body>
    explicit Child(Body body) : id_(::fork()) {
        if (id_ != 0) return;
        body();
        ::_exit(0);
    }
    ~Child() {
        if (id_ == -1) return;
        kill();
        reap();
    }

    void kill() const { EXPECT_EQ(::kill(id_, SIGKILL), 0); }
    /// The status; -1 if the system has reaped the child.
    int reap() {
        int status = -1;
        ::waitpid(std::exchange(id_, -1), &status, 0);
        return status;
    }
    std::uintptr_t id() const { return static_cast<std::uintptr_t>(id_); }
};

void pauseForever() {
    for (;;) ::pause();
}

std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

bool isAsleep(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    const auto state = line.rfind(") ");
    return state != line.npos && line[state + 2] == 'S';
}

TEST(Kqueue, OneshotIsDeletedAfterItsDeliveryAndFiresAtOnceWhenAddedAgain) {
    const Queue queue;
    const Pipe pipe;
    int user = 0;
    pipe.write();
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(queue.change(pipe.reader, EVFILT_READ, EV_ADD | EV_ONESHOT, &user), 0);
        EXPECT_TRUE(queue.waitUntilReadable());
        const struct kevent event = queue.next();
        EXPECT_EQ(event.ident, static_cast<std::uintptr_t>(pipe.reader.get()));
        EXPECT_EQ(event.filter, EVFILT_READ);
        EXPECT_EQ(event.data, 1);
        EXPECT_EQ(event.udata, &user);
        EXPECT_TRUE(queue.isQuiet());
        EXPECT_EQ(queue.change(pipe.reader, EVFILT_READ, EV_DELETE), ENOENT);
    }
}

TEST(Kqueue, LevelRepeatsAndAnAddOfAKnownKnoteChangesIt) {
    const Queue queue;
    const Pipe pipe;
    int user = 0;
    pipe.write();
    ASSERT_EQ(queue.change(pipe.reader, EVFILT_READ, EV_ADD), 0);
    EXPECT_EQ(queue.next().udata, nullptr);
    EXPECT_EQ(queue.next().udata, nullptr);
    ASSERT_EQ(queue.change(pipe.reader, EVFILT_READ, EV_ADD | EV_CLEAR, &user), 0);
    EXPECT_EQ(queue.next().udata, &user);
    EXPECT_TRUE(queue.isQuiet());
    ASSERT_EQ(queue.change(pipe.reader, EVFILT_READ, EV_DELETE), 0);
    pipe.write();
    EXPECT_TRUE(queue.isQuiet());
}

TEST(Kqueue, ClearFiresAgainForNewBytesAndForTheEnd) {
    const Queue queue;
    Pipe pipe;
    ASSERT_EQ(queue.change(pipe.reader, EVFILT_READ, EV_ADD | EV_CLEAR), 0);
    EXPECT_TRUE(queue.isQuiet());
    for (int bytes = 1; bytes <= 2; ++bytes) {
        pipe.write();
        const struct kevent event = queue.next();
        EXPECT_EQ(event.data, bytes);
        EXPECT_EQ(event.flags & EV_EOF, 0);
        EXPECT_TRUE(queue.isQuiet());
    }
    pipe.writer.close();
    const struct kevent end = queue.next();
    EXPECT_EQ(end.data, 2);
    EXPECT_NE(end.flags & EV_EOF, 0);
    EXPECT_TRUE(queue.isQuiet());
}

TEST(Kqueue, FailedChangeIsAnEventIfThereIsRoomAndAnErrorElse) {
    const Queue queue;
    EXPECT_EQ(queue.change(7, EVFILT_USER, EV_DELETE), ENOENT);
    EXPECT_EQ(queue.change(7, EVFILT_USER, 0, NOTE_TRIGGER), ENOENT);
    EXPECT_EQ(queue.change(SIGCHLD, EVFILT_SIGNAL, EV_ADD), EINVAL);
    EXPECT_EQ(queue.change(1'000'000, EVFILT_READ, EV_ADD), EBADF);

    // The change after the failed one is applied. A second error has no room.
    std::array<struct kevent, 3> changes;
    EV_SET(&changes[0], 7, EVFILT_USER, 0, NOTE_TRIGGER, 0, nullptr);
    EV_SET(&changes[1], 8, EVFILT_USER, EV_ADD, NOTE_TRIGGER, 0, nullptr);
    EV_SET(&changes[2], 9, EVFILT_USER, EV_DELETE, 0, 0, nullptr);
    struct kevent event;
    ASSERT_EQ(::kevent(queue.get(), changes.data(), 2, &event, 1, &limit), 1);
    EXPECT_EQ(event.ident, 7U);
    EXPECT_NE(event.flags & EV_ERROR, 0);
    EXPECT_EQ(event.data, ENOENT);
    EXPECT_EQ(queue.next().ident, 8U);
    EXPECT_EQ(::kevent(queue.get(), changes.data(), 3, &event, 1, &limit), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(Kqueue, ListenerFiresForAConnectionAndASocketForItsPeersEndWithBytesLeft) {
    const Queue queue;
    const Descriptor listener(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{AF_UNIX, {}};
    ASSERT_EQ(::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(sa_family_t)),
              0);
    socklen_t size = sizeof address;
    ASSERT_EQ(::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    ASSERT_EQ(::listen(listener.get(), 1), 0);
    ASSERT_EQ(queue.change(listener, EVFILT_READ, EV_ADD | EV_ONESHOT), 0);
    EXPECT_TRUE(queue.isQuiet());
    Descriptor client(::socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(::connect(client.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(queue.next().data, 1);

    const Descriptor server(::accept(listener.get(), nullptr, nullptr));
    ASSERT_EQ(queue.change(server, EVFILT_READ, EV_ADD), 0);
    EXPECT_TRUE(queue.isQuiet());
    ASSERT_EQ(::write(client.get(), "abc", 3), 3);
    EXPECT_EQ(queue.next().flags & EV_EOF, 0);
    client.close();
    const struct kevent end = queue.next();
    EXPECT_EQ(end.data, 3);
    EXPECT_NE(end.flags & EV_EOF, 0);
}

TEST(Kqueue, BothFiltersOfOneDescriptorGetTheirTurnInAListOfOneEvent) {
    const Queue queue;
    std::array<int, 2> ends{-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    const Descriptor socket(ends[0]);
    const Descriptor peer(ends[1]);
    ASSERT_EQ(::write(peer.get(), "x", 1), 1);
    ASSERT_EQ(queue.change(socket, EVFILT_READ, EV_ADD), 0);
    ASSERT_EQ(queue.change(socket, EVFILT_WRITE, EV_ADD), 0);
    std::array<int, 2> counts{};
    for (int i = 0; i < 10; ++i) ++counts[queue.next().filter == EVFILT_READ ? 0 : 1];
    EXPECT_GT(counts[0], 0);
    EXPECT_GT(counts[1], 0);
    ASSERT_EQ(queue.change(socket, EVFILT_READ, EV_DELETE), 0);
    EXPECT_EQ(queue.next().filter, EVFILT_WRITE);
}

TEST(Kqueue, PipeIsWritableWithRoomAndOnceItsReaderHasGone) {
    const Queue queue;
    Pipe pipe;
    const std::vector<char> page(4096);
    while (::write(pipe.writer.get(), page.data(), page.size()) > 0) {
    }
    ASSERT_EQ(errno, EAGAIN);
    ASSERT_EQ(queue.change(pipe.writer, EVFILT_WRITE, EV_ADD | EV_CLEAR), 0);
    EXPECT_TRUE(queue.isQuiet());
    std::vector<char> bytes(page.size());
    ASSERT_EQ(::read(pipe.reader.get(), bytes.data(), bytes.size()), std::ssize(bytes));
    const struct kevent room = queue.next();
    EXPECT_GE(room.data, 512);
    EXPECT_EQ(room.flags & EV_EOF, 0);
    pipe.reader.close();
    EXPECT_NE(queue.next().flags & EV_EOF, 0);
}

TEST(Kqueue, TimerThatIsAddedAgainForgetsAnExpiryThatWasNotTaken) {
    const Queue queue;
    ASSERT_EQ(queue.change(0, EVFILT_TIMER, EV_ADD | EV_ONESHOT, 0, 1), 0);
    ASSERT_TRUE(queue.waitUntilReadable());
    ASSERT_EQ(queue.change(0, EVFILT_TIMER, EV_ADD | EV_ONESHOT, 0, 3'600'000), 0);
    EXPECT_TRUE(queue.isQuiet());

    ASSERT_EQ(queue.change(0, EVFILT_TIMER, EV_ADD | EV_ONESHOT, 0, 0), 0);
    EXPECT_EQ(queue.next().data, 1);
    EXPECT_EQ(queue.change(0, EVFILT_TIMER, EV_DELETE), ENOENT);

    // Without EV_ONESHOT it is periodic.
    ASSERT_EQ(queue.change(0, EVFILT_TIMER, EV_ADD, 0, 1), 0);
    EXPECT_GE(queue.next().data, 1);
    EXPECT_GE(queue.next().data, 1);
}

TEST(Kqueue, EndOfAProcessFiresOnceWithItsStatusAndNotForADeadProcess) {
    const Queue queue;
    Child child(pauseForever);
    const auto id = child.id();
    ASSERT_EQ(queue.change(id, EVFILT_PROC, EV_ADD | EV_ONESHOT, NOTE_EXIT), 0);
    EXPECT_TRUE(queue.isQuiet());
    child.kill();
    const struct kevent end = queue.next();
    EXPECT_EQ(end.ident, id);
    EXPECT_EQ(end.fflags, NOTE_EXIT);
    EXPECT_TRUE(WIFSIGNALED(static_cast<int>(end.data)));
    EXPECT_TRUE(queue.isQuiet());
    EXPECT_EQ(queue.change(id, EVFILT_PROC, EV_ADD | EV_ONESHOT, NOTE_EXIT), ESRCH) << "zombie";
    EXPECT_EQ(child.reap(), end.data);
    EXPECT_EQ(queue.change(id, EVFILT_PROC, EV_ADD | EV_ONESHOT, NOTE_EXIT), ESRCH) << "reaped";
}

TEST(Kqueue, EndOfAProcessFiresIfItIsReapedElsewhereOrByTheSystem) {
    const Queue queue;
    for (const auto disposition : {SIG_DFL, SIG_IGN}) {
        const auto before = ::signal(SIGCHLD, disposition);
        Child child(pauseForever);
        const auto id = child.id();
        ASSERT_EQ(queue.change(id, EVFILT_PROC, EV_ADD, NOTE_EXIT), 0);
        child.kill();
        child.reap();
        EXPECT_EQ(queue.next().ident, id);
        EXPECT_TRUE(queue.isQuiet());
        ::signal(SIGCHLD, before);
    }
}

TEST(Kqueue, EndOfATracedProcessIsKeptBackWithoutABusyLoopUntilTheTracerLetsGo) {
    const Queue queue;
    const Pipe attached;
    Pipe gate;
    ASSERT_EQ(::fcntl(gate.reader.get(), F_SETFL, 0), 0);
    const Child child(pauseForever);
    const auto id = static_cast<pid_t>(child.id());
    const Child tracer([&] {
        if (::ptrace(PTRACE_SEIZE, id, nullptr, nullptr) == -1) ::_exit(1);
        attached.write();
        gate.read();
    });
    pollfd waiting{attached.reader.get(), POLLIN, 0};
    ASSERT_EQ(::poll(&waiting, 1, 20'000), 1);
    ASSERT_EQ(queue.change(child.id(), EVFILT_PROC, EV_ADD, NOTE_EXIT), 0);
    child.kill();
    ASSERT_TRUE(queue.waitUntilReadable());

    // The kept back event comes first in the epoll, and must not hide the second one.
    const Pipe other;
    other.write();
    ASSERT_EQ(queue.change(other.reader, EVFILT_READ, EV_ADD | EV_ONESHOT), 0);
    struct kevent event;
    ASSERT_EQ(::kevent(queue.get(), nullptr, 0, &event, 1, &atOnce), 1);
    EXPECT_EQ(event.filter, EVFILT_READ);

    const auto processorTime = [] {
        timespec time;
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto before = processorTime();
    const timespec silence{0, 200'000'000};
    EXPECT_EQ(::kevent(queue.get(), nullptr, 0, &event, 1, &silence), 0);
    EXPECT_LT(processorTime() - before, 100ms);

    gate.write();
    EXPECT_EQ(queue.next().filter, EVFILT_PROC);
}

TEST(Kqueue, UserEventsOfAnyIdentFireOnTheirTrigger) {
    const Queue queue;
    int user = 0;
    const auto pointer = reinterpret_cast<std::uintptr_t>(&user);
    ASSERT_EQ(queue.change(0, EVFILT_USER, EV_ADD | EV_CLEAR), 0);
    ASSERT_EQ(queue.change(pointer, EVFILT_USER, EV_ADD | EV_ONESHOT, 0, 0, &user), 0);
    EXPECT_TRUE(queue.isQuiet());

    ASSERT_EQ(queue.change(pointer, EVFILT_USER, 0, NOTE_TRIGGER), 0);
    EXPECT_EQ(queue.next().udata, &user);
    EXPECT_EQ(queue.change(pointer, EVFILT_USER, 0, NOTE_TRIGGER), ENOENT);

    // Two triggers are one event.
    ASSERT_EQ(queue.change(0, EVFILT_USER, 0, NOTE_TRIGGER), 0);
    ASSERT_EQ(queue.change(0, EVFILT_USER, 0, NOTE_TRIGGER), 0);
    EXPECT_EQ(queue.next().ident, 0U);
    EXPECT_TRUE(queue.isQuiet());

    ASSERT_EQ(queue.change(1, EVFILT_USER, EV_ADD, NOTE_TRIGGER), 0);
    EXPECT_EQ(queue.next().ident, 1U);
    EXPECT_EQ(queue.next().ident, 1U);
}

TEST(Kqueue, EachTriggerIsDeliveredToOneOfTheThreadsThatBlock) {
    constexpr std::uintptr_t count = 500;
    const Queue queue;
    std::array<std::atomic<int>, count + 1> deliveries{};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (;;) {
                const struct kevent event = queue.next();
                ++deliveries.at(event.ident);
                if (event.ident == count) return;
            }
        });
    for (std::uintptr_t i = 0; i < count; ++i) {
        EXPECT_EQ(queue.change(i, EVFILT_USER, EV_ADD | EV_ONESHOT), 0);
        EXPECT_EQ(queue.change(i, EVFILT_USER, 0, NOTE_TRIGGER), 0);
    }
    EXPECT_EQ(queue.change(count, EVFILT_USER, EV_ADD, NOTE_TRIGGER), 0);
    for (auto& thread : threads) thread.join();
    while (queue.change(count, EVFILT_USER, EV_DELETE) == 0) {
    }
    while (!queue.isQuiet()) ADD_FAILURE() << "left over";
    for (std::uintptr_t i = 0; i < count; ++i) EXPECT_EQ(deliveries[i], 1) << i;
}

TEST(Kqueue, SignalEndsACallThatBlocks) {
    const Queue queue;
    struct sigaction action{};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    struct sigaction before;
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
    std::atomic<bool> isOver = false;
    std::thread thread([&] {
        struct kevent event;
        EXPECT_EQ(::kevent(queue.get(), nullptr, 0, &event, 1, &limit), -1);
        EXPECT_EQ(errno, EINTR);
        isOver = true;
    });
    while (!isOver) {
        ::pthread_kill(thread.native_handle(), SIGUSR1);
        EXPECT_TRUE(queue.isQuiet());
        std::this_thread::yield();
    }
    thread.join();
    ::sigaction(SIGUSR1, &before, nullptr);
}

TEST(Kqueue, QueueInAQueueFires) {
    const Queue outer;
    const Queue inner;
    ASSERT_EQ(outer.change(static_cast<std::uintptr_t>(inner.get()), EVFILT_READ, EV_ADD), 0);
    EXPECT_TRUE(outer.isQuiet());
    ASSERT_EQ(inner.change(0, EVFILT_USER, EV_ADD | EV_CLEAR, NOTE_TRIGGER), 0);
    EXPECT_EQ(outer.next().ident, static_cast<std::uintptr_t>(inner.get()));
    inner.next();
    EXPECT_TRUE(outer.isQuiet());
}

TEST(Kqueue, CloseDropsTheKnotesOfADescriptorThoughACopyOfItStaysOpen) {
    const std::array<Queue, 2> queues;
    Pipe pipe;
    for (const auto& queue : queues) ASSERT_EQ(queue.change(pipe.reader, EVFILT_READ, EV_ADD), 0);
    ASSERT_EQ(queues[0].change(pipe.writer, EVFILT_WRITE, EV_ADD), 0);
    const Descriptor reader(::dup(pipe.reader.get()));
    const Descriptor writer(::dup(pipe.writer.get()));
    pipe.write();
    const auto number = static_cast<std::uintptr_t>(pipe.reader.get());
    pipe.reader.close();
    pipe.writer.close();
    const Descriptor again(::dup(reader.get()));
    ASSERT_EQ(static_cast<std::uintptr_t>(again.get()), number);
    for (const auto& queue : queues) {
        EXPECT_TRUE(queue.isQuiet());
        EXPECT_EQ(queue.change(again, EVFILT_READ, EV_DELETE), ENOENT);
        EXPECT_EQ(queue.change(again, EVFILT_READ, EV_ADD), 0);
        EXPECT_EQ(queue.next().ident, number);
    }
}

TEST(Kqueue, CloseOfAQueueGivesEverythingBackAndEndsTheCallsThatBlock) {
    const auto before = openDescriptors();
    {
        const Child child(pauseForever);
        const Pipe pipe;
        Queue queue;
        ASSERT_EQ(queue.change(pipe.reader, EVFILT_READ, EV_ADD), 0);
        ASSERT_EQ(queue.change(pipe.reader, EVFILT_WRITE, EV_ADD), 0);
        ASSERT_EQ(queue.change(0, EVFILT_USER, EV_ADD), 0);
        ASSERT_EQ(queue.change(0, EVFILT_TIMER, EV_ADD, 0, 3'600'000), 0);
        ASSERT_EQ(queue.change(child.id(), EVFILT_PROC, EV_ADD, NOTE_EXIT), 0);
        for (std::uintptr_t i = 1; i < 50; ++i) {
            ASSERT_EQ(queue.change(i, EVFILT_USER, EV_ADD | EV_ONESHOT, NOTE_TRIGGER), 0);
            EXPECT_EQ(queue.next().ident, i);
        }
        const int number = queue.get();
        std::atomic<pid_t> threadId = 0;
        std::thread thread([&] {
            threadId = ::gettid();
            struct kevent event;
            EXPECT_EQ(::kevent(number, nullptr, 0, &event, 1, &limit), -1);
            EXPECT_EQ(errno, EBADF);
        });
        while (threadId == 0 || !isAsleep(threadId)) std::this_thread::yield();
        const auto start = std::chrono::steady_clock::now();
        queue.close();
        thread.join();
        EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
        EXPECT_EQ(::kevent(number, nullptr, 0, nullptr, 0, nullptr), -1);
        EXPECT_EQ(errno, EBADF);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Kqueue, ForkedChildHasNoQueueAndItsClosesChangeNothing) {
    const Queue queue;
    Pipe pipe;
    ASSERT_EQ(queue.change(pipe.reader, EVFILT_READ, EV_ADD), 0);
    ASSERT_EQ(queue.change(pipe.writer, EVFILT_WRITE, EV_ADD | EV_ONESHOT), 0);
    Child child([&] {
        pipe.reader.close();
        pipe.writer.close();
        if (queue.isQuiet() || errno != EBADF || ::fcntl(queue.get(), F_GETFD) != -1) ::_exit(1);
        const Queue own;
        Pipe other;
        other.write();
        if (own.change(other.reader, EVFILT_READ, EV_ADD) != 0 || own.isQuiet()) ::_exit(2);
        const Descriptor copy(::dup(other.reader.get()));
        other.reader.close();
        if (!own.isQuiet()) ::_exit(3);
    });
    EXPECT_EQ(child.reap(), 0);
    EXPECT_EQ(queue.next().filter, EVFILT_WRITE);
    EXPECT_TRUE(queue.isQuiet());
    pipe.write();
    EXPECT_EQ(queue.next().data, 1);
}

} // namespace
