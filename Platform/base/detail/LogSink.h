#pragma once

#include <string>
#include <string_view>

namespace Platform::detail {

/// Takes a logger's entries in place of the system's log; for tests. `text` is the whole entry,
/// "error: …", and lives for the call. Called on the thread that logs; must not throw.
using LogSink = void (*)(const char* label, std::string_view text);

/// Diverts the entries of every logger from now on; null gives them back to the system's log.
/// Returns the sink that was set before. Callable from any thread.
LogSink setLogSink(LogSink sink) noexcept;

/// Writes the entry "error: " and `description`, a single line, to the system's log or to what
/// stands in for it; to the log alone unless it `leavesTrace`. One implementation a system. Throws
/// `std::bad_alloc`.
void writeLogEntry(const char* label, const std::string& description, bool leavesTrace);

} // namespace Platform::detail
