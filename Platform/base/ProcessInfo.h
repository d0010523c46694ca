#pragma once

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
std::vector<std::string> arguments();

/// The current environment. Of entries with the same name the first counts; entries without '='
/// are left out.
std::map<std::string, std::string> environment();

/// The value of one variable as `environment` has it; nothing when it is missing.
std::optional<std::string> environmentValue(std::string_view name);

} // namespace ProcessInfo
} // namespace Platform
