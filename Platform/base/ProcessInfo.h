#pragma once

#include <Platform/base/Export.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

/// Facts about this process, without help from `main`. The text is whatever bytes the process was
/// given, decoded in no way.
///
/// Callable from any thread, but, as with `getenv`, not while another changes the environment or
/// the argument list. Throws `std::bad_alloc`.
namespace ProcessInfo {

/// The argument list, the program path first. What a program removes from its own list in `main`
/// is missing from then on. Linux: throws `Errno` where the list has to be read from the system
/// and cannot be.
PLATFORM_EXPORT std::vector<std::string> arguments();

/// The path of the program that this process runs, as the system knows it, whatever the argument
/// list says. Throws `Errno` where the system does not tell.
PLATFORM_EXPORT std::string executablePath();

/// The current environment. Of entries with the same name the first counts; entries without '='
/// are left out.
PLATFORM_EXPORT std::map<std::string, std::string> environment();

/// The value of one variable as `environment` has it; nothing when it is missing.
PLATFORM_EXPORT std::optional<std::string> environmentValue(std::string_view name);

} // namespace ProcessInfo
} // namespace Platform
