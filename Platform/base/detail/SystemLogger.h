#pragma once

#include <string_view>

namespace Platform::detail {

/// Hands one entry at error level to the system logger that listens on the Unix-domain socket at
/// `socketPath`. Returns false when none listens there or takes it; never waits for one. Linux
/// only. Throws `std::bad_alloc`.
bool sendToSystemLogger(const char* socketPath, std::string_view label, std::string_view text);

} // namespace Platform::detail
