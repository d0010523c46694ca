#pragma once

#include <functional>

#include <sys/types.h>

namespace Bench {

/// The most memory that a process has had at a time, in bytes; looked at once it waits for
/// something.
double peakMemory(pid_t process);

/// How much more memory this process has at a time during `work` than it had before (macOS: than it
/// ever had before).
double peakMemoryDuring(const std::function<void()>& work);

/// Bytes that this process has from its allocator at this moment, the allocator's own headers
/// included.
double heapInUse();

} // namespace Bench
