#include <support/HandOffs.h>

namespace Platform {
namespace {

using Answer = std::optional<std::string>;

/// A host that gives its answers one after the other and keeps the prompts; with real tools that
/// ask it.
class Prompts : public OwnTemporaryDirectory {
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

    Process::Environment environment() const {
        const std::string askpass = program("askpass-shim");
        return {{"MV_EDITOR_CONN", server_.path()},
                {"GIT_ASKPASS", askpass},
                {"SSH_ASKPASS", askpass},
                {"SSH_ASKPASS_REQUIRE", "force"},
                {"SUDO_ASKPASS", askpass},
                {"GIT_CONFIG_NOSYSTEM", "1"},
                {"GIT_CONFIG_GLOBAL", "/dev/null"},
                {"GIT_TERMINAL_PROMPT", "0"},
                {"HOME", *this / ""},
                {"LC_ALL", "C"},
                {"SSH_AUTH_SOCK", *this / "agent"}};
    }

    Process::Result ask(std::vector<std::string> tool) const {
        return Testing::run(std::move(tool), environment());
    }

    std::vector<std::string> asked() {
        const std::lock_guard guard(mutex_);
        return std::exchange(asked_, {});
    }

private:
    std::mutex mutex_;
    std::deque<Answer> answers_;
    std::vector<std::string> asked_;
    Askpass::Server server_;
};

/// The text must stand in no file below the folder.
void expectNowhereBelow(const std::string& folder, const std::string& text) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        EXPECT_EQ(contentsOf(entry.path()).find(text), std::string::npos) << entry.path();
    }
}

TEST(AskpassTools, GitCredentialAsksForUserAndPassword) {
    LogEntries log;
    Prompts host({"me", "can4ry"});
    const auto result = host.ask({"sh", "-c",
                                  "printf 'protocol=https\\nhost=example.org\\n\\n' |"
                                  "git credential fill"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "protocol=https\nhost=example.org\nusername=me\npassword=can4ry\n");
    EXPECT_EQ(host.asked(), (std::vector<std::string>{"Username for 'https://example.org': ",
                                                      "Password for 'https://me@example.org': "}));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(log.take(), std::vector<std::string>{});
    expectNowhereBelow(host / "", "can4ry");
}

TEST(AskpassTools, GitReadsARepositoryOverHttp) {
    Prompts host({"me", "wrong", "me", "right"});
    write(host / "password", "right");
    ASSERT_EQ(host.ask({"git", "init", "-q", "--bare", host / "served.git"}).status, 0);
    const std::string made = "cd \"$0\" && git commit-tree -m first $(git mktree </dev/null) |"
                             "xargs git update-ref refs/heads/main";
    ASSERT_EQ(host.ask({"env", "GIT_AUTHOR_NAME=a", "GIT_AUTHOR_EMAIL=a@b", "GIT_COMMITTER_NAME=a",
                        "GIT_COMMITTER_EMAIL=a@b", "sh", "-c", made, host / "served.git"})
                  .status,
              0);
    // The server's port comes through a pipe that is read when the server listens.
    const std::string port = host / "port";
    ASSERT_EQ(::mkfifo(port.c_str(), 0600), 0);
    const Process server({"sh", "-c", "exec python3 \"$@\" >\"$0\"", port,
                          PLATFORM_HELPER_DIR "/git-http.py", host / "", "me", host / "password"},
                         host.environment());
    std::ifstream ports(port);
    std::string number;
    ASSERT_TRUE(std::getline(ports, number));
    const std::string url = "http://127.0.0.1:" + number + "/served.git";
    const auto refused = host.ask({"git", "ls-remote", url});
    EXPECT_NE(refused.status, 0);
    EXPECT_NE(refused.errors.find("Authentication failed"), std::string::npos) << refused.errors;
    const auto listed = host.ask({"git", "ls-remote", url});
    EXPECT_EQ(listed.status, 0) << listed.errors;
    EXPECT_NE(listed.output.find("refs/heads/main"), std::string::npos);
    EXPECT_EQ(host.asked().size(), 4u);
}

TEST(AskpassTools, SshUnlocksKeysAndConfirmsTheirUse) {
    Prompts host({"pass phrase", "wrong", "pass phrase", "pass phrase", "", std::nullopt});
    const std::string key = host / "key";
    ASSERT_EQ(
        host.ask({"ssh-keygen", "-q", "-t", "ed25519", "-N", "pass phrase", "-f", key}).status, 0);
    const auto shown = host.ask({"ssh-keygen", "-y", "-f", key});
    EXPECT_EQ(shown.status, 0) << shown.errors;
    EXPECT_EQ(shown.output.substr(0, 11), "ssh-ed25519");

    const Process agent({"ssh-agent", "-D", "-a", host / "agent"}, host.environment());
    // The agent listens when its list can be asked for; until then ssh-add ends with 2.
    while (host.ask({"ssh-add", "-l"}).status == 2) std::this_thread::yield();
    EXPECT_EQ(host.ask({"ssh-add", "-q", key}).status, 0) << "asked again after a wrong phrase";
    EXPECT_EQ(host.ask({"ssh-add", "-q", "-D"}).status, 0);
    EXPECT_EQ(host.ask({"ssh-add", "-q", "-c", key}).status, 0);
    EXPECT_EQ(host.asked().size(), 4u);
    // The agent's own question for each use: an empty answer grants, none refuses.
    write(host / "text", "signed");
    for (const bool granted : {true, false}) {
        const auto result = host.ask(
            {"ssh-keygen", "-q", "-Y", "sign", "-n", "file", "-f", key + ".pub", host / "text"});
        EXPECT_EQ(result.status == 0, granted) << result.errors;
        EXPECT_EQ(host.asked().size(), 1u);
        std::filesystem::remove(host / "text.sig");
    }
}

// An agent in the background ignores the signal that tells of a failure, and so do its children.
TEST(AskpassTools, AConfirmationThatFailsIsNotGranted) {
    const Scratch scratch;
    const std::string agent = "eval $(ssh-agent -a '" + scratch / "agent" + "') >/dev/null; ";
    const std::string sign = "echo x | ssh-keygen -q -Y sign -n file -f '" + scratch / "key" +
                             ".pub' >/dev/null; echo $?; ssh-agent -k >/dev/null";
    const auto result = run({"sh", "-c",
                             "ssh-keygen -q -t ed25519 -N '' -f '" + scratch / "key" + "'; " +
                                 agent + "ssh-add -q -c '" + scratch / "key" + "'; " + sign},
                            {{"SSH_ASKPASS", program("askpass-shim")},
                             {"SSH_ASKPASS_REQUIRE", "force"},
                             {"MV_EDITOR_CONN", scratch / "no-host"}});
    EXPECT_EQ(result.output, "255\n") << result.errors;
}

// The host is somebody without rights: sudo asks it, refuses the wrong password, and asks again.
TEST(AskpassTools, SudoAsksTheTerminalHost) {
    if (::geteuid() != 0 || Testing::run({"sh", "-c", "command -v sudo setpriv"}).status != 0) {
        GTEST_SKIP() << "needs sudo, and root to become somebody without rights";
    }
    const Scratch bin;
    for (const char* name : {"askpass-shim", "editor-shim", "terminal-host"}) {
        std::filesystem::copy(program(name), bin / name);
    }
    std::filesystem::permissions(bin / "", std::filesystem::perms(0755));
    const Scratch temporary;
    ASSERT_EQ(::chown((temporary / "").c_str(), 65534, 65534), 0);
    const auto result = Testing::run({"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                      bin / "terminal-host", "--verbose", "--askpass",
                                      "echo wr0ng #", "sudo", "-A", "-k", "true"},
                                     {{"TMPDIR", temporary / ""}, {"LC_ALL", "C"}});
    EXPECT_EQ(result.status, 1);
    const std::string asked = "answered: prompt [sudo] password for nobody: \n";
    EXPECT_NE(result.errors.find(asked), result.errors.rfind(asked)) << result.errors;
    EXPECT_EQ(result.errors.find("wr0ng"), std::string::npos);
}

} // namespace
} // namespace Platform
