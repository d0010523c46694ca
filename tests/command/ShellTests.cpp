#include "Children.h"

namespace Platform {
namespace {

using Shells = CommandTest;
using std::chrono::milliseconds;

Shell load(const std::string& path, std::optional<milliseconds> limit = std::nullopt) {
    return runMain(Shell::load(path, limit));
}

} // namespace

TEST_F(Shells, TakeTheFirstAttemptThatSucceeds) {
    const auto outcome = [&](const std::string& failing) {
        const Shell shell = load(
            writeScript(scratch / "shell", "case \"$*\" in " + failing +
                                               ") exit 1;; esac; echo \"WITH=$*\"; echo $THERE"));
        return shell.environment() ? shell.environment()->at("WITH") : "none";
    };
    const Variable variable("THERE", "THERE=yes");
    EXPECT_EQ(outcome("x"), "-l -i -c env");
    EXPECT_EQ(outcome("'-l -i'*"), "-l -c env");
    EXPECT_EQ(outcome("-l*"), "-c env");
    EXPECT_EQ(outcome("*"), "none");
    const Shell none = load("/none"), quiet = load(writeScript(scratch / "quiet", ":"));
    EXPECT_EQ(none.environment(), std::nullopt);
    EXPECT_EQ(none.PATH(), std::nullopt);
    EXPECT_EQ(none.path(), "/none");
    EXPECT_EQ(quiet.environment(), Shell::Environment());
    EXPECT_EQ(quiet.PATH(), std::nullopt);
}

TEST_F(Shells, ReadVariablesAsTheyArePrinted) {
    const Shell shell = load(writeScript(scratch / "shell", R"(
        printf 'welcome\nA=1\nB = two \nC=\n=x\n=x=y\nD=a=b\nE==\n'
        printf 'F=1\rG=2\r\nH=3\302\205I=4\342\200\250J=5\342\200\251K=\302\240 6\t\n'
        printf 'F=7\nL=\3778\nM=a\nb\nPATH=/x:/y\nlast=1' )"));
    std::string all;
    for (const auto& [name, value] : *shell.environment()) all += name + "=" + value + ", ";
    EXPECT_EQ(all, "A=1, B=two, D=a=b, E==, F=7, G=2, H=3, I=4, J=5, K=6, L=\xEF\xBF\xBD\x38, M=a, "
                   "PATH=/x:/y, last=1, ");
    EXPECT_EQ(shell.PATH(), "/x:/y");
}

TEST_F(Shells, HaveALimitedTime) {
    const std::string waiting = writeScript(
        scratch / "waiting", "trap '' TERM; sh -c \"trap '' TERM; while :; do :; done\"");
    const std::string mark = scratch / "mark";
    const std::string slow = writeScript(scratch / "slow", "echo >> " + mark + "; exec " + waiting);
    auto loading = detached([&] { return Shell::load(slow); });
    while (!std::filesystem::exists(mark)) std::this_thread::yield();
    loading.cancel();
    auto result = [&]() -> Task<Shell> { co_return co_await loading; };
    EXPECT_EQ(runMain(result()).environment(), std::nullopt);
    // What one attempt has used up, the next does not get.
    std::filesystem::remove(mark);
    EXPECT_EQ(load(slow, milliseconds(200)).environment(), std::nullopt);
    EXPECT_EQ(std::filesystem::file_size(mark), 1U) << "attempts";
}

/// The shells of the system, with start-up files of all kinds.
TEST_F(Shells, AreLoadedAsTheyReallyAre) {
    const Variable home("HOME", scratch / "."), dot("ZDOTDIR", std::nullopt);
    const Variable config("XDG_CONFIG_HOME", std::nullopt);
    std::filesystem::create_directories(scratch / ".config/fish");
    // Each shell reads its own.
    const std::map<const char*, std::string> files{
        {".bash_profile", "export FROM_FILE="}, {".profile", "export FROM_FILE="},
        {".zprofile", "export FROM_FILE="},     {".config/fish/config.fish", "set -x FROM_FILE "},
        {".login", "setenv FROM_FILE "},        {".tcshrc", "setenv FROM_FILE "}};
    const Scratch outside;
    const std::string daemonId = outside / "daemon";
    const std::string daemon =
        writeScript(outside / "start", "sleep 1000 & echo $! > " + daemonId + "\n");
    for (const std::string& habit :
         {"echo hello; echo warning 1>/dev/null"s, "head -n 1; head -n 1 /dev/tty"s,
          "false; /none/at/all"s, daemon}) {
        for (const auto& [name, set] : files)
            write(scratch / name, habit + "\n" + set + "'a  b=c'\n");
        for (const char* const name : {"bash", "dash", "zsh", "fish", "tcsh"}) {
            SCOPED_TRACE(name + (" with " + habit));
            const auto found = which(name);
            if (found.empty() && name == "fish"s) continue; // macOS has it not
            ASSERT_FALSE(found.empty());
            const Shell shell = load(found[0], milliseconds(20000));
            ASSERT_TRUE(shell.environment());
            EXPECT_EQ(shell.environment()->at("FROM_FILE"), "a  b=c");
            EXPECT_TRUE(shell.PATH());
            std::ifstream left(daemonId);
            for (pid_t id; left >> id;) ::kill(id, SIGKILL);
        }
    }
    // Who has the start-up file become another shell gets that one's environment, or none.
    write(scratch / ".bash_profile", "export FROM_FILE=1; exec /bin/dash -c env\n");
    EXPECT_EQ(load("/bin/bash").environment()->at("FROM_FILE"), "1");
}

TEST_F(Shells, AreTheUsersLoginShellByDefault) {
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
