#include <Platform/runtime/detail/BlockingPool.h>

#include <support/BarePeer.h>
#include <support/HandOffs.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

using Entries = std::vector<std::string>;

std::string entry(int number) {
    return std::string("editorServer: error: ") + Errno(number).what();
}

/// Accepts everything, and counts that; the token goes with the serving task.
Editor::Server::EditBlock accepting(std::shared_ptr<void> token = {},
                                    std::atomic<int>* asked = nullptr) {
    return [token = std::move(token), asked](std::string) -> Task<bool> {
        if (asked) ++*asked;
        co_await Yield();
        co_await Yield();
        co_return true;
    };
}

TEST(EditorServer, AnswersEveryRequestOfABareClient) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    const std::string large(1 << 20, 'x');
    const struct {
        std::string request;
        std::optional<std::string> asked;
        std::string answer;
    } rows[] = {
        {"\4/a b/accept", "/a b/accept", "\0"s},
        {"\4/a b/accept", "/a b/accept", "\0"s},
        {"\4decline", "decline", "\1"},
        {"\4throw", "throw", "\1"},
        {"\4", "", "\0"s},
        {"\4\xFF\n", "\xEF\xBF\xBD\n", "\0"s},
        {"\4" + large, large, "\0"s},
        {"\3prompt", std::nullopt, "\1"},
        {"\2", std::nullopt, "\1"},
        {"\1", std::nullopt, "\1"},
        {"\0"s, std::nullopt, "\1"},
    };
    for (const std::string& malformed : {""s, "\5"s, "\xFF" + large}) {
        SCOPED_TRACE(malformed.size());
        std::mutex mutex;
        std::vector<std::string> asked;
        Ended ended;
        Editor::Server server([&, token = ended.token()](std::string path) -> Task<bool> {
            const std::lock_guard guard(mutex);
            asked.push_back(path);
            if (path == "throw") throw std::runtime_error("no\nwindow");
            co_return path != "decline";
        });
        EXPECT_EQ(server.environment(),
                  (std::map<std::string, std::string>{{"MV_EDITOR_CONN", server.path()}}));
        const auto send = [&](const std::string& bytes) {
            return Process({program("helper-pipe-peer"), server.path(),
                            "<" + write(directory / "request", bytes), ">" + directory / "answer"});
        };
        for (const auto& [request, path, answer] : rows) {
            SCOPED_TRACE(request.substr(0, 20));
            EXPECT_EQ(send(request).wait().status, 0);
            EXPECT_EQ(contentsOf(directory / "answer"), answer);
            const std::lock_guard guard(mutex);
            EXPECT_EQ(std::exchange(asked, {}), path ? Entries{*path} : Entries{});
        }
        EXPECT_EQ(log.take(), Entries{"editorServer: error: no window"});

        const Process unanswered = send(malformed);
        EXPECT_TRUE(ended.soon()) << "nobody is left to answer";
        EXPECT_EQ(log.take(), Entries{entry(EBADMSG)});
        EXPECT_TRUE(isPipe(server.path()));
        server.stop();
        EXPECT_FALSE(isPipe(server.path()));
        EXPECT_EQ(server.environment().at("MV_EDITOR_CONN"), server.path());
        EXPECT_EQ(log.take(), Entries{});
    }
}

// How long a thread takes into its open is nobody's to say, so the wait before the stop doubles.
TEST(EditorServer, StoppedWhileItWaitsItLogsOnceAndRemovesThePipe) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    Entries entries;
    for (unsigned turns = 1; entries != Entries{entry(EBADMSG)} && turns < 1U << 30U; turns *= 2) {
        SeededExecutor executor(1);
        Ended ended;
        std::optional<Editor::Server> server(std::in_place, accepting(ended.token()));
        executor.runUntilIdle(); // into the receive
        spin(turns);
        if (turns % 3 == 1) { // else the destructor does it
            const Faults faults(Faults::failing(SystemCall::unlink, EBUSY));
            EXPECT_EQ(thrownNumber([&] { server->stop(); }), EBUSY);
            EXPECT_EQ(directory.pipes(), 1);
            server->stop();
            server->stop();
        }
        server.reset();
        EXPECT_EQ(directory.pipes(), 0);
        executor.runUntil([&] { return ended.now(); });
        entries = log.take();
        EXPECT_TRUE(entries == Entries{entry(EBADMSG)} || entries == Entries{entry(ENOENT)});
    }
    EXPECT_EQ(entries, Entries{entry(EBADMSG)});
}

TEST(EditorServer, StopCancelsTheCallbackAndReleasesItsClient) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    Ended ended;
    std::promise<void> asked;
    bool cancelled = false;
    Editor::Server server([&, token = ended.token()](std::string) -> Task<bool> {
        std::optional<CheckedContinuation<>> window;
        const auto open = [&]() -> Task<void> {
            auto opening = withCheckedContinuation("window", [&](CheckedContinuation<> opened) {
                window = opened;
                asked.set_value();
            });
            co_await opening;
        };
        auto editing = withTaskCancellationHandler(open, [&]() noexcept { window->resume(); });
        co_await editing;
        cancelled = isTaskCancelled();
        co_return true;
    });
    BarePeer client(server.path(), "<>", "\4path");
    asked.get_future().wait();
    server.stop();
    EXPECT_TRUE(ended.soon());
    EXPECT_TRUE(cancelled);
    for (const std::string& answer : client.release()) EXPECT_EQ(answer, "");
    EXPECT_EQ(log.take(), Entries{});
}

TEST(EditorServer, AHundredAreIndependent) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    const LogEntries log;
    constexpr int count = 100;
    std::deque<Ended> ended(count);
    std::deque<Editor::Server> servers;
    for (int i = 0; i < count; ++i) {
        const auto answer = [token = ended[static_cast<std::size_t>(i)].token(),
                             own = std::to_string(i)](std::string path) -> Task<bool> {
            co_return path == own;
        };
        servers.emplace_back(answer);
    }
    EXPECT_EQ(directory.pipes(), count);
    for (int i = count; i-- > 0;) {
        const std::string& path = servers[static_cast<std::size_t>(i)].path();
        EXPECT_EQ(BarePeer(path, "<>", "\4" + std::to_string(i)).finish(), Entries{"\0"s});
        EXPECT_EQ(BarePeer(path, "<>", "\4" + std::to_string(i + 1)).finish(), Entries{"\1"});
    }
    servers.clear();
    EXPECT_EQ(directory.pipes(), 0);
    for (const Ended& end : ended) EXPECT_TRUE(end.soon());
}

/// What the construction of a server throws: the number, and the text.
std::string refusal() {
    const NothingLeft check;
    Ended ended;
    try {
        const LogEntries log;
        {
            const Editor::Server server(accepting(ended.token()));
        }
        return ended.soon() ? "none" : "serves on";
    } catch (const Errno& error) {
        return std::to_string(error.number()) + " " + error.what();
    }
}

TEST(EditorServer, IsNotMadeInAHostileTemporaryDirectory) {
    const OwnTemporaryDirectory directory;
    const std::string planted = directory.pipeDirectory();
    const std::string owner = std::to_string(::geteuid());
    const auto refused = [](int number, const std::string& context) {
        return std::to_string(number) + " " + Errno(number, context).what();
    };
    std::filesystem::create_directory_symlink(directory / "", planted);
    EXPECT_EQ(refusal(), refused(ENOTDIR, planted));
    std::filesystem::remove(planted);

    std::filesystem::create_directory(planted);
    ::chmod(planted.c_str(), 0770);
    EXPECT_EQ(refusal(), refused(EACCES, planted + " (owner " + owner + ", mode 0770)"));
    ::chmod(planted.c_str(), 0700);
    EXPECT_EQ(refusal(), "none");
    {
        const Faults full(Faults::failing(SystemCall::mkfifo, ENOSPC));
        EXPECT_TRUE(refusal().starts_with(std::to_string(ENOSPC) + " " + planted));
    }
    EXPECT_EQ(directory.pipes(), 0);
    if (::geteuid() != 0) GTEST_SKIP() << "the rest needs the rights of root";

    ASSERT_EQ(::chown(planted.c_str(), 65534, 65534), 0);
    EXPECT_EQ(refusal(), refused(EACCES, planted + " (owner 65534, mode 0700)"));
    std::filesystem::remove(planted);

    // Full when it holds itself and the directory.
    if (run({"mount", "-t", "tmpfs", "-o", "nr_inodes=2", "none", directory / ""}).status != 0) {
        GTEST_SKIP() << "nothing can be mounted here";
    }
    const std::string reason = refusal();
    EXPECT_EQ(run({"umount", directory / ""}).status, 0);
    EXPECT_TRUE(reason.starts_with(std::to_string(ENOSPC))) << reason;
    EXPECT_NE(reason.find(planted), std::string::npos) << reason;
}

TEST(EditorServer, AKilledHostLeavesNothingButItsOwnPipe) {
    const OwnTemporaryDirectory directory;
    EXPECT_EQ(run({program("example-minimal-host"), "kill -9 $PPID"}).status, -SIGKILL);
    EXPECT_EQ(directory.pipes(), 1);
}

/// Expects what a client whose host was stopped, and the log, may tell. A client that the removal's
/// open releases may find its own request before the unlink; only \0 accepts.
void expectAllowed(const Entries& answers, const Entries& entries) {
    for (const std::string& answer : answers) {
        EXPECT_TRUE(answer.empty() || answer == "\0"s || answer == "\4path") << answer;
    }
    EXPECT_LE(entries.size(), 1u);
    const std::string cancellation =
        std::string("editorServer: error: ") + CancellationError().what();
    for (const std::string& text : entries) {
        EXPECT_TRUE(text == entry(EBADMSG) || text == entry(EPIPE) || text == entry(ENOENT) ||
                    text == cancellation)
            << text;
    }
}

/// A server from its start to its end, and perhaps a client. The stop comes a random moment after
/// the start, after the callback was called, or after the client was answered.
struct Life {
    explicit Life(std::uint64_t random)
        : client(server.path(),
                 random % 4 == 0   ? ""
                 : random % 3 == 0 ? "@<>"
                                   : "<>",
                 "\4path"),
          instant(random % 4) {}

    bool hasInstantCome() const {
        return instant < 2 || (instant == 2 ? asked > 0 : client.hasEnded());
    }

    std::atomic<int> asked = 0;
    Ended ended;
    Editor::Server server{accepting(ended.token(), &asked)};
    BarePeer client;
    const std::uint64_t instant;
};

// On one thread for tasks, whose order the seed decides, with pauses at every system call.
TEST(EditorServer, StopRacesWithEveryStepOfServing) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    RandomPauses pauses;
    std::map<std::string, int> seen;
    for (int seed = 0; seed < rounds(800, 10'000) && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        SeededExecutor executor(static_cast<unsigned>(seed));
        pauses.seed(static_cast<unsigned>(seed));
        Life life(executor.choose(1000));
        const auto stopper =
            detached([&life, yields = std::size_t{1} << executor.choose(12)]() -> Task<void> {
                while (!life.hasInstantCome()) co_await Yield();
                for (auto left = yields; left > 0; --left) co_await Yield();
                life.server.stop();
            });
        executor.runUntil([&] { return stopper.hasEnded() && life.ended.now(); });
        const Entries answers = life.client.release();
        const Entries entries = log.take();
        expectAllowed(answers, entries);
        ++seen[answers.empty() ? "unanswered" : answers[0]];
        ++seen[entries.empty() ? "no entry" : entries[0]];
    }
    EXPECT_EQ(directory.pipes(), 0);
    for (const std::string& outcome : {"unanswered"s, "\0"s, "no entry"s, entry(EBADMSG)}) {
        EXPECT_GT(seen[outcome], 0) << outcome << ": the rounds miss it";
    }
}

// The same on the threads that a host has.
TEST(EditorServer, StoppedAtARandomInstantLeavesNothing) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    const std::size_t threads = detail::BlockingPool::shared().threadCount();
    std::mt19937 random(1);
    for (int round = 0; round < rounds(4'000, 400'000) && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE(round);
        // Every other round without a client.
        Life life(round % 2 == 0 ? 0 : random());
        while (!life.hasInstantCome()) std::this_thread::yield();
        spin(1U << random() % 18);
        life.server.stop();
        ASSERT_TRUE(life.ended.soon());
        const Entries answers = life.client.release();
        expectAllowed(answers, log.take());
    }
    EXPECT_EQ(directory.pipes(), 0);
    // One thread serves; another may not yet be back when the next round begins.
    EXPECT_LE(detail::BlockingPool::shared().threadCount(), threads + 8);
}

} // namespace
} // namespace Platform
