#pragma once

#include <string>

namespace Platform::detail {

/// Where the system keeps the current user's temporary files when `TMPDIR` does not say; empty
/// where it has no such place. Not yet checked or trimmed.
std::string systemTemporaryDirectory();

} // namespace Platform::detail
