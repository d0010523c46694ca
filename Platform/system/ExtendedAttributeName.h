#pragma once

#include <Platform/base/Export.h>

#include <string>
#include <utility>

namespace Platform {

/// The name of an extended attribute of files, such as "user.comment".
///
/// A plain value. Any text will do; the system decides what it takes, and sees what stands before a
/// NUL only. On Linux a name begins with its class, and "user." is the one that is everybody's:
/// nothing is added here.
struct PLATFORM_EXPORT ExtendedAttributeName {
    explicit ExtendedAttributeName(std::string name) : rawValue(std::move(name)) {}

    /// What macOS marks downloaded files with.
    static ExtendedAttributeName comAppleQuarantine() {
        return ExtendedAttributeName("com.apple.quarantine");
    }

    std::string rawValue;

    friend bool operator==(const ExtendedAttributeName&, const ExtendedAttributeName&) = default;
};

} // namespace Platform
