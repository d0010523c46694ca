#include <pthread.h>
#include <support/Testing.h>
#include <sys/attr.h>
#include <sys/xattr.h>

extern "C" int pthread_fchdir_np(int directory);

namespace Platform {

TEST(DarwinThreads, HaveStacksOf512KiB) {
    std::size_t size = 0;
    std::thread([&size] {
        pthread_attr_t attributes;
        ::pthread_getattr_np(::pthread_self(), &attributes);
        ::pthread_attr_getstacksize(&attributes, &size);
        ::pthread_attr_destroy(&attributes);
    }).join();
    EXPECT_EQ(size / 1024 / 32, 512U / 32);
}

TEST(DarwinThreads, HaveNamesOf63BytesAtMost) {
    EXPECT_EQ(::pthread_setname_np(std::string(63, 'n').c_str()), 0);
    EXPECT_EQ(::pthread_setname_np(std::string(64, 'n').c_str()), ENAMETOOLONG);
}

TEST(DarwinThreads, MayHaveAWorkingDirectoryOfTheirOwn) {
    const Scratch scratch;
    const FileDescriptor folder(::open((scratch / "").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const auto before = std::filesystem::current_path();
    std::thread([&] {
        const NothingLeft check;
        EXPECT_EQ(::pthread_fchdir_np(folder.get()), 0);
        EXPECT_TRUE(std::filesystem::equivalent(".", scratch / ""));
        EXPECT_TRUE(std::filesystem::equivalent("/proc/self/cwd", before)) << "the main thread's";
        EXPECT_EQ(::pthread_fchdir_np(-1), 0);
        EXPECT_EQ(std::filesystem::current_path(), before);
        EXPECT_EQ(::pthread_fchdir_np(-1), -1);
    }).join();
}

TEST(DarwinSystem, HasAFolderForTheUsersTemporaryFiles) {
    char path[PATH_MAX];
    EXPECT_EQ(::confstr(_CS_DARWIN_USER_TEMP_DIR, path, sizeof path), 51U);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0700));
}

TEST(DarwinAttributes, RefuseOptionsThatHaveNoMeaning) {
    const Scratch scratch;
    const std::string path = scratch / "";
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const auto number = [](ssize_t result) { return result == -1 ? errno : 0; };
    for (const int options : {0, XATTR_NOFOLLOW, XATTR_NOSECURITY, XATTR_NODEFAULT}) {
        const int ofPath = options > XATTR_NOFOLLOW ? EINVAL : ENODATA;
        const int ofFile = options != 0 ? EINVAL : ENODATA;
        EXPECT_EQ(number(::getxattr(path.c_str(), "user.x", nullptr, 0, 0, options)), ofPath);
        EXPECT_EQ(number(::fgetxattr(file.get(), "user.x", nullptr, 0, 0, options)), ofFile);
        EXPECT_EQ(number(::removexattr(path.c_str(), "user.x", options)), ofPath);
        EXPECT_EQ(number(::fremovexattr(file.get(), "user.x", options)), ofFile);
        EXPECT_EQ(number(::setxattr(path.c_str(), "user.x", "", 0, 0, options | XATTR_REPLACE)),
                  ofPath);
    }
}

TEST(DarwinAttributes, OfEntriesComeWithWhatWasFoundOfEach) {
    const Scratch scratch;
    for (int i = 0; i < 7; ++i) std::ofstream(scratch / std::to_string(i).c_str());
    const FileDescriptor folder(::open((scratch / "").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    attrlist wanted{};
    wanted.bitmapcount = ATTR_BIT_MAP_COUNT;
    std::vector<char> buffer(32'768);
    EXPECT_EQ(::getattrlistbulk(folder.get(), &wanted, buffer.data(), buffer.size(), 0), -1);
    EXPECT_EQ(errno, EINVAL) << "the set is always asked for";
    wanted.commonattr = ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_NAME | ATTR_CMN_OBJTYPE | ATTR_CMN_ERROR;
    ASSERT_EQ(::getattrlistbulk(folder.get(), &wanted, buffer.data(), buffer.size(), 0), 7);
    std::multiset<attrgroup_t> found;
    const char* position = buffer.data();
    for (int i = 0; i < 7; ++i) {
        std::uint32_t length;
        attribute_set_t set;
        std::memcpy(&length, position, sizeof length);
        std::memcpy(&set, position + sizeof length, sizeof set);
        EXPECT_EQ(length % 8, 0U);
        found.insert(set.commonattr & (ATTR_CMN_OBJTYPE | ATTR_CMN_ERROR));
        position += length;
    }
    EXPECT_EQ(found.count(ATTR_CMN_OBJTYPE), 6U);
    EXPECT_EQ(found.count(ATTR_CMN_ERROR), 1U);
    EXPECT_EQ(::getattrlistbulk(folder.get(), &wanted, buffer.data(), buffer.size(), 0), 0);
}

} // namespace Platform
