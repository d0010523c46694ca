#include "Children.h"

namespace Platform {
namespace {

using std::chrono::milliseconds;

Shell load(const std::string& path, std::optional<milliseconds> limit = std::nullopt) {
    return runMain(Shell::load(path, limit));
}

} // namespace

TEST(Shell, TakesTheFirstAttemptThatSucceeds) {
    const NobodyLeft check;
    const Scratch scratch;
    const auto outcome = [&](const char* failing) {
        const Shell shell = load(
            writeScript(scratch / "shell", std::string("case \"$*\" in ") + failing +
                                               ") exit 1;; esac; echo \"WITH=$*\"; echo $THERE"));
        return shell.environment() ? shell.environment()->at("WITH") : "none";
    };
    const Variable variable("THERE", "THERE=yes");
    EXPECT_EQ(outcome("x"), "-l -i -c env");
    EXPECT_EQ(outcome("'-l -i'*"), "-l -c env");
    EXPECT_EQ(outcome("-l*"), "-c env");
    EXPECT_EQ(outcome("*"), "none");
    EXPECT_EQ(load("/none").environment(), std::nullopt);
    EXPECT_EQ(load("/none").PATH(), std::nullopt);
    EXPECT_EQ(load("/none").path(), "/none");
    const Shell quiet = load(writeScript(scratch / "quiet", ":"));
    EXPECT_EQ(quiet.environment(), Shell::Environment());
    EXPECT_EQ(quiet.PATH(), std::nullopt);
}

TEST(Shell, ReadsVariablesAsTheyArePrinted) {
    const NobodyLeft check;
    const Scratch scratch;
    const Shell shell = load(writeScript(scratch / "shell", R"(
        printf 'welcome\nA=1\nB = two \nC=\n=x\n=x=y\nD=a=b\nE==\n'
        printf 'F=1\rG=2\r\nH=3\302\205I=4\342\200\250J=5\342\200\251K=\302\240 6\t\n'
        printf 'F=7\nL=\3778\nM=a\nb\nPATH=/x:/y\nlast=1' )"));
    const Shell::Environment expected{{"A", "1"},
                                      {"B", "two"},
                                      {"D", "a=b"},
                                      {"E", "="},
                                      {"F", "7"},
                                      {"G", "2"},
                                      {"H", "3"},
                                      {"I", "4"},
                                      {"J", "5"},
                                      {"K", "6"},
                                      {"L", "\xEF\xBF\xBD"
                                            "8"},
                                      {"M", "a"},
                                      {"PATH", "/x:/y"},
                                      {"last", "1"}};
    EXPECT_EQ(shell.environment(), expected);
    EXPECT_EQ(shell.PATH(), "/x:/y");
}

TEST(Shell, LimitsTheTime) {
    const NobodyLeft check;
    const Scratch scratch;
    const std::string waiting = writeScript(
        scratch / "waiting", "trap '' TERM; sh -c \"trap '' TERM; while :; do :; done\"");
    EXPECT_EQ(load(waiting, milliseconds(20)).environment(), std::nullopt);
    const std::string mark = scratch / "mark";
    auto loading = detached(
        [&, path = writeScript(scratch / "marking", "echo > " + mark + "; exec " + waiting)] {
            return Shell::load(path);
        });
    while (!std::filesystem::exists(mark)) std::this_thread::yield();
    loading.cancel();
    auto result = [&]() -> Task<Shell> { co_return co_await loading; };
    EXPECT_EQ(runMain(result()).environment(), std::nullopt);
    // What one attempt has used up, the next does not get.
    const std::string count = scratch / "count";
    const std::string slow =
        writeScript(scratch / "slow", "echo >> " + count + "; exec " + waiting);
    EXPECT_EQ(load(slow, milliseconds(200)).environment(), std::nullopt);
    EXPECT_EQ(std::filesystem::file_size(count), 1U) << "attempts";
}

/// The shells of the system, with start-up files of all kinds.
TEST(Shell, LoadsFromRealShells) {
    const NobodyLeft check;
    const Scratch home;
    const Variable homeVariable("HOME", home / ".");
    const Variable config("XDG_CONFIG_HOME", std::nullopt);
    const Variable dot("ZDOTDIR", std::nullopt);
    std::filesystem::create_directories(home / ".config/fish");
    struct Kind {
        const char* name;
        std::vector<const char*> files;
        const char* set;
    };
    const Kind kinds[] = {
        {"bash", {".bash_profile"}, "export FROM_FILE="},
        {"dash", {".profile"}, "export FROM_FILE="},
        {"zsh", {".zprofile"}, "export FROM_FILE="},
        {"fish", {".config/fish/config.fish"}, "set -x FROM_FILE "},
        {"tcsh", {".login", ".tcshrc"}, "setenv FROM_FILE "},
    };
    const Scratch outside;
    const std::string daemonId = outside / "daemon";
    const std::string daemon =
        writeScript(outside / "start", "sleep 1000 & echo $! > " + daemonId + "\n");
    const struct {
        const char* what;
        std::string line;
    } habits[] = {
        {"prints", "echo hello; echo warning 1>/dev/null"},
        {"prompts", "head -n 1; head -n 1 /dev/tty"},
        {"fails", "false; /none/at/all"},
        {"leaves a daemon", daemon},
    };
    const std::string search = "/usr/bin:/bin";
    for (const Kind& kind : kinds) {
        const std::string path = std::string("/bin/") + kind.name;
        if (::access(path.c_str(), X_OK) != 0) {
            ADD_FAILURE() << path << " is not there";
            continue;
        }
        for (const auto& habit : habits) {
            for (const char* const name : kind.files) {
                write(home / name, habit.line + "\n" + kind.set + "'a  b=c'\n");
            }
            const Shell shell = load(path, milliseconds(20000));
            ASSERT_TRUE(shell.environment()) << kind.name << " " << habit.what;
            const auto found = shell.environment()->find("FROM_FILE");
            ASSERT_NE(found, shell.environment()->end()) << kind.name << " " << habit.what;
            EXPECT_EQ(found->second, "a  b=c") << kind.name << " " << habit.what;
            EXPECT_TRUE(shell.PATH());
            std::ifstream left(daemonId);
            for (pid_t id; left >> id;) ::kill(id, SIGKILL);
        }
    }
    // Who has the start-up file become another shell gets that one's environment, or none.
    write(home / ".bash_profile", "export FROM_FILE=1; exec /bin/dash -c env\n");
    EXPECT_EQ(load("/bin/bash").environment()->at("FROM_FILE"), "1");
}

TEST(Shell, TheDefaultIsTheUsersLoginShell) {
    const NobodyLeft check;
    EXPECT_FALSE(Shell::defaultShell());
    runMain(Shell::loadDefault(milliseconds(20000)));
    const auto passwd = User::effective().passwd();
    if (passwd && passwd->pwShell()) {
        EXPECT_EQ(Shell::defaultShell()->path(), *passwd->pwShell());
        EXPECT_TRUE(Shell::defaultShell()->PATH());
    } else {
        EXPECT_FALSE(Shell::defaultShell());
    }
    Shell::setDefaultShell(Shell("/x", Shell::Environment{{"PATH", "/y"}}));
    EXPECT_EQ(Shell::defaultShell()->PATH(), "/y");
}

} // namespace Platform
