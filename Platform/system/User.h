#pragma once

#include <Platform/base/Export.h>
#include <Platform/system/Passwd.h>

#include <cstdint>
#include <optional>

namespace Platform {

/// A user of the system, by number. Whether there is such a user is not asked.
///
/// A plain value; const operations are callable from any thread.
class PLATFORM_EXPORT User {
public:
    explicit constexpr User(std::uint32_t uid) noexcept : uid_(uid) {}

    constexpr std::uint32_t uid() const noexcept { return uid_; }

    /// The real user of this process, as found at the first call: a later change of the process's
    /// user ids does not show.
    static User real() noexcept;
    /// The effective user of this process, as found at the first call: likewise.
    static User effective() noexcept;

    /// The user's entry in the password database, looked up anew each time; nothing when there is
    /// none, or when the lookup fails. Lookups of several threads do not disturb each other. Blocks
    /// as the database does, which may be across a network. Throws `std::bad_alloc` only.
    std::optional<Passwd> passwd() const;

    friend bool operator==(const User&, const User&) = default;

private:
    std::uint32_t uid_;
};

} // namespace Platform
