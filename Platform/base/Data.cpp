#include <Platform/base/Data.h>

#include <Platform/base/detail/Wipe.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <utility>

namespace Platform {
namespace {

constexpr std::size_t smallestGrowth = 64;

} // namespace

Data Data::secret() noexcept {
    Data data;
    data.isSecret_ = true;
    return data;
}

Data::Data(const Data& other) : isSecret_(other.isSecret_) {
    append(other);
}

Data& Data::operator=(const Data& other) {
    if (this != &other) {
        *this = Data(other);
    }
    return *this;
}

Data& Data::operator=(Data&& other) noexcept {
    Data taken(std::move(other));
    std::swap(bytes_, taken.bytes_);
    std::swap(size_, taken.size_);
    std::swap(capacity_, taken.capacity_);
    std::swap(isSecret_, taken.isSecret_);
    return *this;
}

void Data::reserve(std::size_t capacity) {
    if (capacity > capacity_) {
        reallocate(capacity);
    }
}

void Data::append(std::span<const std::byte> bytes) {
    // A part of this object moves along when the block does: remember where it is, not its address.
    const bool own =
        !std::less<>()(bytes.data(), bytes_) && std::less<>()(bytes.data(), bytes_ + size_);
    const std::size_t offset = own ? static_cast<std::size_t>(bytes.data() - bytes_) : 0;
    if (bytes.empty()) {
        return;
    }
    const std::span<std::byte> target = appendUninitialized(bytes.size());
    std::memcpy(target.data(), own ? bytes_ + offset : bytes.data(), bytes.size());
}

void Data::append(std::string_view text) {
    append(std::as_bytes(std::span(text)));
}

std::span<std::byte> Data::appendUninitialized(std::size_t count) {
    if (count > capacity_ - size_) {
        if (count > std::numeric_limits<std::size_t>::max() / 2 - size_) {
            throw std::bad_alloc();
        }
        const std::size_t growth = size_ == 0 ? 0 : std::max(2 * capacity_, smallestGrowth);
        reallocate(std::max(size_ + count, growth));
    }
    size_ += count;
    return {bytes_ + size_ - count, count};
}

void Data::truncate(std::size_t size) noexcept {
    size_ = std::min(size_, size);
}

void Data::wipe() noexcept {
    detail::wipe(bytes_, capacity_);
    clear();
}

void Data::reallocate(std::size_t capacity) {
    void* const block = isSecret_ ? std::malloc(capacity) : std::realloc(bytes_, capacity);
    if (!block) {
        throw std::bad_alloc();
    }
    if (isSecret_ && bytes_) {
        std::memcpy(block, bytes_, size_);
        detail::wipe(bytes_, capacity_);
        std::free(bytes_);
    }
    bytes_ = static_cast<std::byte*>(block);
    capacity_ = capacity;
}

} // namespace Platform
