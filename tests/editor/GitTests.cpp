#include <support/HandOffs.h>

namespace Platform {
namespace {

/// Real git in a repository of its own, with our program as its editor and nobody's configuration.
class Repository {
public:
    explicit Repository(const std::map<std::string, std::string>& hostEnvironment) {
        for (const auto& [name, value] : ProcessInfo::environment()) {
            if (name.starts_with("GIT_")) environment_[name] = std::nullopt;
        }
        environment_["HOME"] = scratch_ / "";
        environment_["XDG_CONFIG_HOME"] = std::nullopt;
        environment_["GIT_CONFIG_GLOBAL"] = "/dev/null";
        environment_["GIT_CONFIG_NOSYSTEM"] = "1";
        environment_["GIT_EDITOR"] = "'" + program("editor-shim") + "'";
        environment_["LC_ALL"] = "C";
        for (const auto& [name, value] : hostEnvironment) environment_[name] = value;
        for (const char* role : {"AUTHOR", "COMMITTER"}) {
            environment_[std::string("GIT_") + role + "_NAME"] = "A U Thor";
            environment_[std::string("GIT_") + role + "_EMAIL"] = "author@example.com";
        }
        EXPECT_EQ(run({"git", "init", "-q", "-b", "main", folder()}, environment_).status, 0);
    }

    std::string folder() const { return scratch_ / "ein M\xC3\xBCll eimer"; }
    const Process::Environment& environment() const { return environment_; }

    std::vector<std::string> command(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"git", "-C", folder()});
        return arguments;
    }

    /// Runs git, which has to succeed; returns its output.
    std::string git(std::vector<std::string> arguments) const {
        const auto result = run(command(arguments), environment_);
        EXPECT_EQ(result.status, 0) << arguments[0] << ": " << result.output << result.errors;
        return result.output;
    }

    void stage(const std::string& name) const {
        write(folder() + "/" + name, name + "\n");
        git({"add", "--all"});
    }

    std::string messages() const { return git({"log", "--format=%s", "--first-parent"}); }

private:
    const Scratch scratch_;
    Process::Environment environment_;
};

TEST(Git, GetsItsTextsFromTheHost) {
    const LogEntries log;
    std::mutex mutex;
    std::string asked;                                          // the files' names
    std::vector<std::function<void(std::string & text)>> edits; // the next one is the last
    Editor::Server server([&](std::string path) -> Task<bool> {
        const std::lock_guard guard(mutex);
        asked += path.substr(path.rfind('/') + 1) + " ";
        if (edits.empty()) co_return false;
        std::string text = contentsOf(path);
        edits.back()(text);
        edits.pop_back();
        write(path, text);
        co_return true;
    });
    const Repository repository(server.environment());
    const auto replaces = [](const std::string& what, const std::string& by) {
        return [=](std::string& text) {
            EXPECT_NE(text.find(what), std::string::npos) << text;
            text = by + text.substr(text.find(what) + what.size());
        };
    };
    const auto edited = [&](std::vector<std::string> arguments, auto... next) {
        {
            const std::lock_guard guard(mutex);
            edits = {next...};
        }
        repository.git(std::move(arguments));
        const std::lock_guard guard(mutex);
        EXPECT_TRUE(edits.empty());
        return std::exchange(asked, "");
    };

    repository.stage("one");
    EXPECT_EQ(edited({"commit"}, replaces("", "First")), "COMMIT_EDITMSG ");
    EXPECT_EQ(edited({"commit", "--amend"}, replaces("First", "Amended")), "COMMIT_EDITMSG ");
    repository.stage("zw\xC3\xB6lf \"2\"");
    EXPECT_EQ(edited({"commit", "-v"},
                     [](std::string& text) {
                         EXPECT_NE(text.find("diff --git"), std::string::npos) << text;
                         text.insert(0, "Verbose");
                     }),
              "COMMIT_EDITMSG ");
    EXPECT_EQ(repository.messages(), "Verbose\nAmended\n");

    EXPECT_EQ(edited({"rebase", "-i", "--root"}, replaces("Amended", "Reworded"),
                     replaces("pick", "reword")),
              "git-rebase-todo COMMIT_EDITMSG ");
    EXPECT_EQ(repository.messages(), "Verbose\nReworded\n");

    EXPECT_EQ(edited({"tag", "-a", "v1"}, replaces("", "Annotated")), "TAG_EDITMSG ");
    EXPECT_EQ(repository.git({"tag", "-n", "--format=%(subject)"}), "Annotated\n");

    repository.git({"switch", "-q", "-c", "side"});
    repository.stage("three");
    repository.git({"commit", "-q", "-m", "Side"});
    repository.git({"switch", "-q", "main"});
    EXPECT_EQ(edited({"merge", "--no-ff", "--edit", "side"}, replaces("Merge branch", "Merged")),
              "MERGE_MSG ");
    EXPECT_EQ(repository.messages(), "Merged 'side'\nVerbose\nReworded\n");

    repository.stage("four");
    const auto declined = run(repository.command({"commit"}), repository.environment());
    EXPECT_EQ(declined.status, 1);
    EXPECT_NE(declined.errors.find("problem with the editor"), std::string::npos);
    EXPECT_EQ(repository.messages(), "Merged 'side'\nVerbose\nReworded\n");
}

TEST(Git, IsInterruptedAndCommitsNothingWhileTheHostHasTheEditOpen) {
    const LogEntries log;
    std::promise<CheckedContinuation<bool>> asked;
    Ended ended;
    Editor::Server server([&, token = ended.token()](std::string path) -> Task<bool> {
        write(path, "Never\n");
        auto verdict = withCheckedContinuation<bool>(
            "verdict", [&](CheckedContinuation<bool> waiting) { asked.set_value(waiting); });
        co_return co_await verdict;
    });
    const Repository repository(server.environment());
    repository.stage("file");
    Process git(repository.command({"commit"}), repository.environment());
    const auto verdict = asked.get_future().get();
    git.signalGroup(SIGINT);
    // Git ignores an interrupt while its editor runs, and dies of it only when the editor did.
    EXPECT_EQ(git.wait().status, -SIGINT);
    verdict.resume(true);
    EXPECT_EQ(run(repository.command({"rev-parse", "HEAD"}), repository.environment()).status, 128);
    server.stop();
    EXPECT_TRUE(ended.soon()) << "an answer that nobody waits for any more";
}

TEST(ExampleHosts, WriteWhatTheyAreGivenAndDeclineTheRest) {
    for (const std::string name : {"example-minimal-host", "example-event-loop-host"}) {
        const Repository repository({});
        const std::string commit =
            "git -C '" + repository.folder() + "' commit --quiet --allow-empty";
        const auto host = [&](std::vector<std::string> arguments) {
            arguments.insert(arguments.begin(), program(name));
            return run(arguments, repository.environment());
        };
        const auto accepted = host({commit + " && " + commit, "One", "Two"});
        EXPECT_EQ(accepted.status, 0) << name << ": " << accepted.errors;
        EXPECT_NE(accepted.output.find("COMMIT_EDITMSG"), std::string::npos) << accepted.output;
        EXPECT_EQ(host({commit}).status, 1) << name;
        EXPECT_EQ(repository.messages(), "Two\nOne\n") << name;
    }
}

} // namespace
} // namespace Platform
