#include <support/BarePeer.h>
#include <support/Commands.h>
#include <support/HandOffs.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

using Message = MessageBus::Message;

/// Sends, or receives where there is nothing to send; tells in a word what became of it.
Task<std::string> operation(std::shared_ptr<MessageBus> bus, std::optional<Message> message = {}) {
    try {
        if (message) {
            auto sent = bus->send(*message);
            co_return co_await sent ? "sent" : "not sent";
        }
        auto received = bus->receive();
        const Message answer = co_await received;
        co_return static_cast<char>(answer.id()) + std::string(answer.data().view());
    } catch (const CancellationError&) {
        co_return "cancelled";
    } catch (const Errno& failure) {
        co_return std::to_string(failure.number());
    }
}

const std::string destroyedPipe = std::to_string(EPIPE);
const std::string malformed = std::to_string(EBADMSG);
const std::string missing = std::to_string(ENOENT);

TEST(MessageBus, TellsOfAShortWrite) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    const auto bus = MessageBus::create();
    const Faults faults([](SystemCall call, std::size_t* count) {
        if (call == SystemCall::write) *count -= 1;
        return 0;
    });
    BarePeer reader(bus->path(), ">");
    EXPECT_EQ(runMain(operation(bus, Message::text("short"))), "not sent");
    EXPECT_EQ(reader.finish(), std::vector{"\3shor"s});
}

TEST(MessageBus, OperationsKeepTheirOrderAndHeedCancellationOnlyBeforehand) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    SeededExecutor executor(1);
    const auto bus = MessageBus::create();
    {
        const Faults faults(Faults::failing(SystemCall::unlink, EBUSY));
        EXPECT_EQ(thrownNumber([&] { bus->destroy(); }), EBUSY); // which leaves it as it was
    }
    const std::optional<Message> messages[] = {Message::text("one"), {}, Message::text("two")};
    std::vector<TaskHandle<std::string>> handles;
    for (const bool cancelled : {false, true}) {
        for (const auto& message : messages) {
            handles.push_back(detached([bus, message] { return operation(bus, message); }));
            if (cancelled) handles.back().cancel();
            executor.runUntilIdle();
            EXPECT_EQ(handles.back().hasEnded(), cancelled);
            handles.back().cancel();
        }
    }
    BarePeer peer(bus->path(), "><>", "\3answer");
    executor.runUntil(
        [&] { return std::ranges::all_of(handles, &TaskHandle<std::string>::hasEnded); });
    EXPECT_EQ(peer.finish(), (std::vector{"\3one"s, "\3two"s}));
    std::string outcomes;
    for (auto& handle : handles) outcomes += result(std::move(handle)) + "; ";
    EXPECT_EQ(outcomes, "sent; \3answer; sent; cancelled; cancelled; cancelled; ");
    bus->destroy();
    bus->destroy();
    EXPECT_EQ(directory.pipes(), 0);
}

/// An operation, and what its task saw when it began.
struct Attempt {
    std::optional<Message> message;
    bool wasCancelled = false;
    bool wasDestroyed = false;
    TaskHandle<std::string> handle;
};

// Every round: up to four operations, each perhaps cancelled, a bare peer that takes part in some
// of them, and a destruction, in an order that the seed decides and with pauses at every system
// call.
TEST(MessageBus, DestructionAndCancellationRaceWithOperations) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    RandomPauses pauses;
    const std::string fromPeer = "\2from a peer: \0\xFF\n"s;
    std::map<std::string, int> seen;
    for (int seed = 0; seed < rounds(700, 10'000) && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        SeededExecutor executor(static_cast<unsigned>(seed));
        pauses.seed(static_cast<unsigned>(seed));
        const auto bus = MessageBus::create();
        bool isDestroyed = false;
        std::string steps = "<><><"s.substr(executor.choose(2), executor.choose(4));
        std::vector<Attempt> attempts(1 + executor.choose(4));
        for (Attempt& attempt : attempts) {
            if (executor.choose(2) == 0) continue;
            attempt.message = Message::data(Data(std::to_string(&attempt - attempts.data())));
        }
        const bool meets = executor.choose(4) == 0; // a single one, which its peer certainly meets
        if (meets) {
            attempts.resize(1);
            steps = attempts[0].message ? ">" : "<";
        }
        const auto delayed = [&](auto instant, auto action) {
            return detached([=, yields = std::size_t{1} << executor.choose(12)]() -> Task<void> {
                while (!instant()) co_await Yield();
                for (auto left = yields; left > 0; --left) co_await Yield();
                action();
            });
        };
        BarePeer peer(bus->path(), steps, fromPeer);
        for (Attempt& attempt : attempts) {
            attempt.handle = detached([&attempt, &isDestroyed, bus] {
                attempt.wasCancelled = isTaskCancelled();
                attempt.wasDestroyed = isDestroyed;
                return operation(bus, attempt.message);
            });
            if (executor.choose(3) == 0) {
                delayed([] { return true; }, [&attempt] { attempt.handle.cancel(); });
            }
        }
        delayed([&attempts, meets] { return !meets || attempts[0].handle.hasEnded(); },
                [&isDestroyed, bus] {
                    isDestroyed = true;
                    bus->destroy();
                });
        executor.runUntil([&] {
            return isDestroyed && std::ranges::all_of(attempts, [](auto& attempt) {
                       return attempt.handle.hasEnded();
                   });
        });
        executor.runUntilIdle();
        const auto received = peer.release();
        std::multiset<std::string> sent;
        for (Attempt& attempt : attempts) {
            const std::string outcome = result(std::move(attempt.handle));
            ++seen[outcome];
            std::set<std::string> allowed = {missing};
            if (attempt.wasDestroyed) {
                allowed = {attempt.message ? "not sent" : destroyedPipe};
            } else if (attempt.wasCancelled) {
                allowed = {"cancelled"};
            } else if (attempt.message) {
                allowed.insert(destroyedPipe);
                if (steps.find('>') != std::string::npos) allowed.insert("sent");
                if (outcome == "sent") sent.insert("\2" + attempt.message->string());
            } else {
                allowed.insert(malformed);
                if (steps.find('<') != std::string::npos) allowed.insert(fromPeer);
                // From under a peer that opened but is slow to read, released by the removal's
                // open.
                if (outcome.starts_with('\2')) allowed.insert(outcome);
            }
            EXPECT_TRUE(allowed.contains(outcome)) << outcome;
        }
        for (std::string_view frames : received) { // what is sent in a row may come in one piece
            // A peer that the removal's open releases may even find its own message before the
            // unlink.
            if (frames.starts_with(fromPeer)) frames.remove_prefix(fromPeer.size());
            for (; !frames.empty(); frames.remove_prefix(std::min<std::size_t>(2, frames.size()))) {
                EXPECT_EQ(sent.erase(std::string(frames.substr(0, 2))), 1u) << frames;
            }
        }
        EXPECT_FALSE(isPipe(bus->path()));
    }
    for (const std::string& result :
         {"sent"s, "not sent"s, "cancelled"s, fromPeer, destroyedPipe, malformed, missing}) {
        EXPECT_GT(seen[result], 0) << result << ": the rounds miss an outcome";
    }
}

} // namespace
} // namespace Platform
