#include <Platform/runtime/detail/BlockingPool.h>

#include <support/BarePeer.h>
#include <support/HandOffs.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

using Entries = std::vector<std::string>;
using Answer = std::optional<std::string>;

/// What the two servers do differently: the request they serve, the verdict of their callback, and
/// the reply that makes.
struct Edits {
    using Server = Editor::Server;
    using Verdict = bool;
    static constexpr const char* label = "editorServer: error: ";
    static constexpr bool logsItsStop = true;
    static constexpr char request = '\4';
    static Verdict decided(const std::string& text) { return text != "decline"; }
    static std::string reply(const std::string&) { return "\0"s; }
};

struct Prompts {
    using Server = Askpass::Server;
    using Verdict = Answer;
    static constexpr const char* label = "askpassServer: error: ";
    static constexpr bool logsItsStop = false;
    static constexpr char request = '\3';
    static Verdict decided(const std::string& text) {
        return text == "decline" ? std::nullopt : Answer(text + "\xFF\n");
    }
    static std::string reply(const std::string& text) { return "\3" + text + "\xFF\n"; }
};

template <class Side>
std::string entry(int number) {
    return Side::label + std::string(Errno(number).what());
}

/// Accepts everything, and counts that; the token goes with the serving task.
template <class Side>
auto accepting(std::shared_ptr<void> token = {}, std::atomic<int>* asked = nullptr) {
    return [token = std::move(token), asked](std::string text) -> Task<typename Side::Verdict> {
        if (asked) ++*asked;
        co_await Yield();
        co_await Yield();
        co_return Side::decided(text);
    };
}

template <class Side>
class HandOffServer : public testing::Test {};
using Sides = testing::Types<Edits, Prompts>;
TYPED_TEST_SUITE(HandOffServer, Sides, );

TYPED_TEST(HandOffServer, AnswersEveryRequestOfABareClient) {
    using Side = TypeParam;
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    const std::string large(1 << 20, 'x'), kind(1, Side::request), other(1, Side::request ^ 7);
    const struct {
        std::string request;
        Answer asked;
    } rows[] = {
        {kind + "/a b/accept", "/a b/accept"},
        {kind + "/a b/accept", "/a b/accept"},
        {kind + "decline", "decline"},
        {kind + "throw", "throw"},
        {kind, ""},
        {kind + "\xFF\n", "\xEF\xBF\xBD\n"},
        {kind + large, large},
        {other + "of the other server", std::nullopt},
        {"\2", std::nullopt},
        {"\1", std::nullopt},
        {"\0"s, std::nullopt},
    };
    for (const std::string& malformed : {""s, "\5"s, "\xFF" + large}) {
        SCOPED_TRACE(malformed.size());
        std::mutex mutex;
        Entries asked;
        Ended ended;
        typename Side::Server server(
            [&, token = ended.token()](std::string text) -> Task<typename Side::Verdict> {
                const std::lock_guard guard(mutex);
                asked.push_back(text);
                if (text == "throw") throw std::runtime_error("no\nwindow");
                co_return Side::decided(text);
            });
        const std::map<std::string, std::string> environment{{"MV_EDITOR_CONN", server.path()}};
        EXPECT_EQ(server.environment(), environment);
        for (const auto& [request, text] : rows) {
            SCOPED_TRACE(request.substr(0, 20));
            const bool isAccepted = text && text != "decline" && text != "throw";
            EXPECT_EQ(BarePeer(server.path(), "<>", request).finish(),
                      Entries{isAccepted ? Side::reply(*text) : "\1"});
            const std::lock_guard guard(mutex);
            EXPECT_EQ(std::exchange(asked, {}), text ? Entries{*text} : Entries{});
        }
        EXPECT_EQ(log.take(), Entries{Side::label + "no window"s});

        const BarePeer unanswered(server.path(), "<>", malformed);
        EXPECT_TRUE(ended.soon()) << "nobody is left to answer";
        EXPECT_EQ(log.take(), Entries{entry<Side>(EBADMSG)});
        EXPECT_TRUE(isPipe(server.path()));
        server.stop();
        server.stop();
        EXPECT_FALSE(isPipe(server.path()));
        EXPECT_EQ(server.environment(), environment);
        EXPECT_EQ(log.take(), Entries{});
    }
}

// How long a thread takes into its open is nobody's to say, so the wait before the stop doubles.
TEST(EditorServer, StoppedWhileItWaitsItLogsOnceAndRemovesThePipe) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    const Entries released{entry<Edits>(EBADMSG)}, early{entry<Edits>(ENOENT)};
    Entries entries;
    for (unsigned turns = 1; entries != released && turns < 1U << 30U; turns *= 2) {
        SeededExecutor executor(1);
        Ended ended;
        std::optional<Editor::Server> server(std::in_place, accepting<Edits>(ended.token()));
        executor.runUntilIdle(); // into the receive
        spin(turns);
        if (turns % 3 == 1) { // else the destructor does it
            const Faults faults(Faults::failing(SystemCall::unlink, EBUSY));
            EXPECT_EQ(thrownNumber([&] { server->stop(); }), EBUSY);
            EXPECT_EQ(directory.pipes(), 1);
            server->stop();
        }
        server.reset();
        EXPECT_EQ(directory.pipes(), 0);
        executor.runUntil([&] { return ended.now(); });
        entries = log.take();
        EXPECT_TRUE(entries == released || entries == early);
    }
    EXPECT_EQ(entries, released);
}

TEST(EditorServer, StopCancelsTheCallbackAndReleasesItsClient) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    Ended ended;
    std::promise<void> asked;
    Editor::Server server([&, token = ended.token()](std::string) -> Task<bool> {
        asked.set_value();
        while (!isTaskCancelled()) co_await Yield();
        co_return true;
    });
    BarePeer client(server.path(), "<>", "\4path");
    asked.get_future().wait();
    server.stop();
    EXPECT_TRUE(ended.soon());
    for (const std::string& answer : client.release()) EXPECT_EQ(answer, "");
    EXPECT_EQ(log.take(), Entries{});
}

TEST(EditorServer, AHundredAreIndependent) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    const LogEntries log;
    std::deque<Ended> ended(100);
    std::deque<Editor::Server> servers;
    for (Ended& end : ended) {
        const auto answer = [token = end.token(), own = std::to_string(servers.size())](
                                std::string path) -> Task<bool> { co_return path == own; };
        servers.emplace_back(answer);
    }
    EXPECT_EQ(directory.pipes(), 100);
    for (std::size_t i = servers.size(); i-- > 0;) {
        const std::string& path = servers[i].path();
        EXPECT_EQ(BarePeer(path, "<>", "\4" + std::to_string(i)).finish(), Entries{"\0"s});
        EXPECT_EQ(BarePeer(path, "<>", "\4" + std::to_string(i + 1)).finish(), Entries{"\1"});
    }
    servers.clear();
    EXPECT_EQ(directory.pipes(), 0);
    for (const Ended& end : ended) EXPECT_TRUE(end.soon());
}

TEST(EditorServer, IsNotMadeInAHostileTemporaryDirectory) {
    const OwnTemporaryDirectory directory;
    const std::string planted = directory.pipeDirectory();
    const auto refusal = []() -> std::string {
        const NothingLeft check;
        try {
            const Editor::Server server(accepting<Edits>());
        } catch (const Errno& error) {
            return error.what();
        }
        return "none";
    };
    std::filesystem::create_directory_symlink(directory / "", planted);
    EXPECT_EQ(refusal(), Errno(ENOTDIR, planted).what());
    std::filesystem::remove(planted);
    std::filesystem::create_directory(planted);
    ::chmod(planted.c_str(), 0770);
    EXPECT_EQ(
        refusal(),
        Errno(EACCES, planted + " (owner " + std::to_string(::geteuid()) + ", mode 0770)").what());
    ::chmod(planted.c_str(), 0700);
    const Faults full(Faults::failing(SystemCall::mkfifo, ENOSPC));
    EXPECT_TRUE(refusal().starts_with(planted));
    EXPECT_EQ(directory.pipes(), 0);
}

/// A server from its start to its end, and perhaps a client. The stop comes a random moment after
/// the start, after the callback was called, or after the client was answered.
template <class Side>
struct Life {
    explicit Life(std::uint64_t random)
        : client(server.path(),
                 random % 4 == 0   ? ""
                 : random % 3 == 0 ? "@<>"
                                   : "<>",
                 request),
          instant(random % 4) {}

    bool hasInstantCome() const {
        return instant < 2 || (instant == 2 ? asked > 0 : client.hasEnded());
    }

    /// Expects what a client whose host was stopped, and the log, may tell. A client that the
    /// removal's open releases may find its own request before the unlink.
    void expectAllowed(const Entries& answers, const Entries& entries) const {
        for (const std::string& answer : answers) {
            EXPECT_TRUE(answer.empty() || answer == Side::reply("path") || answer == request)
                << answer;
        }
        const std::set<std::string> allowed{entry<Side>(EBADMSG), entry<Side>(EPIPE),
                                            entry<Side>(ENOENT),
                                            Side::label + std::string(CancellationError().what())};
        EXPECT_LE(entries.size(), Side::logsItsStop ? 1U : 0U);
        for (const std::string& text : entries) EXPECT_TRUE(allowed.contains(text)) << text;
    }

    const std::string request = Side::request + "path"s;
    std::atomic<int> asked = 0;
    Ended ended;
    typename Side::Server server{accepting<Side>(ended.token(), &asked)};
    BarePeer client;
    const std::uint64_t instant;
};

// On one thread for tasks, whose order the seed decides, with pauses at every system call.
TYPED_TEST(HandOffServer, StopRacesWithEveryStepOfServing) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    RandomPauses pauses;
    std::map<std::string, int> seen;
    for (int seed = 0; seed < rounds(800, 10'000) && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        SeededExecutor executor(static_cast<unsigned>(seed));
        pauses.seed(static_cast<unsigned>(seed));
        Life<TypeParam> life(executor.choose(1000));
        const auto stopper =
            detached([&life, yields = std::size_t{1} << executor.choose(12)]() -> Task<void> {
                while (!life.hasInstantCome()) co_await Yield();
                for (auto left = yields; left > 0; --left) co_await Yield();
                life.server.stop();
            });
        executor.runUntil([&] { return stopper.hasEnded() && life.ended.now(); });
        const Entries answers = life.client.release();
        const Entries entries = log.take();
        life.expectAllowed(answers, entries);
        ++seen[answers.empty() ? "unanswered" : answers[0]];
        ++seen[entries.empty() ? "no entry" : entries[0]];
    }
    EXPECT_EQ(directory.pipes(), 0);
    Entries outcomes{"unanswered", TypeParam::reply("path"), "no entry"};
    if (TypeParam::logsItsStop) outcomes.push_back(entry<TypeParam>(EBADMSG));
    for (const std::string& outcome : outcomes)
        EXPECT_GT(seen[outcome], 0) << outcome << ": the rounds miss it";
}

// The same on the threads that a host has.
TYPED_TEST(HandOffServer, StoppedAtARandomInstantLeavesNothing) {
    const NothingLeft check;
    const OwnTemporaryDirectory directory;
    LogEntries log;
    const std::size_t threads = detail::BlockingPool::shared().threadCount();
    std::mt19937 random(1);
    for (int round = 0; round < rounds(2'000, 200'000) && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE(round);
        // Every other round without a client.
        Life<TypeParam> life(round % 2 == 0 ? 0 : random());
        while (!life.hasInstantCome()) std::this_thread::yield();
        spin(1U << random() % 18);
        life.server.stop();
        ASSERT_TRUE(life.ended.soon());
        const Entries answers = life.client.release();
        life.expectAllowed(answers, log.take());
    }
    EXPECT_EQ(directory.pipes(), 0);
    // One thread serves; another may not yet be back when the next round begins.
    EXPECT_LE(detail::BlockingPool::shared().threadCount(), threads + 8);
}

/// Runs a client against a bare host that gives one answer, and expects the request.
Process::Result ask(const char* shim, const std::string& request, const std::string& answer,
                    Process::Environment changes = {}) {
    const Scratch scratch;
    const std::string pipe = scratch / "pipe";
    EXPECT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    BarePeer host(pipe, "><", answer);
    changes["MV_EDITOR_CONN"] = pipe;
    auto result = run({program(shim), request.substr(1)}, changes);
    EXPECT_EQ(host.release(), Entries{request});
    EXPECT_TRUE(isPipe(pipe));
    return result;
}

/// Expects the end with this error, and one log entry that says so.
void expectFailure(const Process::Result& result, const std::string& description) {
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    if (std::filesystem::exists("/dev/log")) {
        std::fputs("A system logger listens: the entry's text is not checked.\n", stderr);
        return;
    }
    EXPECT_EQ(result.errors, "editorClient: error: " + description + "\n");
}

TEST(EditorClient, SendsThePathAsGivenAndEndsWithTheVerdict) {
    const std::string large(1 << 20, '\0');
    const struct {
        std::string path;
        std::string answer;
        int number;
    } rows[] = {
        {"/plain/path", "\0"s, 0},
        {"with a space", "\0and a payload"s, 0},
        {"quotes ' \" ` $HOME \\", large, 0},
        {"line\nend\r\n", "\0"s, 0},
        {"-v", "\0"s, 0},
        {"--", "\0"s, 0},
        {"", "\0"s, 0},
        {"\xC3\xBC \xE6\x96\x87", "\0"s, 0},
        {"not \xFF\xC3 UTF-8", "\0"s, 0},
        {"/" + std::string(3'999, 'n'), "\0"s, 0},
        {"declined", "\1", ECANCELED},
        {"text", "\3ok", ECANCELED},
        {"data", "\2", ECANCELED},
        {"path", "\4" + large, ECANCELED},
        {"empty", "", EBADMSG},
        {"unknown", "\5", EBADMSG},
        {"unknown and large", "\xFF" + large, EBADMSG},
    };
    for (const auto& [path, answer, number] : rows) {
        SCOPED_TRACE(path);
        const auto result = ask("editor-shim", "\4" + path, answer);
        if (number != 0) {
            expectFailure(result, Errno(number).what());
            continue;
        }
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output + result.errors, "");
    }
}

TEST(AskpassClient, PrintsTheAnswerAndALineFeed) {
    const std::string large(64 << 10, 's');
    const struct {
        std::string prompt;
        std::string answer;
        std::string output;
        std::optional<std::string> kind;
        int status = 0;
    } rows[] = {
        {"Password:", "\3secret", "secret\n", {}},
        {"", "\3", "\n", {}},
        {"line\nend \xFF", "\3one\n", "one\n\n", {}},
        {"-v", "\3\xFF\xE2\x82", "\xEF\xBF\xBD\xEF\xBF\xBD\n", {}},
        {"large", "\3" + large, large + "\n", {}},
        {"declined", "\1", "\n", {}},
        {"other", "\2data", "\n", {}},
        {"ok", "\0"s, "\n", {}},
        {"malformed", "\5secret", "", {}, -SIGINT},
        // A caller of a confirmation takes status 0 for yes, whatever is printed.
        {"Allow?", "\3", "\n", "confirm"},
        {"Allow?", "\3yes", "yes\n", "confirm"},
        {"Allow?", "\1", "", "confirm", 1},
        {"Allow?", "\0"s, "", "confirm", 1},
        {"Touch the key", "\1", "\n", "none"},
    };
    for (const auto& [prompt, answer, output, kind, status] : rows) {
        SCOPED_TRACE(prompt + " " + kind.value_or(""));
        const auto result =
            ask("askpass-shim", "\3" + prompt, answer, {{"SSH_ASKPASS_PROMPT", kind}});
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.output, output);
        EXPECT_EQ(result.errors, status < 0 ? Errno(EBADMSG).what() + "\n"s : "");
    }
}

// The tool that asked for a secret is interrupted with its whole group: it must not go on with an
// empty answer.
TEST(HandOffClients, FailOnBadInputWithTheSystemsWords) {
    const Scratch scratch;
    const std::string pipe = scratch / "pipe"; // whoever opens it waits for ever
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string file = write(scratch / "file", "precious");
    const auto failure = [](int number) { return std::string(Errno(number).what()); };
    const auto notAPipe = [&](const std::string& path) {
        return path + " is not a named pipe: " + failure(EINVAL);
    };
    const struct {
        std::vector<std::string> arguments;
        std::optional<std::string> variable;
        std::string description;
        std::optional<std::string> ofAskpass = {};
    } rows[] = {
        {{}, pipe, failure(ENOENT), failure(ENODATA)},
        {{"one", "two"}, pipe, failure(ENOENT), failure(ENODATA)},
        {{"path"}, std::nullopt, failure(ENOTRECOVERABLE)},
        {{"path"}, "", failure(ENOENT)},
        {{"path"}, scratch / "nothing", failure(ENOENT)},
        {{"path"}, file + "/below", failure(ENOTDIR)},
        {{"path"}, file, notAPipe(file)},
        {{"path"}, "/dev/null", notAPipe("/dev/null")},
        {{"path"}, scratch / "", failure(EISDIR)},
        {{"path"}, std::string(5'000, 'x'), failure(ENAMETOOLONG)},
    };
    for (const auto& [arguments, variable, description, ofAskpass] : rows) {
        SCOPED_TRACE(variable.value_or("(no variable)"));
        const auto runAfter = [&](std::vector<std::string> words) {
            words.insert(words.end(), arguments.begin(), arguments.end());
            return run(words, {{"MV_EDITOR_CONN", variable}});
        };
        expectFailure(runAfter({program("editor-shim")}), description);
        const auto asking = runAfter({"sh", "-c", "trap 'exit 42' INT; \"$0\" \"$@\"; echo went on",
                                      program("askpass-shim")});
        EXPECT_EQ(asking.status, 42);
        EXPECT_EQ(asking.output, "");
        EXPECT_EQ(asking.errors, ofAskpass.value_or(description) + "\n");
    }
    EXPECT_EQ(contentsOf(file), "precious");
    if (::geteuid() != 0) GTEST_SKIP() << "needs the right to become somebody else";
    ASSERT_EQ(::chmod((scratch / "").c_str(), 0711), 0);
    std::filesystem::copy(program("editor-shim"), scratch / "shim");
    expectFailure(run(asNobody({scratch / "shim", "path"}), {{"MV_EDITOR_CONN", pipe}}),
                  failure(EACCES));
}

} // namespace
} // namespace Platform
