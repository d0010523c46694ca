#pragma once

#include <Platform/base/Export.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Platform {

/// Every executable file of this name along a search path, in its order, as a shell looks commands
/// up.
///
/// `path` is a list of directories between colons; absent: the `PATH` of this process, and where
/// it has none, nothing is found. Empty pieces count for nothing. What is returned is the
/// directory as it is written, a slash and the name: a directory that ends in a slash gives two, a
/// relative one a relative result, one listed twice gives two results.
///
/// Whether a file may be executed is asked for the real user, as `access` does; searchable
/// directories pass too. A file that cannot be examined is left out.
///
/// Callable from any thread, as `getenv` is. Blocks as the file system does. Throws
/// `std::bad_alloc` only.
PLATFORM_EXPORT std::vector<std::filesystem::path>
which(const std::string& name, const std::optional<std::string>& path = std::nullopt);

} // namespace Platform
