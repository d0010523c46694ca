#include <Platform/runtime/detail/Poller.h>

#include <semaphore>

#include <command/Children.h>

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
    std::atomic<int> calls = 0;
    Call reading(WatchEvent::readable, pipe.reading, [&] { ++calls, called.release(); });
    Call writing(WatchEvent::writable, pipe.writing, [&] { called.release(); });
    reading.arm();
    writing.arm();
    called.acquire(); // the one that may be written to: nothing can be read yet
    EXPECT_EQ(calls, 0);
    for (int round = 1; round <= 100; ++round) {
        if (round > 1) reading.arm();
        pipe.writing.write(Data("x"));
        called.acquire();
        EXPECT_EQ(calls, round) << "what is still to be read calls nobody who is not armed";
        EXPECT_FALSE(reading.cancel());
    }
    writing.cancel();
    pipe.writing.reset();
    reading.arm();
    called.acquire(); // the end of the stream
    const Faults fault(Faults::failing(SystemCall::watch, ENOMEM));
    EXPECT_EQ(thrownNumber([&] { reading.arm(); }), ENOMEM);
    EXPECT_EQ(calls, 101);
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
