#pragma once

#include <Platform/base/Export.h>

#include <exception>

namespace Platform {

/// What an asynchronous operation throws because its task was cancelled.
class PLATFORM_EXPORT CancellationError : public std::exception {
public:
    const char* what() const noexcept override;
};

} // namespace Platform
