#include <support/RealTools.h>

namespace Platform {
namespace {

using Answer = std::optional<std::string>;

class AskpassTools : public RealTools {
    const Variable git_{"GIT_ASKPASS", program("askpass-shim")}, never_{"GIT_TERMINAL_PROMPT", "0"};
    const Variable ssh_{"SSH_ASKPASS", program("askpass-shim")},
        force_{"SSH_ASKPASS_REQUIRE", "force"};
    const Variable agent_{"SSH_AUTH_SOCK", folder_ / "agent"};
};

/// A host that gives its answers one after the other and keeps the prompts.
class Prompts {
public:
    explicit Prompts(std::deque<Answer> answers)
        : answers_(std::move(answers)), server_([this](std::string prompt) -> Task<Answer> {
              const std::lock_guard guard(mutex_);
              asked_.push_back(std::move(prompt));
              if (answers_.empty()) co_return std::nullopt;
              Answer next = std::move(answers_.front());
              answers_.pop_front();
              co_return next;
          }) {}

    std::vector<std::string> asked() {
        const std::lock_guard guard(mutex_);
        return std::exchange(asked_, {});
    }

private:
    std::mutex mutex_;
    std::deque<Answer> answers_;
    std::vector<std::string> asked_;
    Askpass::Server server_;
    const Variable path_{"MV_EDITOR_CONN", server_.path()};
};

} // namespace

TEST_F(AskpassTools, GitReadsARepositoryOverHttp) {
    Prompts host({"me", "wrong", "me", "right"});
    write("password", "right");
    const auto made = run({"sh", "-c",
                           "git init -q --bare served.git && cd served.git && git update-ref "
                           "refs/heads/main $(git commit-tree -m first $(git mktree </dev/null)) "
                           "&& git update-server-info"});
    ASSERT_EQ(made.status, 0) << made.errors;
    // The server's port comes through a pipe that is read when the server listens.
    ASSERT_EQ(::mkfifo("port", 0600), 0);
    const Process server({"sh", "-c", "exec python3 \"$@\" >port", "sh",
                          PLATFORM_HELPER_DIR "/git-http.py", folder_ / "", "me", "password"});
    std::ifstream ports("port");
    std::string number;
    ASSERT_TRUE(std::getline(ports, number));
    const auto list = [&] {
        return run({"git", "ls-remote", "http://127.0.0.1:" + number + "/served.git"});
    };
    const auto refused = list();
    EXPECT_NE(refused.status, 0);
    EXPECT_NE(refused.errors.find("Authentication failed"), std::string::npos) << refused.errors;
    const auto listed = list();
    EXPECT_EQ(listed.status, 0) << listed.errors;
    EXPECT_NE(listed.output.find("refs/heads/main"), std::string::npos);
    const std::string user = "Username for 'http://127.0.0.1:" + number + "': ";
    const std::string password = "Password for 'http://me@127.0.0.1:" + number + "': ";
    EXPECT_EQ(host.asked(), (std::vector{user, password, user, password}));
}

TEST_F(AskpassTools, SshUnlocksKeysAndConfirmsTheirUse) {
    LogEntries log;
    Prompts host({"can4ry", "wrong", "can4ry", "can4ry", "", std::nullopt});
    ASSERT_EQ(run({"ssh-keygen", "-q", "-t", "ed25519", "-N", "can4ry", "-f", "key"}).status, 0);
    const auto shown = run({"ssh-keygen", "-y", "-f", "key"});
    EXPECT_EQ(shown.status, 0) << shown.errors;
    EXPECT_EQ(shown.output.substr(0, 11), "ssh-ed25519");

    const Process agent({"ssh-agent", "-D", "-a", folder_ / "agent"});
    // The agent listens when its list can be asked for; until then ssh-add ends with 2.
    while (run({"ssh-add", "-l"}).status == 2) std::this_thread::yield();
    EXPECT_EQ(run({"ssh-add", "-q", "key"}).status, 0) << "asked again after a wrong phrase";
    EXPECT_EQ(run({"ssh-add", "-q", "-D"}).status, 0);
    EXPECT_EQ(run({"ssh-add", "-q", "-c", "key"}).status, 0);
    EXPECT_EQ(host.asked().size(), 4u);
    // The agent's own question for each use: an empty answer grants, none refuses.
    write("text", "signed");
    for (const bool granted : {true, false}) {
        const auto result =
            run({"ssh-keygen", "-q", "-Y", "sign", "-n", "file", "-f", "key.pub", "text"});
        EXPECT_EQ(result.status == 0, granted) << result.errors;
        EXPECT_EQ(host.asked().size(), 1u);
        std::filesystem::remove("text.sig");
    }
    EXPECT_EQ(log.take(), std::vector<std::string>{});
    EXPECT_EQ(run({"grep", "-r", "can4ry", "."}).status, 1) << "a secret is in a file";
}

// An agent in the background ignores the signal that tells of a failure, and so do its children.
TEST_F(AskpassTools, AConfirmationThatFailsIsNotGranted) {
    const auto result =
        run({"sh", "-c",
             "ssh-keygen -q -t ed25519 -N '' -f key; eval $(ssh-agent) >/dev/null;"
             "ssh-add -q -c key; echo x | ssh-keygen -q -Y sign -n file -f key.pub >/dev/null;"
             "echo $?; ssh-agent -k >/dev/null"},
            {{"MV_EDITOR_CONN", folder_ / "no-host"}});
    EXPECT_EQ(result.output, "255\n") << result.errors;
}

// The host is somebody without rights: sudo asks it, refuses the wrong password, and asks again.
TEST_F(AskpassTools, SudoAsksTheTerminalHost) {
    if (::geteuid() != 0 || which("sudo").empty() || !User(65534).passwd()) {
        GTEST_SKIP() << "needs sudo, and root to become an account that has no rights";
    }
    const Scratch bin, temporary;
    for (const char* name : {"askpass-shim", "editor-shim", "terminal-host"}) {
        std::filesystem::copy(program(name), bin / name);
    }
    std::filesystem::permissions(bin / "", std::filesystem::perms(0755));
    std::filesystem::current_path("/");
    std::filesystem::permissions(folder_ / "", std::filesystem::perms(0755));
    ASSERT_EQ(::chown((temporary / "").c_str(), 65534, 65534), 0);
    const auto result = run(asNobody({bin / "terminal-host", "--verbose", "--askpass",
                                      "echo wr0ng #", "sudo", "-A", "-k", "true"}),
                            {{"TMPDIR", temporary / ""}});
    EXPECT_EQ(result.status, 1);
    const std::string asked = "answered: prompt [sudo] password for nobody: \n";
    EXPECT_NE(result.errors.find(asked), result.errors.rfind(asked)) << result.errors;
    EXPECT_EQ(result.errors.find("wr0ng"), std::string::npos);
}

} // namespace Platform
