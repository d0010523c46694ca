#pragma once

#include <Platform/base/Export.h>

#include <exception>
#include <string>
#include <system_error>

namespace Platform {

/// A failed system call, or a condition of our own that borrows a system error number.
///
/// The code is in the system category, so it compares equal to the matching `std::errc`.
class PLATFORM_EXPORT Errno : public std::system_error {
public:
    /// `what()` is the system's one-line description of `number` alone ("No such file or
    /// directory").
    explicit Errno(int number);

    /// `what()` is "context: description". The context is taken as it is; `errorDescription` makes
    /// a single line of it.
    Errno(int number, const std::string& context);

    /// The system's own number, never mapped to another system's.
    int number() const noexcept { return code().value(); }
};

/// One line of text about any exception: `what()` of a `std::exception`, else "unknown error".
/// Control characters and line ends become spaces (see `singleLine`).
///
/// A null pointer is an unknown error. Callable from any thread.
PLATFORM_EXPORT std::string errorDescription(const std::exception_ptr& error) noexcept;

} // namespace Platform
