#pragma once

#include <Platform/base/Export.h>

#include <string>
#include <vector>

namespace Platform {

/// Starts programs with an administrator's rights.
namespace Sudo {

/// Has the system ask the user to authenticate as an administrator, and starts the program at
/// `path` (absolute) with the arguments after its name. Its standard streams are not connected to
/// this process, and its end is not waited for.
///
/// Returns true exactly when it was started with the rights; false for everything else, a user who
/// declines included.
///
/// macOS: the authorization services. Linux: `pkexec`, found along this process's `PATH`; false
/// where there is none, where the user has no graphical session to be asked in, or where the system
/// shows nobody the processes of others.
///
/// Blocks for as long as the user takes. Callable from any thread.
PLATFORM_EXPORT bool run(const std::string& path,
                         const std::vector<std::string>& arguments) noexcept;

} // namespace Sudo
} // namespace Platform
