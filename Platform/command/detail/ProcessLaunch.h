#pragma once

#include <Platform/base/FileDescriptor.h>

#include <array>
#include <cstdint>

namespace Platform::detail {

/// The process group that a child is born into.
enum class ProcessGroup : std::uint8_t {
    own,
    ownInNewSession, ///< Without a terminal, as a login shell has to be.
    parents,
};

/// What the system has to know for a launch.
struct LaunchPlan {
    const char* path;
    char* const* arguments;
    char* const* environment;
    const char* workingDirectory;   ///< Or null.
    std::array<int, 3> descriptors; ///< All of them above 2, so that none overwrites another.
    ProcessGroup group;
};

/// The step that failed.
enum class LaunchStage {
    descriptors, ///< No number that the system can hand over is free (macOS).
    start,
    workingDirectory,
    execute,
};

struct LaunchFailure {
    int number = 0; ///< Of the error; 0: none.
    LaunchStage stage = LaunchStage::start;
};

struct LaunchedProcess {
    int id = -1;
    FileDescriptor identity; ///< The process's own descriptor, where the system has that (Linux).
    /// What a watch for the end waits for.
    int subject() const noexcept { return identity ? identity.get() : id; }
};

/// Starts the process, as `ChildProcess::launch` describes it; leaves none behind when it fails.
LaunchedProcess launchProcess(const LaunchPlan& plan, LaunchFailure& failure) noexcept;

} // namespace Platform::detail
