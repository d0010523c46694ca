#include <Platform/base/Log.h>

#include <Platform/base/Errno.h>
#include <Platform/base/Text.h>
#include <Platform/base/detail/LogSink.h>

#include <atomic>

namespace Platform {
namespace {

std::atomic<detail::LogSink> logSink{nullptr};

} // namespace

void Logger::error(std::string_view description) const noexcept {
    write(description, true);
}

void Logger::error(const std::exception_ptr& error) const noexcept {
    write(errorDescription(error), true);
}

void Logger::expectedError(const std::exception_ptr& error) const noexcept {
    write(errorDescription(error), false);
}

void Logger::write(std::string_view description, bool leavesTrace) const noexcept {
    try {
        const std::string line = singleLine(description);
        if (const detail::LogSink sink = logSink.load()) {
            sink(label_, "error: " + line);
        } else {
            detail::writeLogEntry(label_, line, leavesTrace);
        }
    } catch (...) {
        return; // out of memory: the entry is lost
    }
}

namespace detail {

LogSink setLogSink(LogSink sink) noexcept {
    return logSink.exchange(sink);
}

} // namespace detail
} // namespace Platform
