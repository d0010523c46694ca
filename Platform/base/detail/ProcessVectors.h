#pragma once

#include <string>
#include <vector>

namespace Platform::detail {

/// The argument list as the system hands it out.
std::vector<std::string> processArguments();

/// The path of the program, as the system hands it out.
std::string processPath();

/// The environment's entries, a null pointer last; may be null.
char** processEnvironment() noexcept;

} // namespace Platform::detail
