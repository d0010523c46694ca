#pragma once

#include <Platform/base/Export.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>

namespace Platform {

/// Why an operation on an `AsyncChannel` failed; the same type for channels of all elements.
class PLATFORM_EXPORT ChannelError : public std::exception {
public:
    enum Case : std::uint8_t {
        channelClosed, ///< The channel is closed, or was while the sender waited.
    };

    ChannelError(Case error) noexcept : case_(error) {}

    Case error() const noexcept { return case_; }
    const char* what() const noexcept override { return "The channel is closed"; }

    friend bool operator==(const ChannelError& left, const ChannelError& right) noexcept {
        return left.case_ == right.case_;
    }

private:
    Case case_;
};

} // namespace Platform

template <>
struct std::hash<Platform::ChannelError> {
    std::size_t operator()(const Platform::ChannelError& error) const noexcept {
        return static_cast<std::size_t>(error.error());
    }
};
