#include <os/log.h>

#include <Platform/base/detail/LogSink.h>

namespace Platform::detail {

void writeLogEntry(const char* label, const std::string& description, bool) {
    // The system keeps one log object for each pair of names for good; it is never released.
    const os_log_t log = os_log_create(label, label);
    os_log_error(log, "error: %{public}s", description.c_str());
}

} // namespace Platform::detail
