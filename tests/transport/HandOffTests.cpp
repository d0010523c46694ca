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
        {kind + "decline", "decline"},
        {kind + "throw", "throw"},
        {kind, ""},
        {kind + "\xFF\n", "\xEF\xBF\xBD\n"},
        {kind + large, large},
        {other + "of the other server", std::nullopt},
        {"\2", std::nullopt},
    };
    for (const std::string& malformed : {""s, "\5"s, "\xFF" + large}) {
        SCOPED_TRACE(malformed.size());
        std::mutex mutex;
        Entries asked;
        Ended ended;
        typename Side::Server server(
            [&, token = ended.token()](std::string text) -> Task<typename Side::Verdict> {
                const std::lock_guard guard(mutex);
                EXPECT_EQ(server.openHandOffs(), 1U);
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
        {
            const Faults faults(Faults::failing(SystemCall::unlink, EBUSY));
            EXPECT_EQ(thrownNumber([&] { server.stop(); }), EBUSY);
        }
        EXPECT_TRUE(isPipe(server.path()));
        server.stop();
        server.stop();
        EXPECT_FALSE(isPipe(server.path()));
        EXPECT_EQ(server.environment(), environment);
        EXPECT_EQ(log.take(), Entries{});
    }
}

TEST(EditorServer, IsNotMadeInAHostileTemporaryDirectory) {
    const OwnTemporaryDirectory directory;
    const auto refusal = []() -> std::string {
        const NothingLeft check;
        try {
            const Editor::Server server([](std::string) -> Task<bool> { co_return true; });
        } catch (const Errno& error) {
            return error.what();
        }
        return "none";
    };
    for (const std::string& planted : {directory.pipeDirectory(), directory / "mv.presence"}) {
        std::filesystem::create_directory_symlink("/", planted);
        EXPECT_EQ(refusal(), Errno(ENOTDIR, planted).what());
        std::filesystem::remove(planted);
        std::filesystem::create_directory(planted);
        ::chmod(planted.c_str(), 0770);
        EXPECT_TRUE(refusal().starts_with(planted + " (owner "));
        ::chmod(planted.c_str(), 0700);
    }
    const Faults full(Faults::failing(SystemCall::mkfifo, ENOSPC));
    EXPECT_TRUE(refusal().starts_with(directory.pipeDirectory()));
    EXPECT_EQ(directory.pipes(), 0);
}

/// A server from its start to its end, and perhaps a client. The stop comes a random moment after
/// the start, after the callback was called, which may wait for it, or after the client was
/// answered.
template <class Side>
struct Life {
    explicit Life(std::uint64_t random)
        : choice(random), client(server.path(),
                                 random % 4 == 0   ? ""
                                 : random % 3 == 0 ? "@<>"
                                                   : "<>",
                                 request) {}

    bool hasInstantCome() const {
        return choice % 4 < 2 || (choice % 4 == 2 ? asked > 0 : client.hasEnded());
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

    const std::uint64_t choice;
    const std::string request = Side::request + "path"s;
    std::atomic<int> asked = 0;
    Ended ended;
    typename Side::Server server{
        [this, token = ended.token()](std::string text) -> Task<typename Side::Verdict> {
            ++asked;
            co_await Yield();
            while (choice % 8 == 2 && !isTaskCancelled()) co_await Yield();
            co_return Side::decided(text);
        }};
    BarePeer client;
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

/// A system logger that listens takes the entry of the editor's program.
void expectEnd(const Process::Result& result, const Process::Result& expected) {
    EXPECT_EQ(result.status, expected.status);
    EXPECT_EQ(result.output, expected.output);
    EXPECT_TRUE(result.errors == expected.errors || std::filesystem::exists("/dev/log"))
        << result.errors;
}

/// How the editor's program ends that has failed.
Process::Result editFailure(const std::string& description) {
    return {1, "", "editorClient: error: " + description + "\n"};
}

TEST(HandOffClients, SendTheirArgumentAsGivenAndTellTheAnswer) {
    const std::string large(1 << 20, '\0'), secret(64 << 10, 's');
    const auto declined = editFailure(Errno(ECANCELED).what());
    const struct {
        std::string request; ///< Its first byte says which program makes it.
        std::string answer;
        Process::Result end = {};
        std::optional<std::string> kind = {};
    } rows[] = {
        {"\4/plain/path", "\0"s},
        {"\4with a space and quotes ' \" ` $HOME \\", "\0and a payload"s},
        {"\4line\nend\r\n", large},
        {"\4-v", "\0"s},
        {"\4", "\0"s},
        {"\4\xC3\xBC \xE6\x96\x87, not \xFF\xC3 UTF-8", "\0"s},
        {"\4/" + std::string(3'999, 'n'), "\0"s},
        {"\4declined", "\1", declined},
        {"\4path", "\4" + large, declined},
        {"\4empty", "", editFailure(Errno(EBADMSG).what())},
        {"\4unknown and large", "\xFF" + large, editFailure(Errno(EBADMSG).what())},
        {"\3Password:", "\3secret", {0, "secret\n", ""}},
        {"\3", "\3", {0, "\n", ""}},
        {"\3line\nend \xFF", "\3one\n\xFF\xE2\x82", {0, "one\n\xEF\xBF\xBD\xEF\xBF\xBD\n", ""}},
        {"\3-v", "\3" + secret, {0, secret + "\n", ""}},
        {"\3declined", "\1", {0, "\n", ""}},
        {"\3other", "\2data", {0, "\n", ""}},
        {"\3malformed", "\5secret", {-SIGINT, "", Errno(EBADMSG).what() + "\n"s}},
        // A caller of a confirmation takes status 0 for yes, whatever is printed.
        {"\3Allow?", "\3yes", {0, "yes\n", ""}, "confirm"},
        {"\3Allow?", "\1", {1, "", ""}, "confirm"},
        {"\3Allow?", "\0"s, {1, "", ""}, "confirm"},
        {"\3Touch the key", "\1", {0, "\n", ""}, "none"},
    };
    for (const auto& [request, answer, end, kind] : rows) {
        SCOPED_TRACE(request.substr(0, 20) + kind.value_or(""));
        const Scratch scratch;
        const std::string pipe = scratch / "pipe";
        const std::string shim = request[0] == '\4' ? "editor-shim" : "askpass-shim";
        ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
        BarePeer host(pipe, "><", answer);
        expectEnd(run({program(shim), request.substr(1)},
                      {{"MV_EDITOR_CONN", pipe}, {"SSH_ASKPASS_PROMPT", kind}}),
                  end);
        EXPECT_EQ(host.release(), Entries{request});
        EXPECT_TRUE(isPipe(pipe));
    }
}

TEST(HandOffClients, FailOnBadInputWithTheSystemsWords) {
    const Scratch scratch;
    const std::string pipe = scratch / "pipe"; // whoever opens it waits for ever
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string file = write(scratch / "file", "precious");
    const auto failure = [](int number) { return std::string(Errno(number).what()); };
    const struct {
        std::vector<std::string> arguments;
        std::optional<std::string> variable;
        std::string description;
    } rows[] = {
        {{}, pipe, failure(ENOENT)},
        {{"one", "two"}, pipe, failure(ENOENT)},
        {{"path"}, std::nullopt, failure(ENOTRECOVERABLE)},
        {{"path"}, "", failure(ENOENT)},
        {{"path"}, scratch / "nothing", failure(ENOENT)},
        {{"path"}, file, file + " is not a named pipe: " + failure(EINVAL)},
        {{"path"}, scratch / "", failure(EISDIR)},
        {{"path"}, std::string(5'000, 'x'), failure(ENAMETOOLONG)},
    };
    for (const auto& [arguments, variable, description] : rows) {
        SCOPED_TRACE(variable.value_or("(no variable)"));
        std::vector<std::string> words{program("editor-shim")};
        words.insert(words.end(), arguments.begin(), arguments.end());
        expectEnd(run(words, {{"MV_EDITOR_CONN", variable}}), editFailure(description));
    }
    // The tool that asked for a secret is interrupted with its whole group: it must not go on with
    // an empty answer.
    const std::string tool = "trap 'exit 42' INT; \"$0\"; echo went on";
    expectEnd(run({"sh", "-c", tool, program("askpass-shim")}, {{"MV_EDITOR_CONN", pipe}}),
              {42, "", failure(ENODATA) + "\n"});
    EXPECT_EQ(contentsOf(file), "precious");
    if (::geteuid() != 0) GTEST_SKIP() << "needs the right to become somebody else";
    ASSERT_EQ(::chmod((scratch / "").c_str(), 0711), 0);
    std::filesystem::copy(program("editor-shim"), scratch / "shim");
    expectEnd(run(asNobody({scratch / "shim", "path"}), {{"MV_EDITOR_CONN", pipe}}),
              editFailure(failure(EACCES)));
}

} // namespace
} // namespace Platform
