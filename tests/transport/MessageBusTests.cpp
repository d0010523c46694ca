#include <support/BarePeer.h>
#include <support/Commands.h>
#include <support/HandOffs.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

using Message = MessageBus::Message;

/// What became of an operation, in a word.
std::string described(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const CancellationError&) {
        return "cancelled";
    } catch (const Errno& failure) {
        return std::to_string(failure.number());
    }
}

Task<std::string> sending(std::shared_ptr<MessageBus> bus, Message message) {
    try {
        auto sent = bus->send(std::move(message));
        co_return co_await sent ? "sent" : "not sent";
    } catch (...) {
        co_return described(std::current_exception());
    }
}

Task<std::string> receiving(std::shared_ptr<MessageBus> bus) {
    try {
        auto received = bus->receive();
        const Message message = co_await received;
        co_return static_cast<char>(message.id()) + std::string(message.data().view());
    } catch (...) {
        co_return described(std::current_exception());
    }
}

Task<std::string> operation(std::shared_ptr<MessageBus> bus, std::optional<Message> message) {
    return message ? sending(std::move(bus), std::move(*message)) : receiving(std::move(bus));
}

const std::string destroyedPipe = std::to_string(EPIPE);
const std::string malformed = std::to_string(EBADMSG);
const std::string missing = std::to_string(ENOENT);

TEST(MessageBus, AMessageIsTheIdByteAndThePayloadUpToTheEnd) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    const auto bus = MessageBus::create();
    const std::string large(1 << 20, 'x');
    const std::string bytes = "\0\xFF\n"s;
    const std::pair<Message, std::string> rows[] = {
        {Message::ok(), "\0"s},
        {Message::abort(), "\1"},
        {Message::data(Data()), "\2"},
        {Message::data(Data(bytes)), "\2" + bytes},
        {Message::text("a line"), "\3a line"},
        {Message::filePath("a b/\xC3\xBC.c"), "\4a b/\xC3\xBC.c"},
        {Message::data(Data(large)), "\2" + large},
    };
    for (const IdleThread idle : {IdleThread::sleeps, IdleThread::runsBlockingWork}) {
        for (const auto& [message, frame] : rows) {
            BarePeer reader(bus->path(), ">");
            EXPECT_EQ(runMain(sending(bus, message), idle), "sent");
            EXPECT_EQ(reader.finish(), std::vector<std::string>{frame});
            const BarePeer writer(bus->path(), "<", frame);
            EXPECT_EQ(runMain(receiving(bus), idle), frame);
        }
        for (const std::string& frame : {""s, "\5"s, "\xFF"s, "\5" + large}) {
            const BarePeer writer(bus->path(), "<", frame);
            EXPECT_EQ(runMain(receiving(bus), idle), malformed);
        }
    }
    EXPECT_EQ(Message::data(Data("a\xFFz")).string(), "a\xEF\xBF\xBDz");
    EXPECT_EQ(Message::ok().string(), "");

    const Faults faults([](SystemCall call, std::size_t* count) {
        if (call == SystemCall::write) *count -= 1;
        return 0;
    });
    BarePeer reader(bus->path(), ">");
    EXPECT_EQ(runMain(sending(bus, Message::text("short"))), "not sent");
    EXPECT_EQ(reader.finish(), std::vector<std::string>{"\3shor"});
}

TEST(MessageBus, DestroyEndsItOnlyWhenThePipeCouldBeRemoved) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    const auto bus = MessageBus::create();
    ::unlink(bus->path().c_str());
    EXPECT_EQ(thrownNumber([&] { bus->destroy(); }), ENOENT);
    EXPECT_EQ(runMain(sending(bus, Message::ok())), missing) << "still open";
    EXPECT_EQ(runMain(receiving(bus)), missing);
    ::mkfifo(bus->path().c_str(), 0600);
    bus->destroy();
    EXPECT_EQ(directory.pipes(), 0);
    bus->destroy();
    EXPECT_EQ(runMain(sending(bus, Message::ok())), "not sent");
    EXPECT_EQ(runMain(receiving(bus)), destroyedPipe);
}

TEST(MessageBus, OperationsKeepTheirOrderAndHeedCancellationOnlyBeforehand) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    SeededExecutor executor(1);
    const auto bus = MessageBus::create();
    const auto begin = [&](std::optional<Message> message, bool cancelled) {
        auto handle = detached([bus, message] { return operation(bus, message); });
        if (cancelled) handle.cancel();
        executor.runUntilIdle();
        EXPECT_EQ(handle.hasEnded(), cancelled);
        handle.cancel();
        return handle;
    };
    std::vector<TaskHandle<std::string>> handles;
    for (const bool cancelled : {false, true}) {
        handles.push_back(begin(Message::text("one"), cancelled));
        handles.push_back(begin(std::nullopt, cancelled));
        handles.push_back(begin(Message::text("two"), cancelled));
    }
    BarePeer peer(bus->path(), "><>", "\3answer");
    executor.runUntil(
        [&] { return std::ranges::all_of(handles, &TaskHandle<std::string>::hasEnded); });
    EXPECT_EQ(peer.finish(), (std::vector{"\3one"s, "\3two"s}));
    for (const char* expected :
         {"sent", "\3answer", "sent", "cancelled", "cancelled", "cancelled"}) {
        EXPECT_EQ(result(std::move(handles.front())), expected);
        handles.erase(handles.begin());
    }
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
    const std::string fromPeer = "\4from peer";
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
            attempt.message = Message::text(std::to_string(&attempt - attempts.data()));
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
                if (outcome == "sent") sent.insert("\3" + attempt.message->string());
            } else {
                allowed.insert(malformed);
                if (steps.find('<') != std::string::npos) allowed.insert(fromPeer);
                // From under a peer that opened but is slow to read, released by the removal's
                // open.
                if (outcome.starts_with('\3')) allowed.insert(outcome);
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
