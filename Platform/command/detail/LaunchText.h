#pragma once

#include <Platform/command/detail/ChildProcess.h>
#include <Platform/command/detail/ProcessLaunch.h>

#include <string>
#include <vector>

namespace Platform::detail {

/// The null-terminated lists that the system wants, with what they point to. The launch outlives
/// them.
class LaunchVectors {
public:
    /// Throws `Errno`: `EINVAL` for what cannot be said in them (see `ChildProcess::launch`).
    explicit LaunchVectors(const Launch& launch);

    char* const* arguments() const noexcept { return arguments_.data(); }
    char* const* environment() const noexcept { return environment_; }

private:
    std::vector<std::string> variables_;
    std::vector<char*> arguments_;
    std::vector<char*> variablePointers_;
    char* const* environment_;
};

/// Says which file a failure is about, and which part that file had in the launch. Never an
/// argument or a variable: those may be secrets.
std::string describeFailure(const Launch& launch, const LaunchFailure& failure);

} // namespace Platform::detail
