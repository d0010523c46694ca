#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Platform::detail {

inline constexpr std::size_t lineEndBlock = 64;

/// A bit for each byte of a block, which is `lineEndBlock` long at most, that is a carriage return
/// or a line feed; the first byte's is the lowest.
std::uint64_t findLineEnds(std::string_view block) noexcept;

} // namespace Platform::detail
