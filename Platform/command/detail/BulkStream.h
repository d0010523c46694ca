#pragma once

#include <Platform/base/FileDescriptor.h>

#include <cstddef>
#include <span>

// What moves a stream of very many bytes faster, on a system that has it; nothing otherwise.

namespace Platform::detail {

/// What a widened pipe holds, and so what a read of one may bring.
constexpr std::size_t widePipe = 262144;

/// Lets a pipe hold more, if its user may have that: the system grants each user so much memory for
/// pipes, so ask for it only where a pipe was found full.
void widenPipe(const FileDescriptor& end) noexcept;

/// Backs memory that is about to be filled at once, rather than page by page.
void backWithMemory(std::span<std::byte> room) noexcept;

} // namespace Platform::detail
