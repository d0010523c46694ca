#pragma once

#include <Platform/base/Data.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace Platform::detail {

/// Keeps the first and the last bytes of what may be endless.
struct prefixSuffixSaver {
    std::size_t N = 32768; ///< How many of each.
    Data prefix{};
    Data suffix{};
    std::uint64_t skipped = 0; ///< How many were between them.

    /// Throws std::bad_alloc.
    void append(std::span<const std::byte> bytes);

    /// What was kept, and a notice of how much was not. Throws std::bad_alloc.
    Data text() const;
};

} // namespace Platform::detail
