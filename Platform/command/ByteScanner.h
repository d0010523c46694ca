#pragma once

#include <Platform/base/Data.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace Platform {

/// Collects bytes that come in chunks of any size, and hands back the pieces between delimiters.
///
/// Never waits: where no complete piece is there, nothing is returned, and the caller appends more
/// and asks again. An empty piece is a piece. `consume` says whether a delimiter that was found is
/// skipped, or left to be the start of what comes next.
///
/// A plain value: copies are independent, a moved-from one is as new. Scanning starts at `offset`,
/// so scanned bytes are not looked at again; they are kept until `trim`. Throws `std::bad_alloc`
/// and is then as it was.
class ByteScanner {
public:
    ByteScanner() noexcept = default;
    ByteScanner(const ByteScanner&) = default;
    ByteScanner(ByteScanner&& other) noexcept
        : data_(std::move(other.data_)), offset_(std::exchange(other.offset_, 0)),
          lineFeed_(std::exchange(other.lineFeed_, 0)),
          carriageReturn_(std::exchange(other.carriageReturn_, 0)) {}
    ByteScanner& operator=(ByteScanner other) noexcept {
        data_ = std::move(other.data_);
        offset_ = other.offset_;
        lineFeed_ = other.lineFeed_;
        carriageReturn_ = other.carriageReturn_;
        return *this;
    }
    ~ByteScanner() = default;

    /// Every byte appended and not yet trimmed.
    const Data& data() const noexcept { return data_; }
    /// Where in `data` the next scan starts; its end at most.
    std::size_t offset() const noexcept { return offset_; }
    /// The bytes in `data`, the scanned ones included.
    std::size_t count() const noexcept { return data_.size(); }

    /// Adds a copy of the bytes at the end.
    void append(std::span<const std::byte> bytes) { data_.append(bytes); }
    void append(std::string_view bytes) { data_.append(bytes); }

    /// The piece before the first occurrence of a pattern; nothing for an empty pattern.
    std::optional<Data> scanTo(std::span<const std::byte> pattern, bool consume);
    std::optional<Data> scanTo(std::string_view pattern, bool consume);

    /// The piece before the first byte that is one of `bytes`.
    std::optional<Data> scanToAnyOf(std::span<const std::byte> bytes, bool consume);
    std::optional<Data> scanToAnyOf(std::string_view bytes, bool consume);

    /// The piece before the first carriage return or line feed. Each is a delimiter by itself, so a
    /// pair of both has an empty piece between.
    std::optional<Data> scanToEndOfLine(bool consume);

    /// Everything that is left, for a last piece without a delimiter; nothing when nothing is left.
    std::optional<Data> finish();

    /// The same without a copy: the pieces are parts of `data`, valid until the scanner is appended
    /// to, trimmed or gone.
    std::optional<std::string_view> viewTo(std::string_view pattern, bool consume) noexcept;
    std::optional<std::string_view> viewToAnyOf(std::string_view bytes, bool consume) noexcept;
    std::optional<std::string_view> viewToEndOfLine(bool consume) noexcept {
        const std::size_t end =
            std::min(nextPlaceOf('\n', lineFeed_), nextPlaceOf('\r', carriageReturn_));
        return end == count() ? std::nullopt : take(end - offset_, consume ? 1 : 0);
    }
    std::optional<std::string_view> viewRest() noexcept;

    /// Discards the scanned bytes; returns how many they were. A big block shrinks to what is left.
    std::size_t trim();

private:
    std::string_view rest() const noexcept { return data_.view().substr(offset_); }

    /// The next `size` bytes, which a delimiter follows; npos: it is not there.
    std::optional<std::string_view> take(std::size_t size, std::size_t delimiter) noexcept {
        if (size == std::string_view::npos) return std::nullopt;
        const std::string_view piece(data_.view().data() + offset_, size);
        offset_ += size + delimiter;
        return piece;
    }

    /// Where the next such byte is, or the end. `known` is remembered: there is none before it.
    std::size_t nextPlaceOf(char byte, std::size_t& known) const noexcept {
        const std::string_view all = data_.view();
        known = std::max(known, offset_);
        if (known < all.size() && all[known] != byte) {
            known = std::min(all.find(byte, known), all.size());
        }
        return known;
    }

    Data data_;
    std::size_t offset_ = 0;
    // Text has line ends of one kind: the other is looked for once, not for each line.
    std::size_t lineFeed_ = 0;
    std::size_t carriageReturn_ = 0;
};

} // namespace Platform
