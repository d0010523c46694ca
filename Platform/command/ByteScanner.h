#pragma once

#include <Platform/base/Data.h>
#include <Platform/base/Export.h>

#include <bit>
#include <cstddef>
#include <cstdint>
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
class PLATFORM_EXPORT ByteScanner {
public:
    ByteScanner() noexcept = default;
    ByteScanner(const ByteScanner&) = default;
    ByteScanner(ByteScanner&& other) noexcept
        : data_(std::move(other.data_)), offset_(std::exchange(other.offset_, 0)),
          lineEnds_(std::exchange(other.lineEnds_, 0)), block_(other.block_),
          searched_(std::exchange(other.searched_, 0)) {}
    ByteScanner& operator=(ByteScanner other) noexcept {
        data_ = std::move(other.data_);
        offset_ = other.offset_;
        lineEnds_ = other.lineEnds_;
        block_ = other.block_;
        searched_ = other.searched_;
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
    std::optional<Data> scanToEndOfLine(bool consume) {
        if (lineEnds_ == 0 && !findLineEnds()) return std::nullopt;
        const std::string_view line = lineFound();
        const std::size_t offset = offset_;
        const std::uint64_t lineEnds = lineEnds_;
        passLine(line.size(), consume);
        try {
            return std::optional<Data>(std::in_place, line);
        } catch (...) {
            offset_ = offset;
            lineEnds_ = lineEnds;
            throw;
        }
    }

    /// Everything that is left, for a last piece without a delimiter; nothing when nothing is left.
    std::optional<Data> finish();

    /// The same without a copy: the pieces are parts of `data`, valid until the scanner is appended
    /// to, trimmed or gone.
    std::optional<std::string_view> viewTo(std::string_view pattern, bool consume) noexcept;
    std::optional<std::string_view> viewToAnyOf(std::string_view bytes, bool consume) noexcept;
    std::optional<std::string_view> viewToEndOfLine(bool consume) noexcept {
        if (lineEnds_ == 0 && !findLineEnds()) return std::nullopt;
        const std::string_view line = lineFound();
        passLine(line.size(), consume);
        return line;
    }
    std::optional<std::string_view> viewRest() noexcept;

    /// Discards the scanned bytes; returns how many they were. A big block shrinks to what is left.
    std::size_t trim();

private:
    std::string_view rest() const noexcept { return data_.view().substr(offset_); }

    /// The next `size` bytes, which a delimiter follows; npos: it is not there.
    std::optional<std::string_view> take(std::size_t size, std::size_t delimiter) noexcept;
    std::optional<Data> takeCopy(std::size_t size, std::size_t delimiter);

    /// Looks for line ends, from `searched_` on; false: there are none.
    bool findLineEnds() noexcept;
    /// What stands before the first of `lineEnds_`.
    std::string_view lineFound() const noexcept {
        const auto place = static_cast<std::size_t>(std::countr_zero(lineEnds_));
        return {data_.view().data() + offset_, block_ + place - offset_};
    }
    void passLine(std::size_t size, bool consume) noexcept {
        offset_ += size;
        if (!consume) return;
        ++offset_;
        lineEnds_ &= lineEnds_ - 1;
    }

    Data data_;
    std::size_t offset_ = 0;
    // Line ends are looked for in blocks, and remembered: a bit for each of a block's bytes that is
    // one and has not been passed. Up to `searched_` there are no others.
    std::uint64_t lineEnds_ = 0;
    std::size_t block_ = 0;
    std::size_t searched_ = 0;
};

} // namespace Platform
