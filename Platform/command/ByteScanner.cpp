#include <Platform/command/ByteScanner.h>

#include <bit>
#include <bitset>
#include <cstdint>
#include <cstring>

namespace Platform {

namespace {

using std::string_view;

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

/// Sixteen bytes, compared at once.
using Block = unsigned char __attribute__((vector_size(16)));

/// The first of two bytes; npos: neither is there. Lines are short: the time goes into starting
/// and stopping, so this is no call of the C library's for each of the two.
std::size_t findEither(string_view text, char one, char other) noexcept {
    const Block ones = Block{} + static_cast<unsigned char>(one);
    const Block others = Block{} + static_cast<unsigned char>(other);
    std::size_t at = 0;
    for (; at + sizeof(Block) <= text.size(); at += sizeof(Block)) {
        Block block;
        std::memcpy(&block, text.data() + at, sizeof block);
        const auto hits = (block == ones) | (block == others);
        static_assert(std::endian::native == std::endian::little);
        std::uint64_t halves[2];
        std::memcpy(halves, &hits, sizeof halves);
        if ((halves[0] | halves[1]) == 0) continue;
        const auto bit =
            halves[0] != 0 ? std::countr_zero(halves[0]) : 64 + std::countr_zero(halves[1]);
        return at + static_cast<std::size_t>(bit) / 8;
    }
    for (; at < text.size(); ++at) {
        if (text[at] == one || text[at] == other) return at;
    }
    return text.npos;
}

std::size_t findAnyOf(string_view text, string_view bytes) noexcept {
    if (bytes.size() == 1) return text.find(bytes.front());
    if (bytes.size() == 2) return findEither(text, bytes[0], bytes[1]);
    std::bitset<256> set;
    for (const char byte : bytes) set.set(static_cast<unsigned char>(byte));
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (set.test(static_cast<unsigned char>(text[at]))) return at;
    }
    return text.npos;
}

} // namespace

std::optional<string_view> ByteScanner::take(std::size_t size, std::size_t delimiter) noexcept {
    if (size == string_view::npos) return std::nullopt;
    const string_view piece = rest().substr(0, size);
    offset_ += size + delimiter;
    return piece;
}

std::optional<string_view> ByteScanner::viewTo(string_view pattern, bool consume) noexcept {
    if (pattern.empty()) return std::nullopt;
    return take(rest().find(pattern), consume ? pattern.size() : 0);
}

std::optional<string_view> ByteScanner::viewToAnyOf(string_view bytes, bool consume) noexcept {
    return take(findAnyOf(rest(), bytes), consume ? 1 : 0);
}

std::optional<string_view> ByteScanner::viewToEndOfLine(bool consume) noexcept {
    return take(findEither(rest(), '\r', '\n'), consume ? 1 : 0);
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
    data_ = Data(rest());
    offset_ = 0;
    return discarded;
}

} // namespace Platform
