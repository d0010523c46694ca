#include <support/RealTools.h>

namespace Platform {

class Git : public RealTools {
protected:
    /// A new repository is the current directory from now on.
    static void init(const std::string& name) {
        EXPECT_EQ(run({"git", "init", "-q", name}).status, 0);
        std::filesystem::current_path(name);
    }

    const Variable gitEditor_{"GIT_EDITOR", "'" + program("editor-shim") + "'"};
};

TEST_F(Git, IsInterruptedAndCommitsNothingWhileTheHostHasTheEditOpen) {
    const LogEntries log;
    std::promise<CheckedContinuation<bool>> asked;
    Ended ended;
    Editor::Server server([&, token = ended.token()](std::string path) -> Task<bool> {
        write(path, "Never\n");
        auto verdict = withCheckedContinuation<bool>(
            "verdict", [&](CheckedContinuation<bool> waiting) { asked.set_value(waiting); });
        co_return co_await verdict;
    });
    init("repository");
    Process git({"git", "commit", "--allow-empty"}, {{"MV_EDITOR_CONN", server.path()}});
    const auto verdict = asked.get_future().get();
    git.signalGroup(SIGINT);
    // Git ignores an interrupt while its editor runs, and dies of it only when the editor did.
    EXPECT_EQ(git.wait().status, -SIGINT);
    verdict.resume(true);
    EXPECT_EQ(run({"git", "rev-parse", "HEAD"}).status, 128);
    server.stop();
    EXPECT_TRUE(ended.soon()) << "an answer that nobody waits for any more";
}

TEST_F(Git, GetsFromTheExampleHostsWhatTheyAreGiven) {
    for (const std::string name : {"example-minimal-host", "example-event-loop-host"}) {
        init(name);
        const std::string commit = "git commit --quiet --allow-empty";
        const auto accepted = run({program(name), commit + " && " + commit, "One", "Two"});
        EXPECT_EQ(accepted.status, 0) << name << ": " << accepted.errors;
        EXPECT_NE(accepted.output.find("COMMIT_EDITMSG"), std::string::npos) << accepted.output;
        EXPECT_EQ(run({program(name), commit}).status, 1) << name;
        EXPECT_EQ(run({"git", "log", "--format=%s"}).output, "Two\nOne\n") << name;
    }
}

} // namespace Platform
