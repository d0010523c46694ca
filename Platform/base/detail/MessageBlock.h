#pragma once

#include <Platform/base/Export.h>

#include <cstddef>

namespace Platform::detail {

/// Memory for small objects that one thread makes and another destroys, again and again. (`malloc`
/// makes the two wait for each other.) Blocks are cut from chunks, each thread from its own; a
/// chunk is given back when all its blocks are, so one block that stays keeps its few neighbours'
/// memory.
///
/// Throws std::bad_alloc. From any thread; does not block.
PLATFORM_EXPORT void* allocateMessageBlock(std::size_t size);
PLATFORM_EXPORT void freeMessageBlock(void* block) noexcept;

} // namespace Platform::detail
