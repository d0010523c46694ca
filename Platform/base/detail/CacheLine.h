#pragma once

#include <cstddef>

namespace Platform::detail {

/// How far apart data stands that different threads write. A cache line of Apple's processors; on
/// x86 it also keeps the prefetcher of adjacent lines out.
inline constexpr std::size_t cacheLine = 128;

} // namespace Platform::detail
