#pragma once

#include <Platform/base/Export.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <string_view>
#include <utility>

namespace Platform {

/// A growable array of bytes with value semantics.
///
/// It owns one block, grown with `realloc`: nothing is zeroed, and a big block can move without
/// being copied. A moved-from object is empty. Converts to `std::span<const std::byte>` by itself,
/// being a contiguous range. Spans, views and iterators into it hold until it is next changed.
/// Every operation that grows throws `std::bad_alloc` and then leaves the object as it was.
///
/// Const operations are callable from any thread; otherwise not synchronised.
class PLATFORM_EXPORT Data {
public:
    Data() noexcept = default;
    /// Empty, for a secret: every block is overwritten before it is given back, when the buffer
    /// grows and when it goes. What is copied or moved from it is a secret too.
    static Data secret() noexcept;
    /// Copies the bytes.
    explicit Data(std::span<const std::byte> bytes) {
        if (bytes.empty()) return;
        void* const block = std::malloc(bytes.size());
        if (!block) throw std::bad_alloc();
        bytes_ = static_cast<std::byte*>(std::memcpy(block, bytes.data(), bytes.size()));
        size_ = capacity_ = bytes.size();
    }
    /// Copies the bytes of the text.
    explicit Data(std::string_view text) : Data(std::as_bytes(std::span(text))) {}

    Data(const Data& other);
    Data(Data&& other) noexcept
        : bytes_(std::exchange(other.bytes_, nullptr)), size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)), isSecret_(other.isSecret_) {}
    Data& operator=(const Data& other);
    Data& operator=(Data&& other) noexcept;
    ~Data() {
        if (isSecret_ && bytes_) wipe();
        std::free(bytes_);
    }

    std::byte* data() noexcept { return bytes_; }
    const std::byte* data() const noexcept { return bytes_; }
    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    /// Bytes that fit before the block has to grow.
    std::size_t capacity() const noexcept { return capacity_; }

    std::byte* begin() noexcept { return bytes_; }
    std::byte* end() noexcept { return bytes_ + size_; }
    const std::byte* begin() const noexcept { return bytes_; }
    const std::byte* end() const noexcept { return bytes_ + size_; }

    /// The bytes as text, undecoded.
    std::string_view view() const noexcept {
        return {reinterpret_cast<const char*>(bytes_), size_};
    }

    /// Makes room for at least `capacity` bytes in all; never shrinks.
    void reserve(std::size_t capacity);

    /// Appends a copy of the bytes, which may be a part of this object.
    void append(std::span<const std::byte> bytes);
    /// Appends a copy of the text's bytes, which may be a part of this object.
    void append(std::string_view text);

    /// Grows by `count` bytes of no particular value and returns them to be filled. What is not
    /// filled is taken back with `truncate`.
    std::span<std::byte> appendUninitialized(std::size_t count);

    /// Keeps the first `size` bytes; does nothing when there are no more. The block stays.
    void truncate(std::size_t size) noexcept;

    /// Empties; the block stays.
    void clear() noexcept { size_ = 0; }

    /// Overwrites the whole block with zeros, in a way that the optimiser cannot drop, and empties.
    /// Blocks that were outgrown earlier are not reached, unless this is a secret.
    void wipe() noexcept;

    friend bool operator==(const Data& left, const Data& right) noexcept {
        return left.view() == right.view();
    }

private:
    void reallocate(std::size_t capacity);

    std::byte* bytes_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
    bool isSecret_ = false;
};

} // namespace Platform
