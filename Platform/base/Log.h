#pragma once

#include <Platform/base/Export.h>

#include <exception>
#include <string_view>

namespace Platform {

/// Writes failures to the system's log under one label.
///
/// macOS: the unified log, subsystem and category both the label. Linux: the system logger, the
/// label as identifier; where none listens or takes the entry, one line "label: error: …" on
/// standard error, so that a failure in a container leaves a trace.
///
/// Keeps no process-wide state and nothing open. Callable from any thread. Waits for no logger,
/// but standard error blocks as it is set up to. An entry for which there is no memory is lost.
class PLATFORM_EXPORT Logger {
public:
    /// `label` is kept by pointer and outlives the logger: a literal.
    explicit constexpr Logger(const char* label) noexcept : label_(label) {}

    /// One entry at error level: "error: " and the description as a single line (see `singleLine`).
    void error(std::string_view description) const noexcept;

    /// The same with the exception's description (see `errorDescription`).
    void error(const std::exception_ptr& error) const noexcept;

    /// The same for an end that was asked for: where no system logger listens, it goes nowhere.
    void expectedError(const std::exception_ptr& error) const noexcept;

private:
    void write(std::string_view description, bool leavesTrace) const noexcept;

    const char* label_;
};

} // namespace Platform
