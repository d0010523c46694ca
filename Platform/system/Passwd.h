#pragma once

#include <Platform/base/Export.h>

#include <optional>
#include <string>

struct passwd;

namespace Platform {

/// What is of use in an entry of the system's password database.
///
/// A plain value that owns its texts, so that later lookups by anybody do not change it. Const
/// operations are callable from any thread.
class PLATFORM_EXPORT Passwd {
public:
    /// Copies the texts of the C library's record, which need not live on. Throws `std::bad_alloc`.
    explicit Passwd(const ::passwd& record);

    /// The home directory, its bytes decoded as `decodeUTF8` does; nothing when the record has
    /// none.
    const std::optional<std::string>& pwDir() const noexcept { return pwDir_; }
    /// The login shell, likewise. An empty one stands for the system's standard shell.
    const std::optional<std::string>& pwShell() const noexcept { return pwShell_; }

private:
    std::optional<std::string> pwDir_;
    std::optional<std::string> pwShell_;
};

} // namespace Platform
