#include <Platform/base/Errno.h>

#include <Platform/base/Text.h>
#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <new>

namespace Platform {

Errno::Errno(int number) : std::system_error(number, std::system_category()) {}

Errno::Errno(int number, const std::string& context)
    : std::system_error(number, std::system_category(), context) {}

std::string errorDescription(const std::exception_ptr& error) noexcept {
    constexpr const char* unknown = "unknown error"; // short enough to need no memory
    if (!error) {
        return unknown;
    }
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        try {
            return singleLine(exception.what());
        } catch (const std::bad_alloc&) {
            return unknown;
        }
    } catch (...) {
        return unknown;
    }
}

namespace detail {

void throwErrno() {
    throw Errno(errno);
}

} // namespace detail
} // namespace Platform
