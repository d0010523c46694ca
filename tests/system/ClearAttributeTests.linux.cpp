#include <system/Tree.h>

namespace Platform {
namespace {

namespace fs = std::filesystem;

class ClearAttribute : public Tree {};

Process::Result clear(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), program("example-clear-attribute"));
    return run(arguments);
}

} // namespace

TEST_F(ClearAttribute, CountsAndNamesWhatFailed) {
    fs::create_directories(root + "/a\nb/c");
    const std::string plain = file(scratch / "--plain"), inside = file(root + "/a\nb/file");
    mark(inside);
    mark(plain);
    auto result = clear({name.rawValue, root, scratch / "missing\n", plain});
    EXPECT_EQ(result.output, "removed 3 of 5, failed 1\n");
    EXPECT_EQ(result.errors,
              "clear-attribute: " + scratch / "missing : No such file or directory\n");
    EXPECT_EQ(result.status, 1);
    result = clear({"--", name.rawValue, root});
    EXPECT_EQ(result.output, "removed 0 of 4, failed 0\n");
    EXPECT_EQ(result.status, 0);

    // Another user may look at these files, but not change them.
    mark(inside);
    mark(root);
    fs::permissions(scratch / "", fs::perms(0755));
    const std::string tool = program("example-clear-attribute");
    if (run(asNobody({"test", "-x", tool, "-a", "-r", root})).status != 0)
        GTEST_SKIP() << "only root can put its powers aside, or others cannot reach " << tool;
    result = run(asNobody({tool, name.rawValue, root}));
    EXPECT_EQ(result.output, "removed 0 of 4, failed 2\n");
    EXPECT_EQ(result.errors, "clear-attribute: " + root + ": Permission denied\n" +
                                 "clear-attribute: " + root + "/a b/file: Permission denied\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(ClearAttribute, SaysWhatItDoes) {
    EXPECT_EQ(clear({"--help"}).status, 0);
    EXPECT_TRUE(clear({"--help"}).output.starts_with("usage: clear-attribute "));
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{}, {"user.x"}, {"--"}, {"--", "user.x"}, {"--no", "x", "y"}}) {
        const auto result = clear(wrong);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.errors.find("usage: "), std::string::npos);
    }
}

TEST_F(ClearAttribute, ShowsATerminalHowFarItIs) {
    file(root + "/0");
    for (int i = 1; i < 2500; ++i)
        fs::create_hard_link(root + "/0", root + "/" + std::to_string(i));
    const std::string command =
        program("example-clear-attribute") + " user.none " + root + " >" + scratch / "output";
    const auto result = run({"script", "-qec", command, "/dev/null"});
    EXPECT_EQ(result.output, "\r1000 looked at, 0 removed\r2000 looked at, 0 removed\r\033[K");
    const auto unwatched = clear({"user.none", root});
    EXPECT_EQ(unwatched.output, "removed 0 of 2501, failed 0\n");
    EXPECT_EQ(unwatched.errors, "");
}

} // namespace Platform
