#include <Platform/command/ByteScanner.h>

#include <bit>
#include <bitset>
#include <cstdint>
#include <cstring>

namespace Platform {

namespace {

using std::string_view;

constexpr std::size_t keptBlock = 262144;

string_view text(std::span<const std::byte> bytes) noexcept {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Copies a piece, and takes the scan back when there is no memory for the copy.
std::optional<Data> copied(const std::optional<string_view>& piece, std::size_t& offset,
                           std::size_t before) {
    if (!piece) return std::nullopt;
    const std::size_t after = offset;
    offset = before;
    std::optional<Data> copy(std::in_place, *piece);
    offset = after;
    return copy;
}

/// Bytes that are compared at once.
using Block = signed char __attribute__((vector_size(16)));
using Bytes = char __attribute__((vector_size(16)));

/// A bit for each byte of what a comparison gave: all ones, or zero.
std::uint64_t bitsOf(Block hits) noexcept {
#if defined(__SSE2__)
    return static_cast<std::uint16_t>(__builtin_ia32_pmovmskb128(reinterpret_cast<Bytes>(hits)));
#else
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t halves[2];
    std::memcpy(halves, &hits, sizeof halves);
    std::uint64_t bits = 0;
    for (int half = 0; half < 2; ++half) { // of each byte its own bit, gathered at the top
        const std::uint64_t own = halves[half] & 0x8040201008040201U;
        bits |= own * 0x0101010101010101U >> 56 << (8 * half);
    }
    return bits;
#endif
}

std::uint64_t lineEndsIn16(const char* bytes) noexcept {
    Block block;
    std::memcpy(&block, bytes, sizeof block);
    return bitsOf((block == '\r') | (block == '\n'));
}

/// A bit for each of 64 bytes: whether it ends a line.
std::uint64_t lineEndsIn(const char* bytes) noexcept {
    return lineEndsIn16(bytes) | lineEndsIn16(bytes + 16) << 16 | lineEndsIn16(bytes + 32) << 32 |
           lineEndsIn16(bytes + 48) << 48;
}

std::size_t findAnyOf(string_view text, string_view bytes) noexcept {
    if (bytes.size() == 1) return text.find(bytes.front());
    std::bitset<256> set;
    for (const char byte : bytes) set.set(static_cast<unsigned char>(byte));
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (set.test(static_cast<unsigned char>(text[at]))) return at;
    }
    return text.npos;
}

} // namespace

std::optional<string_view> ByteScanner::viewTo(string_view pattern, bool consume) noexcept {
    if (pattern.empty()) return std::nullopt;
    return take(rest().find(pattern), consume ? pattern.size() : 0);
}

std::optional<string_view> ByteScanner::viewToAnyOf(string_view bytes, bool consume) noexcept {
    return take(findAnyOf(rest(), bytes), consume ? 1 : 0);
}

std::optional<string_view> ByteScanner::findEndOfLine(bool consume) noexcept {
    const string_view all = data_.view();
    std::size_t at = offset_ - block_ < blockSize ? block_ + blockSize : offset_;
    for (; at + blockSize <= all.size(); at += blockSize) {
        const std::uint64_t ends = lineEndsIn(all.data() + at);
        if (ends == 0) continue;
        block_ = at;
        lineEnds_ = ends;
        return take(at - offset_ + static_cast<std::size_t>(std::countr_zero(ends)),
                    consume ? 1 : 0);
    }
    for (; at < all.size(); ++at) {
        if (all[at] == '\r' || all[at] == '\n') return take(at - offset_, consume ? 1 : 0);
    }
    return std::nullopt;
}

std::optional<string_view> ByteScanner::viewRest() noexcept {
    return rest().empty() ? std::nullopt : take(rest().size(), 0);
}

std::optional<Data> ByteScanner::scanTo(string_view pattern, bool consume) {
    const std::size_t before = offset_;
    return copied(viewTo(pattern, consume), offset_, before);
}

std::optional<Data> ByteScanner::scanTo(std::span<const std::byte> pattern, bool consume) {
    return scanTo(text(pattern), consume);
}

std::optional<Data> ByteScanner::scanToAnyOf(string_view bytes, bool consume) {
    const std::size_t before = offset_;
    return copied(viewToAnyOf(bytes, consume), offset_, before);
}

std::optional<Data> ByteScanner::scanToAnyOf(std::span<const std::byte> bytes, bool consume) {
    return scanToAnyOf(text(bytes), consume);
}

std::optional<Data> ByteScanner::scanToEndOfLine(bool consume) {
    const std::size_t before = offset_;
    return copied(viewToEndOfLine(consume), offset_, before);
}

std::optional<Data> ByteScanner::finish() {
    const std::size_t before = offset_;
    return copied(viewRest(), offset_, before);
}

std::size_t ByteScanner::trim() {
    if (offset_ == 0) return 0;
    const std::size_t discarded = offset_;
    const string_view left = rest();
    if (data_.capacity() <= keptBlock) { // a pipe's worth comes again and again
        std::memmove(data_.data(), left.data(), left.size());
        data_.truncate(left.size());
    } else {
        data_ = Data(left);
    }
    offset_ = 0;
    block_ = noBlock;
    return discarded;
}

} // namespace Platform
