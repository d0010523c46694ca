#include <Platform/Platform.h>

#include "Comparison.h"

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Bench {

namespace {

using namespace Platform;

/// A token that two threads hand to each other.
class Token {
public:
    enum class Holder { caller, partner, nobody };

    /// False: nobody will ever have it again.
    bool waitFor(Holder wanted) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return holder_ == wanted || holder_ == Holder::nobody; });
        return holder_ == wanted;
    }
    void giveTo(Holder next) {
        const std::lock_guard guard(mutex_);
        holder_ = next;
        changed_.notify_one();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    Holder holder_ = Holder::caller;
};

constexpr int roundTrips = 200;

Task<> makeRoundTrips(SerialQueue& queue) {
    for (int i = 0; i < roundTrips; ++i) {
        co_await withCheckedContinuation(
            "round trip", [&queue](CheckedContinuation<> continuation) {
                queue.submit([continuation] { continuation.resume(); });
            });
    }
}

void serialQueue(benchmark::State& state) {
    using Holder = Token::Holder;
    SerialQueue queue("bench");
    const auto ours = [&queue] {
        runMain([](SerialQueue& on) -> Task<> {
            auto handle = detached([&on] { return makeRoundTrips(on); });
            co_await handle;
        }(queue));
    };
    Token token;
    std::thread partner([&token] {
        while (token.waitFor(Holder::partner)) token.giveTo(Holder::caller);
    });
    const auto bare = [&token] {
        for (int i = 0; i < roundTrips; ++i) {
            token.giveTo(Holder::partner);
            token.waitFor(Holder::caller);
        }
    };
    compareTimes(state, roundTrips, wholly(ours), wholly(bare));
    token.giveTo(Holder::nobody);
    partner.join();
}
BENCHMARK(serialQueue)->Name("serial-queue round trip")->UseManualTime();

/// A permit that is given back when the last copy has gone.
std::shared_ptr<void> permitOf(std::counting_semaphore<>& semaphore) {
    return {&semaphore,
            [](void* given) { static_cast<std::counting_semaphore<>*>(given)->release(); }};
}

void servers(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    std::counting_semaphore<> ended(0);
    // A server has ended for good once its serving task has let go of the callback. That is waited
    // for, so that it burdens neither side's next round, but not timed: `stop` does not wait for it
    // either.
    const auto ours = [&] {
        std::vector<std::unique_ptr<Editor::Server>> all(count);
        const Seconds time = timed([&] {
            for (auto& server : all) {
                server = std::make_unique<Editor::Server>(
                    [permit = permitOf(ended)](std::string) -> Task<bool> { co_return true; });
            }
            for (auto& server : all) server->stop();
        });
        all.clear();
        for (std::size_t i = 0; i < count; ++i) ended.acquire();
        return time;
    };
    std::vector<std::string> paths(count);
    for (auto& path : paths) path = makeTemporaryPipePath();
    const auto bare = [&] {
        for (const auto& pipe : paths) mkfifo(pipe.c_str(), 0600);
        for (const auto& pipe : paths) {
            const int releasing = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
            unlink(pipe.c_str());
            close(releasing);
        }
    };
    compareTimes(state, state.range(0), ours, wholly(bare));
}
BENCHMARK(servers)
    ->Name("server, created and stopped, so many at once")
    ->UseManualTime()
    ->ArgsProduct({{1, 10, 100}});

} // namespace

} // namespace Bench
