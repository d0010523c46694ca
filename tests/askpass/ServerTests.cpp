#include <support/BarePeer.h>
#include <support/HandOffs.h>
#include <support/SeededExecutor.h>

namespace Platform {
namespace {

using Answer = std::optional<std::string>;
using Entries = std::vector<std::string>;

TEST(AskpassServer, AnswersWithTheTextUnchangedOrAborts) {
    const OwnTemporaryDirectory directory;
    LogEntries log;
    const std::string large(64 << 10, 's');
    const struct {
        std::string request;
        Answer given;
        std::string reply;
    } rows[] = {
        {"\3Password: ", "secret", "\3secret"}, {"\3", "", "\3"},
        {"\3\xFF", "line\n", "\3line\n"},       {"\3large", large, "\3" + large},
        {"\3not UTF-8", "\xFF", "\3\xFF"},      {"\3nothing", std::nullopt, "\1"},
        {"\3throw", std::nullopt, "\1"},        {"\4path", "never asked", "\1"},
        {"\0"s, "never asked", "\1"},
    };
    std::mutex mutex;
    Answer next;
    Entries asked;
    Ended ended;
    Askpass::Server server([&, token = ended.token()](std::string prompt) -> Task<Answer> {
        const std::lock_guard guard(mutex);
        asked.push_back(prompt);
        if (prompt == "throw") throw std::runtime_error("no window");
        co_return next;
    });
    EXPECT_EQ(server.environment(),
              (std::map<std::string, std::string>{{"MV_EDITOR_CONN", server.path()}}));
    for (const auto& [request, given, reply] : rows) {
        SCOPED_TRACE(request);
        {
            const std::lock_guard guard(mutex);
            next = given;
        }
        BarePeer client(server.path(), "<>", request);
        EXPECT_EQ(client.finish(), Entries{reply});
        const std::lock_guard guard(mutex);
        const std::string text = request == "\3\xFF" ? "\xEF\xBF\xBD" : request.substr(1);
        EXPECT_EQ(std::exchange(asked, {}), request[0] == '\3' ? Entries{text} : Entries{});
    }
    EXPECT_EQ(log.take(), Entries{"askpassServer: error: no window"});
    // A malformed request ends serving, and that is logged: nobody stopped the server.
    BarePeer malformed(server.path(), "<", "\5");
    malformed.finish();
    EXPECT_TRUE(ended.soon());
    EXPECT_EQ(log.take(), Entries{"askpassServer: error: "s + Errno(EBADMSG).what()});
    server.stop();
    server.stop();
    EXPECT_EQ(directory.pipes(), 0);
}

// The serving loop's steps against a stop, in every order that the seeds find: it always ends, and
// never with an entry in the log, whether the server waited, asked or answered.
TEST(AskpassServer, EndsWithoutALogEntryWhenItIsStoppedAtAnyStep) {
    const OwnTemporaryDirectory directory;
    LogEntries log;
    RandomPauses pauses;
    for (int seed = 0; seed < rounds(1'000, 10'000); ++seed) {
        pauses.seed(static_cast<std::uint64_t>(seed));
        SeededExecutor executor(static_cast<std::uint64_t>(seed));
        Ended ended;
        std::optional<Askpass::Server> server(
            std::in_place, [token = ended.token()](std::string prompt) -> Task<Answer> {
                co_await Yield();
                co_return prompt;
            });
        std::optional<BarePeer> client;
        if (executor.choose(2) == 0) client.emplace(server->path(), "<>", "\3prompt");
        auto stopper = detached([&]() -> Task<void> {
            for (std::size_t n = executor.choose(12); n > 0; --n) {
                spin(static_cast<unsigned>(executor.choose(1 << 14)));
                co_await Yield();
            }
            if (executor.choose(2) == 0) server->stop();
            server.reset();
        });
        executor.runUntil([&] { return ended.now() && stopper.hasEnded(); });
        if (client) {
            for (const std::string& reply : client->release()) {
                ASSERT_TRUE(reply.empty() || reply == "\3prompt") << "seed " << seed;
            }
        }
        ASSERT_EQ(log.take(), Entries{}) << "seed " << seed;
        ASSERT_EQ(directory.pipes(), 0) << "seed " << seed;
    }
}

// A secret of a kind that short strings keep in place, built where the optimiser cannot see it.
TEST(AskpassServer, WipesWhatHeldTheAnswer) {
    const OwnTemporaryDirectory directory;
    const std::vector<unsigned char> coded = {'t' ^ 1, 'h' ^ 1, '1' ^ 1, 'S' ^ 1, '-' ^ 1, 'k' ^ 1,
                                              '3' ^ 1, 'y' ^ 1, '-' ^ 1, 'q' ^ 1, 'x' ^ 1};
    for (const std::size_t copies : {1u, 40u}) {
        Ended ended;
        {
            Askpass::Server server([&, token = ended.token()](std::string) -> Task<Answer> {
                Answer answer(std::in_place);
                answer->reserve(coded.size() * copies);
                for (std::size_t i = 0; i < copies; ++i) {
                    for (const unsigned char byte : coded) *answer += static_cast<char>(byte ^ 1);
                }
                co_return answer;
            });
            // The answer itself must not come back to this process.
            const auto result = run({"sh", "-c", "\"$0\" prompt | wc -c", program("askpass-shim")},
                                    {{"MV_EDITOR_CONN", server.path()}});
            EXPECT_EQ(std::stoul(result.output), coded.size() * copies + 1);
        }
        EXPECT_TRUE(ended.soon());
        std::string maps = contentsOf("/proc/self/maps");
        std::size_t found = 0;
        std::size_t others = 0; // of something that does stand in memory
        const std::string other = "stands here" + std::to_string(copies);
        std::FILE* const memory = std::fopen("/proc/self/mem", "rb");
        ASSERT_NE(memory, nullptr);
        std::vector<unsigned char> bytes;
        for (std::size_t at = 0; at < maps.size(); at = maps.find('\n', at) + 1) {
            std::size_t start = 0;
            std::size_t end = 0;
            if (std::sscanf(&maps[at], "%zx-%zx rw", &start, &end) != 2 ||
                maps.compare(maps.find(' ', at) + 1, 2, "rw") != 0 || end - start > (64u << 20)) {
                continue;
            }
            bytes.resize(end - start);
            if (std::fseek(memory, static_cast<long>(start), SEEK_SET) != 0) continue;
            bytes.resize(std::fread(bytes.data(), 1, bytes.size(), memory));
            const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
            others += start < reinterpret_cast<std::size_t>(other.data()) &&
                      reinterpret_cast<std::size_t>(other.data()) < end &&
                      text.find(other) != text.npos;
            // The needle is matched byte by byte against its coded form: it never stands in memory.
            for (std::size_t i = 0; i + coded.size() <= bytes.size(); ++i) {
                std::size_t same = 0;
                while (same < coded.size() && bytes[i + same] == (coded[same] ^ 1)) ++same;
                found += same == coded.size();
            }
        }
        std::fclose(memory);
        EXPECT_EQ(found, 0u) << copies;
        EXPECT_GT(others, 0u) << "nothing would have been found";
    }
}

} // namespace
} // namespace Platform
