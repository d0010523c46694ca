#include <Platform/base/TemporaryDirectory.h>

#include <Platform/base/Errno.h>

#include "Faults.h"
#include "Scratch.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {
namespace {

using detail::SystemCall;

unsigned modeOf(const std::string& path) {
    struct stat status{};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

/// `what()` of the error that refuses the directory, with its number before it.
std::string refusal(const std::string& path) {
    const NothingLeft check;
    try {
        makePrivateDirectory(path);
    } catch (const Errno& error) {
        return std::to_string(error.number()) + " " + error.what();
    }
    return "accepted";
}

std::string refusedWith(int number, const std::string& context) {
    return std::to_string(number) + " " + Errno(number, context).what();
}

TEST(TemporaryDirectory, TheVariableCountsWhenItIsAnAbsolutePath) {
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {"/some/where", "/some/where"}, {"/some/where//", "/some/where"}, {"/", "/"}, {"///", "/"}};
    for (const auto& [value, expected] : cases) {
        const Variable variable("TMPDIR", value);
        EXPECT_EQ(temporaryDirectory(), expected);
    }
    std::set<std::string> others;
    for (const std::optional<std::string>& value :
         {std::optional<std::string>(), {""}, {"relative"}}) {
        const Variable variable("TMPDIR", value);
        others.insert(temporaryDirectory());
    }
    EXPECT_EQ(others.size(), 1u);
    EXPECT_TRUE(others.begin()->starts_with('/'));
}

TEST(PrivateDirectory, IsMadeWithItsParentsAndAcceptedAgain) {
    const NothingLeft check;
    const Scratch scratch;
    const mode_t umaskBefore = ::umask(002);
    EXPECT_EQ(makePrivateDirectory(scratch / "a//b/c//"), scratch / "a//b/c");
    EXPECT_EQ(makePrivateDirectory(scratch / "a/b/c"), scratch / "a/b/c");
    ::umask(umaskBefore);
    EXPECT_EQ(modeOf(scratch / "a"), 0775u);
    EXPECT_EQ(modeOf(scratch / "a/b"), 0775u);
    EXPECT_EQ(modeOf(scratch / "a/b/c"), 0700u);
    ::chmod((scratch / "a/b/c").c_str(), 0755);
    EXPECT_EQ(refusal(scratch / "a/b/c"), "accepted") << "others may look, not write";
}

TEST(PrivateDirectory, RefusesWhatSomebodyElseCouldHavePlanted) {
    const Scratch scratch;
    const std::string path = scratch / "planted";
    const std::string owner = std::to_string(::geteuid());

    std::filesystem::create_directory(scratch / "real");
    ASSERT_EQ(::symlink((scratch / "real").c_str(), path.c_str()), 0);
    EXPECT_EQ(refusal(path), refusedWith(ENOTDIR, path));
    EXPECT_EQ(refusal(path + "/"), refusedWith(ENOTDIR, path)) << "the slash follows the link";
    std::filesystem::remove(path);

    ASSERT_EQ(::symlink("nowhere", path.c_str()), 0);
    EXPECT_EQ(refusal(path), refusedWith(ENOTDIR, path));
    std::filesystem::remove(path);

    std::ofstream(path).put('x');
    EXPECT_EQ(refusal(path), refusedWith(ENOTDIR, path));
    EXPECT_EQ(refusal(path + "/below"), refusedWith(ENOTDIR, path + "/below"));
    std::filesystem::remove(path);

    for (const auto& [mode, text] :
         {std::pair(0720, "0720"), std::pair(0702, "0702"), std::pair(01777, "1777")}) {
        std::filesystem::create_directory(path);
        ::chmod(path.c_str(), static_cast<mode_t>(mode));
        EXPECT_EQ(refusal(path),
                  refusedWith(EACCES, path + " (owner " + owner + ", mode " + text + ")"));
        EXPECT_EQ(modeOf(path), static_cast<unsigned>(mode)) << "it is left alone";
        std::filesystem::remove(path);
    }
}

TEST(PrivateDirectory, RefusesAnotherUsersDirectory) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs the right to give a directory away";
    }
    const Scratch scratch;
    const std::string path = scratch / "planted";
    std::filesystem::create_directory(path);
    ::chmod(path.c_str(), 0700);
    ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    EXPECT_EQ(refusal(path), refusedWith(EACCES, path + " (owner 65534, mode 0700)"));
}

TEST(PrivateDirectory, ReportsTheFailingCallWithThePath) {
    const Scratch scratch;
    EXPECT_EQ(refusal(""), refusedWith(ENOENT, ""));
    const std::string path = scratch / "a/b";
    for (const auto& [call, number] :
         {std::pair(SystemCall::mkdir, ENOSPC), std::pair(SystemCall::lstat, EIO)}) {
        const Faults faults(Faults::failing(call, number));
        EXPECT_EQ(refusal(path), refusedWith(number, path));
        EXPECT_EQ(refusal(path), "accepted");
    }
    // Above the missing one; after its parent was made; and never, with nothing left to make.
    int calls = 0;
    const auto failAt = [&](int last) {
        calls = 0;
        return [&calls, last](SystemCall call, std::size_t*) {
            return call != SystemCall::mkdir ? 0
                   : ++calls == last         ? ENOSPC
                   : calls < last            ? ENOENT
                                             : 0;
        };
    };
    const std::string other = scratch / "c/d";
    {
        const Faults faults(failAt(2));
        EXPECT_EQ(refusal(other), refusedWith(ENOSPC, scratch / "c"));
    }
    {
        const Faults faults(Faults::failing(SystemCall::mkdir, ENOENT, 1'000));
        EXPECT_EQ(refusal("/x"), refusedWith(ENOENT, "/"));
    }
    {
        const Faults faults(Faults::failing(SystemCall::mkdir, EINTR, 3));
        EXPECT_EQ(refusal(other), "accepted");
    }
}

TEST(TemporaryPipePath, IsFreshAndItsDirectoryPrivate) {
    const NothingLeft check;
    const Scratch scratch;
    const Variable variable("TMPDIR", scratch / "not/yet/");
    const std::string directory = scratch / "not/yet/app.morvel.pkg.platform.fifo";
    const std::string path = makeTemporaryPipePath();
    EXPECT_EQ(std::filesystem::path(path).parent_path(), directory);
    EXPECT_EQ(std::filesystem::path(path).filename().string().size(), 36u);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(modeOf(directory), 0700u);
    EXPECT_NE(makeTemporaryPipePath(), path);

    std::filesystem::permissions(directory, std::filesystem::perms(0777));
    EXPECT_EQ(thrownNumber(makeTemporaryPipePath), EACCES);
}

} // namespace
} // namespace Platform
