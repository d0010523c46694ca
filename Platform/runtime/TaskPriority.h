#pragma once

#include <cstdint>

namespace Platform {

/// How urgent a task is. Among tasks that are ready to run, an executor serves a more urgent one
/// first; a running task is never interrupted. The raw values are the usual ones of the platform's
/// task runtime, several names sharing one.
enum class TaskPriority : std::uint8_t {
    unspecified = 0, ///< No wish: served like `medium`.
    background = 9,
    utility = 17,
    low = utility,
    medium = 21,
    userInitiated = 25,
    high = userInitiated,
};

} // namespace Platform
