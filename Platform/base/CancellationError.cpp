#include <Platform/base/CancellationError.h>

namespace Platform {

const char* CancellationError::what() const noexcept {
    return "The operation was cancelled";
}

} // namespace Platform
