#pragma once

#include <Platform/base/Export.h>

#include <cstdint>
#include <optional>

namespace Platform::Mach {

/// How many threads this process has, the calling one included; nothing when the system does not
/// tell. Out of date as soon as another thread starts or ends one.
///
/// Callable from any thread; does not block. Throws `std::bad_alloc` only.
PLATFORM_EXPORT std::optional<std::int64_t> numberOfActiveThreads();

} // namespace Platform::Mach
