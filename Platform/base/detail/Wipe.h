#pragma once

#include <Platform/base/Export.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <optional>
#include <string>

namespace Platform::detail {

/// Overwrites memory with zeros, in a way that the optimiser cannot drop.
inline void wipe(void* memory, std::size_t size) noexcept {
    if (!memory) return;
    std::memset(memory, 0, size);
    // The memory may be looked at here, says this empty instruction, so the zeros are needed.
    asm volatile("" : : "r"(memory) : "memory");
}

/// Overwrites a text, wherever it keeps its bytes, at the end of the scope.
class WipedAtEnd {
public:
    explicit WipedAtEnd(std::string& text) noexcept : text_(text) {}
    WipedAtEnd(const WipedAtEnd&) = delete;
    WipedAtEnd& operator=(const WipedAtEnd&) = delete;
    ~WipedAtEnd() {
        wipe(text_.data(), text_.capacity());
        text_.clear();
    }

private:
    std::string& text_;
};

/// Whether values of this type may be secrets, so that the memory of tasks and continuations that
/// give them is wiped before it is freed: short texts leave their bytes where they were moved from.
template <class T>
inline constexpr bool mayBeSecret = false;
template <>
inline constexpr bool mayBeSecret<std::string> = true;
template <>
inline constexpr bool mayBeSecret<std::optional<std::string>> = true;

/// Base of what holds such values: its memory, a whole coroutine frame where it is a promise, is
/// wiped before it is freed.
template <bool isSecret>
class WipedWhenFreed {};

template <>
class WipedWhenFreed<true> {
public:
    // Not inline: g++ takes the one for mismatched with the other when it inlines one only.
    PLATFORM_EXPORT static void* operator new(std::size_t size);
    PLATFORM_EXPORT static void operator delete(void* memory, std::size_t size) noexcept;
};

} // namespace Platform::detail
