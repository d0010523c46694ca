#include <Platform/system/User.h>

#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <cstddef>
#include <vector>

#include <pwd.h>
#include <unistd.h>

namespace Platform {
namespace {

// No entry is that long. A database that asks for more is broken, and must not take all memory.
constexpr std::size_t longestEntry = std::size_t{1} << 24;

} // namespace

User User::real() noexcept {
    static const User user(::getuid());
    return user;
}

User User::effective() noexcept {
    static const User user(::geteuid());
    return user;
}

std::optional<Passwd> User::passwd() const {
    ::passwd record = {};
    ::passwd* found = nullptr;
    std::vector<char> texts(1024);
    // The database's own answer, unlike a system call's, is the error number.
    const auto lookUp = [&] {
        errno = ::getpwuid_r(uid_, &record, texts.data(), texts.size(), &found);
        return errno == 0 ? 0 : -1;
    };
    while (detail::trySystemCall(detail::SystemCall::userEntry, lookUp) == -1) {
        if (errno != ERANGE || texts.size() >= longestEntry) return std::nullopt;
        texts.resize(texts.size() * 2);
    }
    if (!found) return std::nullopt;
    return Passwd(record);
}

} // namespace Platform
