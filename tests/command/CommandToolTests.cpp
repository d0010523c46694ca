#include "Children.h"

#include <support/Commands.h>

namespace Platform {
namespace {

using Channel = Cmd::Channel;

Cmd tool(const char* name, std::vector<std::string> arguments) {
    return command(which(name).at(0), std::move(arguments));
}

} // namespace

using CommandTools = CommandTest;

TEST_F(CommandTools, GitsLogAndFetch) {
    const Variable config("GIT_CONFIG_GLOBAL", "/dev/null"), locale("LC_ALL", "C");
    const std::string repository = scratch / "big", copy = scratch / "copy";
    const char* const script = R"(
        git init -q -b main "$0"
        for i in $(seq "$1"); do
            printf 'commit refs/heads/main\ncommitter A <a@example.com> %d +0000\n' $((1700000000 + i))
            printf 'data <<.\nChange %d\n\n%0*d\n.\n' $i $((i % 97)) 0
            printf 'M 644 inline f%d\ndata <<.\n%d\n.\n\n' $((i % 50)) $i
        done | git -C "$0" fast-import --quiet)";
    runMain(tool("sh", {"-ec", script, repository, "20000"}).error());
    Cmd log = tool("git", {"-C", repository, "log", "--stat"});
    log.standardOutput = std::make_shared<Channel>();
    auto splitting = detached([channel = log.standardOutput]() -> Task<std::string> {
        std::string joined;
        ByteScanner scanner;
        while (auto chunk = co_await channel->receive()) {
            scanner.append(*chunk);
            while (auto line = scanner.scanToEndOfLine(true)) joined.append(line->view()) += '\n';
            scanner.trim();
        }
        EXPECT_FALSE(scanner.finish());
        co_return joined;
    });
    runMain(log.run());
    const std::string lines = result(std::move(splitting));
    EXPECT_GT(lines.size(), 3000000U);
    EXPECT_TRUE(lines == run({"git", "-C", repository, "log", "--stat"}).output);

    runMain(tool("git", {"init", "-q", copy}).error());
    Cmd fetch = tool("git", {"-C", copy, "fetch", "--progress", "file://" + repository, "main"});
    fetch.standardError = std::make_shared<Channel>();
    auto progress = collect(fetch.standardError);
    runMain(fetch.run());
    const std::string seen(result(std::move(progress)).view());
    EXPECT_NE(seen.find("Receiving objects: 100%"), seen.npos) << seen;
    runMain(tool("git", {"-C", copy, "fsck", "--no-progress", "FETCH_HEAD"}).error());

    // One's archive is the other's input, by the one channel between them.
    Cmd pack = tool("tar", {"-c", "-C", repository, "."});
    Cmd unpack = tool("tar", {"-x", "-C", copy});
    pack.standardOutput = unpack.standardInput = std::make_shared<Channel>();
    std::filesystem::remove_all(copy);
    std::filesystem::create_directory(copy);
    auto packing = detached([&] { return pack.run(); });
    runMain(unpack.run());
    result(std::move(packing));
    runMain(tool("diff", {"-r", repository, copy}).error());
}

TEST_F(CommandTools, Examples) {
    const auto example = [](const char* name, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), program(std::string("example-") + name));
        return run(std::move(arguments));
    };
    const std::string numbers = example("numbered-lines", {"seq", "1", "50000"}).output;
    EXPECT_TRUE(numbers.starts_with("1\t1\n2\t2\n"));
    EXPECT_TRUE(numbers.ends_with("\n50000\t50000\n"));
    EXPECT_EQ(example("numbered-lines", {"printf", "a\\n\\nb"}).output, "1\ta\n2\t\n3\tb\n");
    EXPECT_EQ(example("numbered-lines", {"/none/x"}).status, 1);
    EXPECT_EQ(example("capture-output", {"/bin/sh", "-c", "echo out"}).output, "4 bytes\n");
    const auto failed = example("capture-output", {"/bin/sh", "-c", "echo No. >&2; exit 4"});
    EXPECT_EQ(failed.errors, "/bin/sh: Exit status 4: No.\n");
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(example("time-limit", {"60000", "/bin/sh", "-c", ":"}).status, 0);
    const auto late =
        example("time-limit", {"20", "/bin/sh", "-c", "trap '' TERM; while :; do :; done"});
    EXPECT_EQ(late.errors, "/bin/sh took too long\n");
    EXPECT_EQ(late.status, 1);
}

} // namespace Platform
