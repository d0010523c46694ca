#pragma once

#include <cstddef>
#include <span>

namespace Platform::detail {

constexpr int standardOutput = 1;
constexpr int standardError = 2;

/// Writes everything to a descriptor that is not ours; blocks until it is taken, also where the
/// descriptor was made non-blocking by others. Throws `Errno`, `EPIPE` instead of a signal included
/// (Linux).
void writeAll(int descriptor, std::span<const std::byte> bytes);

} // namespace Platform::detail
