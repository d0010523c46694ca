#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

// Here rather than in a source: a call for each block would be a third of the work.

namespace Platform::detail {

inline constexpr std::size_t lineEndBlock = 64;

/// A bit for each byte of a whole block that is a carriage return or a line feed; the first byte's
/// is the lowest.
inline std::uint64_t findLineEnds(const char* block) noexcept {
    std::uint64_t found = 0;
#if defined(__SSE2__)
    const __m128i lineFeed = _mm_set1_epi8('\n');
    const __m128i carriageReturn = _mm_set1_epi8('\r');
    for (unsigned at = 0; at < lineEndBlock; at += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + at));
        const __m128i ends =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, lineFeed), _mm_cmpeq_epi8(bytes, carriageReturn));
        found |= std::uint64_t{static_cast<std::uint16_t>(_mm_movemask_epi8(ends))} << at;
    }
#elif defined(__ARM_NEON)
    const uint8x16_t weights = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
    for (unsigned at = 0; at < lineEndBlock; at += 16) {
        const uint8x16_t bytes = vld1q_u8(reinterpret_cast<const std::uint8_t*>(block + at));
        const uint8x16_t ends =
            vorrq_u8(vceqq_u8(bytes, vdupq_n_u8('\n')), vceqq_u8(bytes, vdupq_n_u8('\r')));
        const uint8x16_t bits = vandq_u8(ends, weights);
        found |= std::uint64_t{vaddv_u8(vget_low_u8(bits))} << at;
        found |= std::uint64_t{vaddv_u8(vget_high_u8(bits))} << (at + 8);
    }
#else
    for (unsigned at = 0; at < lineEndBlock; ++at) {
        found |= std::uint64_t{block[at] == '\n' || block[at] == '\r'} << at;
    }
#endif
    return found;
}

/// The same for a part of a block.
inline std::uint64_t findLineEndsInPart(std::string_view part) noexcept {
    std::array<char, lineEndBlock> padded{};
    std::memcpy(padded.data(), part.data(), part.size());
    return findLineEnds(padded.data());
}

} // namespace Platform::detail
