#include <Platform/system/ExtendedAttributes.h>

#include <array>
#include <cerrno>
#include <fstream>

#include <base/Faults.h>
#include <base/Scratch.h>
#include <support/Process.h>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace Platform {
namespace {

using detail::SystemCall;
using Options = ExtendedAttributes::Options;

const ExtendedAttributeName name("user.platform");

std::string touch(const std::string& path) {
    std::ofstream file(path);
    return path;
}

/// Where this file system has no attributes for users, says so and skips.
#define NEED_ATTRIBUTES(path)                                                                      \
    if (::setxattr(path.c_str(), "user.probe", "", 0, 0) != 0)                                     \
    GTEST_SKIP() << "no user attributes on the file system of " << path

std::string getfattr(const std::string& path, const char* link = "--") {
    return Testing::run(
               {"getfattr", "--absolute-names", "--only-values", "-n", name.rawValue, link, path})
        .output;
}

} // namespace

// The bits are another system's, and callers may keep them in files.
static_assert(Options().rawValue() == 0 && Options::noFollow.rawValue() == 0x01 &&
              Options::create.rawValue() == 0x02 && Options::replace.rawValue() == 0x04 &&
              Options::noSecurity.rawValue() == 0x08 && Options::noDefault.rawValue() == 0x10 &&
              Options::showCompression.rawValue() == 0x20);
static_assert((Options::create | Options(0x40)).contains(Options::create) &&
              !Options::create.contains(Options::create | Options::replace));

TEST(ExtendedAttributes, AreThoseThatTheSystemsToolsSee) {
    const Scratch scratch;
    const std::string path = touch(scratch / "file");
    NEED_ATTRIBUTES(path);
    const ExtendedAttributes file(path);
    const NothingLeft nothingLeft;

    ASSERT_EQ(Testing::run({"setfattr", "-n", name.rawValue, "-v", "0x61ff00f09f98", path}).status,
              0);
    EXPECT_EQ(file.data(name, {}).view(), std::string_view("a\xff\0\xf0\x9f\x98", 6));
    EXPECT_EQ(file.string(name, {}),
              std::string("a\xef\xbf\xbd\0\xef\xbf\xbd", 8)); // one for each invalid sequence
    file.setString("l\xc3\xa4nger als eben\n", name, {});
    EXPECT_EQ(getfattr(path), "l\xc3\xa4nger als eben\n");
    file.setData(std::as_bytes(std::span("a\0b", 3)), name, Options::replace);
    EXPECT_EQ(getfattr(path), std::string("a\0b", 3));

    file.setData({}, name, {});
    EXPECT_TRUE(file.hasAttribute(name)) << "an empty attribute is one";
    EXPECT_TRUE(file.data(name, {}).empty());
    EXPECT_EQ(file.string(name, {}), "");
    file.removeAttribute(name, {});
    EXPECT_EQ(Testing::run({"getfattr", "-n", name.rawValue, path}).status, 1);
    EXPECT_FALSE(file.hasAttribute(name));
}

TEST(ExtendedAttributes, FailWithTheSystemsNumber) {
    const Scratch scratch;
    const std::string path = touch(scratch / "file");
    NEED_ATTRIBUTES(path);
    const ExtendedAttributes file(path), missing(scratch / "missing");
    const auto set = [](const ExtendedAttributes& of, Options options) {
        return thrownNumber([&] { of.setString("x", name, options); });
    };
    EXPECT_EQ(set(file, Options::replace), ENODATA);
    EXPECT_EQ(set(file, Options::create | Options::noDefault), 0);
    EXPECT_EQ(set(file, Options::create | Options::noSecurity), EEXIST);
    EXPECT_EQ(set(file, Options::noSecurity | Options::noDefault | Options::showCompression), 0)
        << "the system does not know them, and is not told";
    file.removeAttribute(name, {});
    EXPECT_EQ(set(missing, {}), ENOENT);
    EXPECT_FALSE(missing.hasAttribute(name));
    for (const auto& [of, number] : {std::pair(&file, ENODATA), std::pair(&missing, ENOENT)}) {
        EXPECT_EQ(thrownNumber([&] { of->data(name, {}); }), number);
        EXPECT_EQ(thrownNumber([&] { of->string(name, {}); }), number);
        EXPECT_EQ(thrownNumber([&] { of->removeAttribute(name, {}); }), number);
    }
    {
        const Faults interrupted(Faults::failing(SystemCall::setAttribute, EINTR));
        file.setString("x", name, {});
    }
    const Faults unreadable(Faults::failing(SystemCall::getAttribute, EIO));
    EXPECT_FALSE(file.hasAttribute(name)) << "any failure means no";
    EXPECT_TRUE(file.hasAttribute(name));
}

// Between the question for the size and the reading the value changes.
TEST(ExtendedAttributes, KeepTheSizeThatWasFound) {
    const Scratch scratch;
    const std::string path = touch(scratch / "file");
    NEED_ATTRIBUTES(path);
    const ExtendedAttributes file(path);
    const auto dataWhileItBecomes = [&](const std::string& text) {
        file.setString("four", name, {});
        int calls = 0;
        const Faults between([&](SystemCall call, std::size_t*) {
            if (call == SystemCall::getAttribute && ++calls == 2)
                ::setxattr(path.c_str(), name.rawValue.c_str(), text.data(), text.size(), 0);
            return 0;
        });
        return file.data(name, {});
    };
    EXPECT_EQ(dataWhileItBecomes("to").view(), std::string_view("to\0\0", 4));
    EXPECT_EQ(thrownNumber([&] { dataWhileItBecomes("longer"); }), ERANGE);
}

TEST(ExtendedAttributes, AreOfTheLinkItselfWhenAskedFor) {
    const Scratch scratch;
    const std::string target = touch(scratch / "target"), link = scratch / "link";
    NEED_ATTRIBUTES(target);
    ASSERT_EQ(::symlink("target", link.c_str()), 0);
    const ExtendedAttributes file(link);
    file.setString("target's", name, {});
    EXPECT_EQ(getfattr(target), "target's");
    // Users have no attributes on links here, so the system refuses each for its own reason.
    EXPECT_EQ(thrownNumber([&] { file.setString("x", name, Options::noFollow); }), EPERM);
    EXPECT_EQ(thrownNumber([&] { file.data(name, Options::noFollow); }), ENODATA)
        << "after the size, for which the link was followed";
    EXPECT_NE(thrownNumber([&] { file.removeAttribute(name, Options::noFollow); }), 0);
    EXPECT_EQ(getfattr(target), "target's");

    const ExtendedAttributeName own("trusted.platform");
    if (::setxattr(target.c_str(), own.rawValue.c_str(), "target's", 8, 0) != 0)
        GTEST_SKIP() << "links can have attributes of root's only, and this is not root";
    file.setString("link's", own, Options::noFollow);
    EXPECT_EQ(file.data(own, {}).view(), "target's");
    EXPECT_EQ(file.data(own, Options::noFollow).view(), std::string_view("link's\0\0", 8));
    file.removeAttribute(own, Options::noFollow);
    EXPECT_TRUE(file.hasAttribute(own)) << "the target's";
}

} // namespace Platform
