#include <Platform/system/ExtendedAttributes.h>

#include <fstream>

#include <base/Scratch.h>
#include <support/Process.h>

namespace Platform {
namespace {

namespace fs = std::filesystem;
using Testing::program;
using Testing::run;

const ExtendedAttributeName name("user.platform");

bool mark(const std::string& path) try {
    ExtendedAttributes(path).setString("x", name, {});
    return true;
} catch (const std::exception&) {
    return false;
}

Testing::Process::Result clear(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), program("example-clear-attribute"));
    return run(arguments);
}

} // namespace

TEST(ClearAttribute, CountsAndNamesWhatFailed) {
    const Scratch scratch;
    const std::string tree = scratch / "tree", plain = scratch / "--plain";
    fs::create_directories(tree + "/a\nb/c");
    for (const std::string& file : {plain, tree + "/a\nb/file"}) std::ofstream(file) << "";
    if (!mark(tree)) GTEST_SKIP() << "no user attributes on the file system of " << tree;
    mark(tree + "/a\nb/file");
    mark(plain);
    auto result = clear({name.rawValue, tree, scratch / "missing\n", plain});
    EXPECT_EQ(result.output, "removed 3 of 5, failed 1\n");
    EXPECT_EQ(result.errors,
              "clear-attribute: " + scratch / "missing : No such file or directory\n");
    EXPECT_EQ(result.status, 1);
    result = clear({"--", name.rawValue, tree});
    EXPECT_EQ(result.output, "removed 0 of 4, failed 0\n");
    EXPECT_EQ(result.status, 0);

    // Another user may look at these files, but not change them.
    const auto asNobody = [](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(),
                         {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
        return run(arguments);
    };
    mark(tree + "/a\nb/file");
    mark(tree);
    fs::permissions(fs::path(tree).parent_path(), fs::perms(0755));
    const std::string tool = program("example-clear-attribute");
    if (asNobody({"test", "-x", tool, "-a", "-r", tree}).status != 0)
        GTEST_SKIP() << "only root can put its powers aside, or others cannot reach " << tool;
    result = asNobody({tool, name.rawValue, tree});
    EXPECT_EQ(result.output, "removed 0 of 4, failed 2\n");
    EXPECT_EQ(result.errors, "clear-attribute: " + tree + ": Permission denied\n" +
                                 "clear-attribute: " + tree + "/a b/file: Permission denied\n");
    EXPECT_EQ(result.status, 1);
}

TEST(ClearAttribute, SaysWhatItDoes) {
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

TEST(ClearAttribute, ShowsATerminalHowFarItIs) {
    const Scratch scratch;
    const std::string tree = scratch / "tree";
    fs::create_directory(tree);
    std::ofstream(tree + "/0") << "";
    for (int i = 1; i < 2500; ++i)
        fs::create_hard_link(tree + "/0", tree + "/" + std::to_string(i));
    const std::string command =
        program("example-clear-attribute") + " user.none " + tree + " >" + scratch / "output";
    const auto result = run({"script", "-qec", command, "/dev/null"});
    EXPECT_EQ(result.output, "\r1000 looked at, 0 removed\r2000 looked at, 0 removed\r\033[K");
    const auto unwatched = clear({"user.none", tree});
    EXPECT_EQ(unwatched.output, "removed 0 of 2501, failed 0\n");
    EXPECT_EQ(unwatched.errors, "");
}

} // namespace Platform
