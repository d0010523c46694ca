#include <Platform/command/detail/BulkStream.h>

#include <cstdint>

#include <fcntl.h>
#include <linux/mman.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Platform::detail {

void widenPipe(const FileDescriptor& end) noexcept {
    ::fcntl(end.get(), F_SETPIPE_SZ, static_cast<int>(widePipe));
}

void backWithMemory(std::span<std::byte> room) noexcept {
    static const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const auto start = reinterpret_cast<std::uintptr_t>(room.data());
    const std::uintptr_t first = (start + page - 1) / page * page; // the one before is in use
    const std::uintptr_t end = (start + room.size()) / page * page;
    if (first >= end) return;
    // A kernel that does not know how does it later.
    ::madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_WRITE);
}

} // namespace Platform::detail
