#pragma once

#include <exception>

namespace Platform {

/// What an asynchronous operation throws because its task was cancelled.
class CancellationError : public std::exception {
public:
    const char* what() const noexcept override;
};

} // namespace Platform
