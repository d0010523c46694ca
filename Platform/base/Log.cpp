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
    try {
        const std::string line = singleLine(description);
        if (const detail::LogSink sink = logSink.load()) {
            sink(label_, "error: " + line);
        } else {
            detail::writeLogEntry(label_, line);
        }
    } catch (...) {
        return; // out of memory: the entry is lost
    }
}

void Logger::error(const std::exception_ptr& error) const noexcept {
    this->error(std::string_view(errorDescription(error)));
}

namespace detail {

LogSink setLogSink(LogSink sink) noexcept {
    return logSink.exchange(sink);
}

} // namespace detail
} // namespace Platform
