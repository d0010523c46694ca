#include <support/HandOffs.h>
#include <sys/ptrace.h>

namespace Platform {
namespace {

/// A pipe with a bare host on it that answers one request.
class AnsweringHost {
public:
    explicit AnsweringHost(const std::string& answer)
        : peer_({program("helper-pipe-peer"), pipe(), ">" + scratch_ / "request",
                 "<" + write(scratch_ / "answer", answer)}) {}

    Process::Environment environment() const { return {{"MV_EDITOR_CONN", scratch_ / "pipe"}}; }

    std::string request() {
        EXPECT_EQ(peer_.wait().status, 0);
        return contentsOf(scratch_ / "request");
    }

private:
    std::string pipe() {
        EXPECT_EQ(::mkfifo((scratch_ / "pipe").c_str(), 0600), 0);
        return scratch_ / "pipe";
    }

    Scratch scratch_;
    Process peer_;
};

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
        // A caller of a confirmation takes status 0 for yes, whatever is printed.
        {"Allow?", "\3", "\n", "confirm"},
        {"Allow?", "\3yes", "yes\n", "confirm"},
        {"Allow?", "\1", "", "confirm", 1},
        {"Allow?", "\0"s, "", "confirm", 1},
        {"Touch the key", "\1", "\n", "none"},
    };
    for (const auto& [prompt, answer, output, kind, status] : rows) {
        SCOPED_TRACE(prompt + " " + kind.value_or(""));
        AnsweringHost host(answer);
        auto environment = host.environment();
        environment["SSH_ASKPASS_PROMPT"] = kind;
        const auto result = run({program("askpass-shim"), prompt}, environment);
        EXPECT_EQ(host.request(), "\3" + prompt);
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.output, output);
        EXPECT_EQ(result.errors, "");
    }
}

// The tool that asked is interrupted with its whole group; it must not go on with an empty answer.
TEST(AskpassClient, InterruptsItsProcessGroupOnFailure) {
    const Scratch scratch;
    const std::string pipe = scratch / "pipe"; // whoever opens it waits for ever
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const struct {
        std::string arguments;
        std::optional<std::string> variable;
        int number;
    } rows[] = {
        {"", pipe, ENODATA},
        {"one two", pipe, ENODATA},
        {"prompt", std::nullopt, ENOTRECOVERABLE},
        {"prompt", "", ENOENT},
        {"prompt", scratch / "nothing", ENOENT},
    };
    for (const auto& [arguments, variable, number] : rows) {
        SCOPED_TRACE(arguments + " " + variable.value_or("(no variable)"));
        const auto result =
            run({"sh", "-c", "trap 'exit 42' INT; \"$0\" " + arguments + "; echo went on: $?",
                 program("askpass-shim")},
                {{"MV_EDITOR_CONN", variable}});
        EXPECT_EQ(result.status, 42);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, std::strerror(number) + "\n"s);
        const auto alone = run({program("askpass-shim")}, {{"MV_EDITOR_CONN", variable}});
        EXPECT_EQ(alone.status, -SIGINT);
    }
    AnsweringHost malformed("\5secret");
    const auto result = run({program("askpass-shim"), "prompt"}, malformed.environment());
    EXPECT_EQ(result.status, -SIGINT);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, std::strerror(EBADMSG) + "\n"s);
}

/// How often a text stands in the writable memory of a stopped process.
std::size_t occurrences(pid_t process, const std::string& text) {
    const std::string folder = "/proc/" + std::to_string(process);
    std::ifstream maps(folder + "/maps");
    std::ifstream memory(folder + "/mem", std::ios::binary);
    std::size_t count = 0;
    for (std::string line; std::getline(maps, line);) {
        std::size_t start = 0;
        std::size_t end = 0;
        char writable = '-';
        if (std::sscanf(line.c_str(), "%zx-%zx %*c%c", &start, &end, &writable) != 3) continue;
        if (writable != 'w') continue;
        std::string bytes(end - start, '\0');
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(start));
        memory.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        for (auto at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1)) {
            ++count;
        }
    }
    return count;
}

// Looks at the client where it stops on its way out, when it has printed the answer.
TEST(AskpassClient, LeavesNoTraceOfTheAnswerInItsMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer keeps memory of its own, and copies in it";
#endif
    for (const std::string& secret : {"short-5ecret"s, "a-5ecret-" + std::string(6000, 'x')}) {
        AnsweringHost host("\3" + secret);
        const Variable variable("MV_EDITOR_CONN", *host.environment().at("MV_EDITOR_CONN"));
        const std::string shim = program("askpass-shim");
        const pid_t client = ::fork();
        if (client == 0) {
            ::setpgid(0, 0);
            ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
            ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            ::execl(shim.c_str(), shim.c_str(), "prompt", nullptr);
            ::_exit(1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(client, &status, 0), client); // at its start
        ASSERT_EQ(::ptrace(PTRACE_SETOPTIONS, client, nullptr, PTRACE_O_TRACEEXIT), 0);
        ASSERT_EQ(::ptrace(PTRACE_CONT, client, nullptr, nullptr), 0);
        ASSERT_EQ(::waitpid(client, &status, 0), client); // at its end
        ASSERT_EQ(status >> 8, SIGTRAP | (PTRACE_EVENT_EXIT << 8));
        EXPECT_GT(occurrences(client, "prompt"), 0u) << "the search finds nothing at all";
        EXPECT_EQ(occurrences(client, secret.substr(0, 12)), 0u);
        for (const char* file : {"/cmdline", "/environ"}) {
            const std::string shown = contentsOf("/proc/" + std::to_string(client) + file);
            EXPECT_FALSE(shown.empty());
            EXPECT_EQ(shown.find(secret.substr(0, 12)), std::string::npos) << file;
        }
        ::ptrace(PTRACE_CONT, client, nullptr, nullptr);
        ::waitpid(client, &status, 0);
    }
}

} // namespace
} // namespace Platform
