#pragma once

#include <Platform/base/Export.h>

#include <string>

namespace Platform {

/// A fresh random UUID (version 4) in its canonical form of 36 characters, upper case. The bits
/// come from the system's random source, so it cannot be guessed. Callable from any thread; throws
/// `Errno` where the source fails.
PLATFORM_EXPORT std::string makeUUID();

} // namespace Platform
