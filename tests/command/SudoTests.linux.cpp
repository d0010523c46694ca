#include "Children.h"

#include <tuple>

namespace Platform {

/// The stand-in goes through the steps of the system's launcher: asks, then becomes the program, or
/// ends with 126 or 127.
TEST(Sudo, TellsWhetherTheProgramWasStarted) {
    const NobodyLeft check;
    const Scratch scratch;
    const std::string told = scratch / "told", starts = R"(shift; exec "$@")";
    const std::tuple<std::string, std::string, bool> cases[] = {
        {R"(printf '<%s>' "$@" >)" + told + "; " + starts, "/bin/true", true},
        {starts, scratch / "ends126", true}, // as the launcher itself does when refused
        {"read -r line </dev/null; : ; " + starts, scratch / "stays", true},
        {"exit 126", "/bin/true", false},
        {"exit 127", "/bin/true", false},
        {"kill -KILL $$", "/bin/true", false},
        {starts, "true", false},  // no absolute path
        {"", "/bin/true", false}, // ends with 0, having started nothing
    };
    const Variable path("PATH", scratch / ".");
    EXPECT_FALSE(Sudo::run("/bin/true", {})) << "no launcher";
    writeScript(scratch / "ends126", "exit 126");
    Pipe hold = makePipe();
    writeScript(scratch / "stays", "exec /bin/cat /proc/" + std::to_string(::getpid()) + "/fd/" +
                                       std::to_string(hold.reading.get()));
    for (const auto& [launcher, program, isStarted] : cases) {
        writeScript(scratch / "pkexec", launcher);
        EXPECT_EQ(Sudo::run(program, {"a b", ""}), isStarted) << launcher;
    }
    EXPECT_EQ(contentsOf(told), "<--disable-internal-agent></bin/true><a b><>");
}

} // namespace Platform
