#include <support/BarePeer.h>
#include <support/HandOffs.h>
#include <sys/ptrace.h>

namespace Platform {
namespace {

/// Each byte changed, or who looks for a text in its own memory finds what it looks for.
std::string coded(std::string text) {
    for (char& byte : text) byte ^= 1;
    return text;
}

/// Whether a text, which is given coded, stands in the writable memory of a process.
bool remembers(pid_t process, std::string_view code) {
    const std::string folder = "/proc/" + std::to_string(process);
    std::istringstream maps(contentsOf(folder + "/maps"));
    std::ifstream memory(folder + "/mem", std::ios::binary);
    EXPECT_TRUE(memory);
    std::string bytes;
    for (std::string line; std::getline(maps, line);) {
        std::size_t start = 0, end = 0;
        char writable = '-';
        std::sscanf(line.c_str(), "%zx-%zx %*c%c", &start, &end, &writable);
        if (writable != 'w' || end - start > 64U << 20) continue;
        bytes.resize(end - start);
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(start));
        memory.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        const auto read = bytes.begin() + memory.gcount();
        const auto matches = [](char byte, char codedByte) { return (byte ^ 1) == codedByte; };
        if (std::search(bytes.begin(), read, code.begin(), code.end(), matches) != read)
            return true;
    }
    return false;
}

} // namespace

// A secret of a kind that short strings keep in place, and a long one; built where the optimiser
// cannot see it.
TEST(AskpassServer, WipesWhatHeldTheAnswer) {
    const OwnTemporaryDirectory directory;
    const std::string code = "ui0R,j2x,py";
    for (const std::size_t copies : {1U, 40U}) {
        Ended ended;
        {
            Askpass::Server server(
                [&, token = ended.token()](std::string) -> Task<std::optional<std::string>> {
                    std::optional<std::string> answer(std::in_place);
                    answer->reserve(code.size() * copies);
                    for (std::size_t i = 0; i < copies; ++i)
                        for (const char byte : code) *answer += static_cast<char>(byte ^ 1);
                    co_return answer;
                });
            // The answer itself must not come back to this process.
            const auto result = run({"sh", "-c", "\"$0\" prompt | wc -c", program("askpass-shim")},
                                    {{"MV_EDITOR_CONN", server.path()}});
            EXPECT_EQ(std::stoul(result.output), code.size() * copies + 1);
        }
        EXPECT_TRUE(ended.soon());
        const std::string other = "stands here" + std::to_string(copies);
        EXPECT_TRUE(remembers(::getpid(), coded(other))) << "the search finds nothing at all";
        EXPECT_FALSE(remembers(::getpid(), code)) << copies;
    }
}

// Looks at the client where it stops on its way out, when it has printed the answer.
TEST(AskpassClient, LeavesNoTraceOfTheAnswerInItsMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer keeps memory of its own, and copies in it";
#endif
    for (const std::string& secret : {"short-5ecret"s, "a-5ecret-" + std::string(6000, 'x')}) {
        const Scratch scratch;
        const std::string pipe = scratch / "pipe", shim = program("askpass-shim");
        ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
        const BarePeer host(pipe, "><", "\3" + secret);
        const Variable variable("MV_EDITOR_CONN", pipe);
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
        const std::string found = secret.substr(0, 12);
        EXPECT_TRUE(remembers(client, coded("prompt"))) << "the search finds nothing at all";
        EXPECT_FALSE(remembers(client, coded(found)));
        for (const char* file : {"/cmdline", "/environ"}) {
            const std::string shown = contentsOf("/proc/" + std::to_string(client) + file);
            EXPECT_FALSE(shown.empty());
            EXPECT_EQ(shown.find(found), std::string::npos) << file;
        }
        ::ptrace(PTRACE_CONT, client, nullptr, nullptr);
        ::waitpid(client, &status, 0);
    }
}

} // namespace Platform
