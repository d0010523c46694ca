#pragma once

#include <functional>
#include <thread>

namespace Platform::detail {

/// Starts a thread of the library's own. It takes no signals, which belong to the host's threads
/// (those that a thread's own fault raises excepted). Throws std::system_error when the system has
/// no thread to give.
std::thread startThread(std::function<void()> body);

/// Names the calling thread for debuggers and process lists; cut at what the system allows.
void setThreadName(const char* name) noexcept;

/// Has the system serve the calling thread as tasks of this urgency (see `urgencyOf`) deserve. Does
/// nothing where threads have no quality of service.
void setThreadUrgency(int urgency) noexcept;

} // namespace Platform::detail
