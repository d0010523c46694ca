#include <Platform/base/detail/MessageBlock.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

namespace Platform::detail {

namespace {

constexpr std::size_t chunkSize = 65536;

/// A chunk's blocks lie behind it, each behind a pointer to the chunk.
struct Chunk {
    explicit Chunk(std::size_t bytes) noexcept : size(bytes) {}

    void release(std::uint32_t count) noexcept {
        if (references.fetch_sub(count, std::memory_order_acq_rel) == count) {
            ::operator delete(this, size);
        }
    }

    const std::size_t size;
    /// One for each block in use; while blocks are being cut, a great many for those to come.
    std::atomic<std::uint32_t> references{0};
};

struct alignas(std::max_align_t) Header {
    Chunk* chunk;
};

constexpr std::uint32_t blocksToCome = 1u << 31;

/// The chunk that this thread cuts blocks from.
class Cutter {
public:
    Cutter() = default;
    Cutter(const Cutter&) = delete;
    Cutter& operator=(const Cutter&) = delete;
    ~Cutter() { finishChunk(); }

    void* cut(std::size_t size) {
        if (size > left_) startChunk(size);
        auto* const header = new (next_) Header{chunk_};
        next_ += size;
        left_ -= size;
        ++cut_;
        return header + 1;
    }

private:
    void startChunk(std::size_t size) {
        const std::size_t first =
            (sizeof(Chunk) + alignof(Header) - 1) / alignof(Header) * alignof(Header);
        const std::size_t whole = std::max(chunkSize, first + size);
        void* const memory = ::operator new(whole);
        finishChunk();
        chunk_ = new (memory) Chunk(whole);
        chunk_->references.store(blocksToCome, std::memory_order_relaxed);
        next_ = static_cast<std::byte*>(memory) + first;
        left_ = whole - first;
    }
    void finishChunk() noexcept {
        if (chunk_) std::exchange(chunk_, nullptr)->release(blocksToCome - std::exchange(cut_, 0));
        left_ = 0;
    }

    Chunk* chunk_ = nullptr;
    std::byte* next_ = nullptr;
    std::size_t left_ = 0;
    std::uint32_t cut_ = 0;
};

thread_local Cutter cutter;

} // namespace

void* allocateMessageBlock(std::size_t size) {
    constexpr std::size_t unit = sizeof(Header);
    return cutter.cut((size + unit - 1) / unit * unit + unit);
}

void freeMessageBlock(void* block) noexcept {
    (static_cast<Header*>(block) - 1)->chunk->release(1);
}

} // namespace Platform::detail
