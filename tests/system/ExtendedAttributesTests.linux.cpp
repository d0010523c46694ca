#include <system/Tree.h>

namespace Platform {
namespace {

namespace fs = std::filesystem;
using Options = ExtendedAttributes::Options;

class FileAttributes : public Tree {
protected:
    const ExtendedAttributes file{root};
};

std::string getfattr(const std::string& path) {
    return run({"getfattr", "--absolute-names", "--only-values", "-n", name.rawValue, path}).output;
}

} // namespace

// The bits are another system's, and callers may keep them in files.
static_assert(Options().rawValue() == 0 && Options::noFollow.rawValue() == 0x01 &&
              Options::create.rawValue() == 0x02 && Options::replace.rawValue() == 0x04 &&
              Options::noSecurity.rawValue() == 0x08 && Options::noDefault.rawValue() == 0x10 &&
              Options::showCompression.rawValue() == 0x20);
static_assert((Options::create | Options(0x40)).contains(Options::create) &&
              !Options::create.contains(Options::create | Options::replace));

TEST_F(FileAttributes, AreThoseThatTheSystemsToolsSee) {
    ASSERT_EQ(run({"setfattr", "-n", name.rawValue, "-v", "0x61ff00f09f98", root}).status, 0);
    EXPECT_EQ(file.data(name, {}).view(), std::string_view("a\xff\0\xf0\x9f\x98", 6));
    EXPECT_EQ(file.string(name, {}),
              std::string("a\xef\xbf\xbd\0\xef\xbf\xbd", 8)); // one for each invalid sequence
    file.setString("l\xc3\xa4nger als eben\n", name, {});
    EXPECT_EQ(getfattr(root), "l\xc3\xa4nger als eben\n");
    file.setData(std::as_bytes(std::span("a\0b", 3)), name, Options::replace);
    EXPECT_EQ(getfattr(root), std::string("a\0b", 3));

    file.setData({}, name, {});
    EXPECT_TRUE(file.hasAttribute(name)) << "an empty attribute is one";
    EXPECT_TRUE(file.data(name, {}).empty());
    EXPECT_EQ(file.string(name, {}), "");
    file.removeAttribute(name, {});
    EXPECT_EQ(run({"getfattr", "-n", name.rawValue, root}).status, 1);
    EXPECT_FALSE(file.hasAttribute(name));
}

TEST_F(FileAttributes, FailWithTheSystemsNumber) {
    const ExtendedAttributes missing(scratch / "missing");
    const auto set = [](const ExtendedAttributes& of, Options options) {
        return thrownNumber([&] { of.setString("x", name, options); });
    };
    file.removeAttribute(name, {});
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
TEST_F(FileAttributes, KeepTheSizeThatWasFound) {
    const auto dataWhileItBecomes = [&](const std::string& text, const char* before = "four") {
        file.setString(before, name, {});
        int calls = 0;
        const Faults between([&](SystemCall call, std::size_t*) {
            if (call == SystemCall::getAttribute && ++calls == 2)
                ::setxattr(root.c_str(), name.rawValue.c_str(), text.data(), text.size(), 0);
            return 0;
        });
        return file.data(name, {});
    };
    EXPECT_EQ(dataWhileItBecomes("to").view(), std::string_view("to\0\0", 4));
    EXPECT_EQ(thrownNumber([&] { dataWhileItBecomes("longer"); }), ERANGE);
    EXPECT_TRUE(dataWhileItBecomes("longer", "").empty());
}

TEST_F(FileAttributes, AreOfTheLinkItselfWhenAskedFor) {
    fs::create_symlink("root", scratch / "link");
    const ExtendedAttributes link(scratch / "link");
    link.setString("target's", name, {});
    EXPECT_EQ(getfattr(root), "target's");
    // Users have no attributes on links here, so the system refuses each for its own reason.
    EXPECT_EQ(thrownNumber([&] { link.setString("x", name, Options::noFollow); }), EPERM);
    EXPECT_EQ(thrownNumber([&] { link.data(name, Options::noFollow); }), ENODATA)
        << "after the size, for which the link was followed";
    EXPECT_NE(thrownNumber([&] { link.removeAttribute(name, Options::noFollow); }), 0);
    EXPECT_EQ(getfattr(root), "target's");

    const ExtendedAttributeName own("trusted.platform");
    if (::setxattr(root.c_str(), own.rawValue.c_str(), "target's", 8, 0) != 0)
        GTEST_SKIP() << "links can have attributes of root's only, and this is not root";
    link.setString("link's", own, Options::noFollow);
    EXPECT_EQ(link.data(own, {}).view(), "target's");
    EXPECT_EQ(link.data(own, Options::noFollow).view(), std::string_view("link's\0\0", 8));
    link.removeAttribute(own, Options::noFollow);
    EXPECT_TRUE(link.hasAttribute(own)) << "the target's";
}

} // namespace Platform
