#include <Platform/runtime/detail/Poller.h>

#include <semaphore>

#include <command/Children.h>
#include <support/Commands.h>
#include <support/SeededExecutor.h>

namespace Platform {

using detail::WatchEvent;

namespace {

class Call final : public detail::Watch {
public:
    Call(WatchEvent event, const FileDescriptor& subject, std::function<void()> body)
        : Watch(event), body_(std::move(body)) {
        setSubject(subject.get());
    }
    ~Call() { cancel(); }

private:
    void ready() noexcept override {
        const auto body = body_; // which may be the end of this
        body();
    }
    std::function<void()> body_;
};

} // namespace

TEST(Poller, CallsOnceForEachArming) {
    const NobodyLeft check;
    Pipe pipe = makePipe();
    std::counting_semaphore<> called(0);
    const auto note = [&] { called.release(); };
    Call reading(WatchEvent::readable, pipe.reading, note);
    Call writing(WatchEvent::writable, pipe.writing, note);
    reading.arm();
    writing.arm();
    called.acquire(); // the one that may be written to
    EXPECT_FALSE(called.try_acquire()) << "nothing can be read yet";
    for (int round = 0; round < 100; ++round) {
        pipe.writing.write(Data("x"));
        called.acquire();
        EXPECT_FALSE(reading.cancel());
        EXPECT_FALSE(called.try_acquire()) << "what is still to be read calls who is not armed";
        reading.arm();
    }
    called.acquire();
    const Faults fault(Faults::failing(SystemCall::watch, ENOMEM));
    EXPECT_EQ(thrownNumber([&] { reading.arm(); }), ENOMEM);
    EXPECT_FALSE(called.try_acquire());
}

// A worker waits for events while it has nothing else to do; others see to them while it has, and
// it is there for tasks all the same.
TEST(Poller, IsWaitedForByWhoeverIsIdle) {
    const NobodyLeft check;
    Pipe pipe = makePipe();
    int seated = 0;
    for (int round = 0; round < rounds(60, 3'000); ++round) {
        const OwnPool pool(1);
        std::binary_semaphore called(0), begun(0), goesOn(0);
        std::thread::id worker, caller;
        Call reading(WatchEvent::readable, pipe.reading, [&] {
            caller = std::this_thread::get_id();
            std::array<std::byte, 1> byte;
            pipe.reading.read(byte);
            called.release();
        });
        const auto happen = [&] {
            reading.arm();
            pipe.writing.write(Data("x"));
            called.acquire();
        };
        auto task = detached([&]() -> Task<> {
            worker = std::this_thread::get_id();
            begun.release();
            goesOn.acquire();
            co_return;
        });
        begun.acquire();
        for (int i = round % 4; i > 0; --i) happen();
        EXPECT_NE(caller, worker) << "which is busy";
        goesOn.release();
        result(std::move(task));
        for (int i = round % 3; i > 0; --i) {
            happen();
            seated += caller == worker;
        }
        result(detached([]() -> Task<> { co_return; }));
    }
    EXPECT_GT(seated, 0);
}

TEST(Poller, LeavesSignalsToTheHost) {
    sigset_t signals, before;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    sigaddset(&signals, SIGUSR1);
    // macOS throws a signal away that is ignored by default, unless it has a handler.
    struct sigaction handler{}, previous{};
    handler.sa_handler = [](int) {};
    ::sigaction(SIGCHLD, &handler, &previous);
    const auto idle = []() -> Task<> { co_return; };
    result(detached(idle)); // the threads are there before the host blocks anything
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    for (int round = 0; round < 100; ++round) {
        const int sent = round % 2 == 0 ? SIGCHLD : SIGUSR1;
        ::kill(::getpid(), sent);
        result(detached(idle)); // as much time as a thread needs to take it
        int signal = 0;
        EXPECT_EQ(sigwait(&signals, &signal), 0);
        EXPECT_EQ(signal, sent);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::sigaction(SIGCHLD, &previous, nullptr);
}

TEST(Poller, AfterCancelNothingIsCalled) {
    const NobodyLeft check;
    Pipe pipe = makePipe();
    pipe.writing.write(Data("x"));
    int cancelled = 0;
    for (int round = 0; round < 300; ++round) { // ready all the time, arming itself again each time
        std::atomic<bool> mayRun = true;
        std::atomic<int> calls = 0;
        std::unique_ptr<Call> watch;
        watch = std::make_unique<Call>(WatchEvent::readable, pipe.reading, [&] {
            EXPECT_TRUE(mayRun);
            ++calls;
            watch->arm();
        });
        watch->arm();
        while (calls < round % 3) std::this_thread::yield();
        cancelled += watch->cancel();
        mayRun = false;
    }
    EXPECT_GT(cancelled, 0);
    // One that goes in its own call.
    std::binary_semaphore gone(0);
    auto* const watch = new std::unique_ptr<Call>;
    *watch = std::make_unique<Call>(WatchEvent::readable, pipe.reading, [&gone, watch] {
        delete watch;
        gone.release();
    });
    (*watch)->arm();
    gone.acquire();
}

} // namespace Platform
