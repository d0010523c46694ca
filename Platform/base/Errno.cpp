#include <Platform/base/Errno.h>

#include <Platform/base/Text.h>
#include <Platform/base/detail/SystemCall.h>

#include <cerrno>

namespace Platform {

Errno::Errno(int number) : std::system_error(number, std::system_category()) {}

Errno::Errno(int number, const std::string& context)
    : std::system_error(number, std::system_category(), context) {}

std::string errorDescription(const std::exception_ptr& error) noexcept {
    try {
        if (error) {
            std::rethrow_exception(error);
        }
    } catch (const std::exception& exception) {
        try {
            return singleLine(exception.what());
        } catch (const std::exception&) {
            // No memory for the copy; the text below needs none.
        }
    } catch (...) {
    }
    return "unknown error";
}

namespace detail {

void throwErrno() {
    throw Errno(errno);
}

} // namespace detail
} // namespace Platform
