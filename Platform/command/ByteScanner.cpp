#include <Platform/command/ByteScanner.h>

#include <Platform/command/detail/LineEnds.h>

#include <algorithm>
#include <bitset>
#include <cstring>

namespace Platform {

namespace {

using std::string_view;

constexpr std::size_t keptBlock = 262144;

string_view text(std::span<const std::byte> bytes) noexcept {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::size_t find(string_view text, string_view pattern) noexcept {
    return pattern.empty() ? text.npos : text.find(pattern);
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

std::optional<string_view> ByteScanner::take(std::size_t size, std::size_t delimiter) noexcept {
    if (size == string_view::npos) return std::nullopt;
    string_view piece = rest();
    piece.remove_suffix(piece.size() - size);
    offset_ += size + delimiter;
    searched_ = std::max(searched_, offset_);
    if (lineEnds_ != 0 && offset_ > block_) { // those that were passed
        const std::size_t passed = offset_ - block_;
        lineEnds_ = passed < detail::lineEndBlock ? lineEnds_ >> passed << passed : 0;
    }
    return piece;
}

std::optional<Data> ByteScanner::takeCopy(std::size_t size, std::size_t delimiter) {
    if (size == string_view::npos) return std::nullopt;
    std::optional<Data> copy(std::in_place, rest().substr(0, size));
    take(size, delimiter);
    return copy;
}

bool ByteScanner::findLineEnds() noexcept {
    const string_view all = data_.view();
    while (searched_ + detail::lineEndBlock <= all.size()) {
        block_ = searched_;
        searched_ += detail::lineEndBlock;
        lineEnds_ = detail::findLineEnds(all.data() + block_);
        if (lineEnds_ != 0) return true;
    }
    if (searched_ == all.size()) return false;
    block_ = searched_;
    searched_ = all.size();
    lineEnds_ = detail::findLineEndsInPart(all.substr(block_));
    return lineEnds_ != 0;
}

std::optional<string_view> ByteScanner::viewTo(string_view pattern, bool consume) noexcept {
    return take(find(rest(), pattern), consume ? pattern.size() : 0);
}

std::optional<string_view> ByteScanner::viewToAnyOf(string_view bytes, bool consume) noexcept {
    return take(findAnyOf(rest(), bytes), consume ? 1 : 0);
}

std::optional<string_view> ByteScanner::viewRest() noexcept {
    return rest().empty() ? std::nullopt : take(rest().size(), 0);
}

std::optional<Data> ByteScanner::scanTo(string_view pattern, bool consume) {
    return takeCopy(find(rest(), pattern), consume ? pattern.size() : 0);
}

std::optional<Data> ByteScanner::scanTo(std::span<const std::byte> pattern, bool consume) {
    return scanTo(text(pattern), consume);
}

std::optional<Data> ByteScanner::scanToAnyOf(string_view bytes, bool consume) {
    return takeCopy(findAnyOf(rest(), bytes), consume ? 1 : 0);
}

std::optional<Data> ByteScanner::scanToAnyOf(std::span<const std::byte> bytes, bool consume) {
    return scanToAnyOf(text(bytes), consume);
}

std::optional<Data> ByteScanner::finish() {
    return rest().empty() ? std::nullopt : takeCopy(rest().size(), 0);
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
    searched_ -= discarded;
    if (lineEnds_ != 0 && block_ < discarded) lineEnds_ >>= discarded - block_;
    block_ -= std::min(block_, discarded);
    return discarded;
}

} // namespace Platform
