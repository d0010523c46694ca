#include <Platform/system/User.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include <base/Faults.h>
#include <pwd.h>
#include <unistd.h>

namespace Platform {
namespace {

using detail::SystemCall;

struct Entry {
    std::uint32_t uid;
    std::string home;
    std::string shell;
};

/// The first entry of each user in the system's file.
std::vector<Entry> entries() {
    std::ifstream file("/etc/passwd");
    std::vector<Entry> result;
    std::set<std::string> seen;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('#')) continue;
        std::istringstream rest(line);
        std::string name, password, uid, gid, comment, home, shell;
        for (std::string* field : {&name, &password, &uid, &gid, &comment, &home})
            std::getline(rest, *field, ':');
        std::getline(rest, shell);
        if (seen.insert(uid).second)
            result.push_back({static_cast<std::uint32_t>(std::stoul(uid)), home, shell});
    }
    return result;
}

} // namespace

TEST(User, LooksItsEntryUpWithoutDisturbingOtherLookups) {
    const std::vector<Entry> all = entries();
    ASSERT_GT(all.size(), 1U);
    const auto expectAll = [&] {
        std::vector<Passwd> found;
        for (const Entry& entry : all) {
            const auto passwd = User(entry.uid).passwd();
            ASSERT_TRUE(passwd) << entry.uid;
            found.push_back(*passwd);
        }
        for (std::size_t i = 0; i < all.size(); ++i) { // after all the others were looked up
            EXPECT_EQ(found[i].pwDir(), all[i].home);
            EXPECT_EQ(found[i].pwShell(), all[i].shell);
        }
    };
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(expectAll);
    threads.clear();

    EXPECT_FALSE(User(4'000'000'123).passwd());
    const Faults tooLong(Faults::failing(SystemCall::userEntry, ERANGE, 3));
    EXPECT_EQ(User(all[0].uid).passwd()->pwDir(), all[0].home) << "with more room for the texts";
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
