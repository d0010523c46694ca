#include <pwd.h>
#include <support/Testing.h>

namespace Platform {
namespace {

/// The first record of each user, as the C library lists them.
std::map<std::uint32_t, Passwd> allUsers() {
    std::map<std::uint32_t, Passwd> result;
    ::setpwent();
    while (const ::passwd* record = ::getpwent()) // NOLINT(concurrency-mt-unsafe)
        result.try_emplace(record->pw_uid, *record);
    ::endpwent();
    return result;
}

} // namespace

TEST(User, LooksItsEntryUpWithoutDisturbingOtherLookups) {
    const std::map<std::uint32_t, Passwd> all = allUsers();
    ASSERT_GT(all.size(), 1U);
    const auto expectAll = [&] {
        for (const auto& [uid, expected] : all) {
            const auto found = User(uid).passwd();
            ASSERT_TRUE(found) << uid;
            EXPECT_EQ(found->pwDir(), expected.pwDir());
            EXPECT_EQ(found->pwShell(), expected.pwShell());
        }
    };
    std::vector<std::future<void>> lookups;
    for (int i = 0; i < 4; ++i) lookups.push_back(std::async(std::launch::async, expectAll));
    lookups.clear(); // waits for them

    EXPECT_FALSE(User(4'000'000'123).passwd());
    const Faults tooLong(Faults::failing(SystemCall::userEntry, ERANGE, 3));
    EXPECT_EQ(User(0).passwd()->pwDir(), all.at(0).pwDir()) << "with more room for the texts";
}

TEST(User, HasNoEntryWhenTheLookupFails) {
    for (const int number : {EIO, ERANGE}) {
        const Faults failing(Faults::failing(SystemCall::userEntry, number, 1'000'000));
        EXPECT_FALSE(User(0).passwd());
    }
    const Faults interrupted(Faults::failing(SystemCall::userEntry, EINTR, 3));
    EXPECT_TRUE(User(0).passwd());
}

TEST(User, IsThatOfTheFirstCall) {
    EXPECT_EQ(User::real().uid(), ::getuid());
    EXPECT_EQ(User::effective(), User(::geteuid()));
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    ASSERT_EQ(::seteuid(65534), 0);
    EXPECT_EQ(User::effective().uid(), 0U);
    EXPECT_EQ(User::real().uid(), 0U);
    ASSERT_EQ(::seteuid(0), 0);
    ASSERT_EQ(::setreuid(65534, 0), 0);
    EXPECT_EQ(User::real().uid(), 0U);
    ASSERT_EQ(::setreuid(0, 0), 0);
}

TEST(Passwd, OwnsItsTexts) {
    std::string home = "/home/\xff!", shell = "/bin/sh";
    ::passwd record = {};
    EXPECT_FALSE(Passwd(record).pwDir());
    EXPECT_FALSE(Passwd(record).pwShell());
    record.pw_dir = home.data();
    record.pw_shell = shell.data();
    const Passwd passwd(record);
    home.assign(home.size(), 'x');
    shell.assign(shell.size(), 'x');
    EXPECT_EQ(passwd.pwDir(), "/home/\xef\xbf\xbd!");
    EXPECT_EQ(passwd.pwShell(), "/bin/sh");
}

} // namespace Platform
