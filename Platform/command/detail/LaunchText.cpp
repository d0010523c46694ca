#include <Platform/command/detail/LaunchText.h>

#include <Platform/base/Errno.h>
#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/ProcessVectors.h>
#include <Platform/base/detail/SystemCall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace Platform::detail {

namespace {

void refuseNul(const Launch& launch, std::string_view text, const char* what) {
    if (text.find('\0') == text.npos) return;
    throw Errno(EINVAL, launch.path.substr(0, launch.path.find('\0')) + " (a NUL in " + what + ")");
}

void append(std::vector<char*>& list, const std::string& text) {
    list.push_back(const_cast<char*>(text.c_str())); // the system does not write to it
}

bool canRead(const std::string& path, int mode) noexcept {
    return ::access(path.c_str(), mode) == 0;
}

/// The program that a script names in its first line; nothing when it is no script, or unreadable.
std::optional<std::string> interpreterOf(const std::string& path) {
    const FileDescriptor file(trySystemCall(SystemCall::open, [&] {
        return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); // not for ever on a pipe
    }));
    std::array<char, 256> start;
    const auto size = trySystemCall(SystemCall::read, start.size(), [&](std::size_t most) {
        return ::read(file.get(), start.data(), most);
    });
    std::string_view line(start.data(),
                          static_cast<std::size_t>(std::max<std::ptrdiff_t>(size, 0)));
    if (!line.starts_with("#!")) return std::nullopt;
    line.remove_prefix(2);
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    return std::string(line.substr(0, line.find_first_of(" \t\r\n")));
}

} // namespace

LaunchVectors::LaunchVectors(const Launch& launch) : environment_(processEnvironment()) {
    refuseNul(launch, launch.path, "the path");
    arguments_.reserve(launch.arguments.size() + 2);
    append(arguments_, launch.path);
    for (const std::string& argument : launch.arguments) {
        refuseNul(launch, argument, "an argument");
        append(arguments_, argument);
    }
    arguments_.push_back(nullptr);
    if (launch.workingDirectory) {
        refuseNul(launch, *launch.workingDirectory, "the working directory");
    }
    if (!launch.environment) return;
    variables_.reserve(launch.environment->size());
    for (const auto& [name, value] : *launch.environment) {
        refuseNul(launch, name, "a variable's name");
        refuseNul(launch, value, "a variable");
        if (name.empty() || name.find('=') != name.npos) {
            throw Errno(EINVAL, launch.path + " (a variable's name is empty or has a '=')");
        }
        std::string& entry = variables_.emplace_back();
        entry.reserve(name.size() + 1 + value.size());
        entry.append(name).append(1, '=').append(value);
    }
    variablePointers_.reserve(variables_.size() + 1);
    for (const std::string& variable : variables_) append(variablePointers_, variable);
    variablePointers_.push_back(nullptr);
    environment_ = variablePointers_.data();
}

std::string describeFailure(const Launch& launch, const LaunchFailure& failure) {
    const std::string& path = launch.path;
    if (failure.stage == LaunchStage::start) return path;
    if (failure.stage == LaunchStage::descriptors) {
        return path + " (all descriptors below 10240 are in use)";
    }
    if (launch.workingDirectory && (failure.stage == LaunchStage::workingDirectory ||
                                    !canRead(*launch.workingDirectory + "/.", X_OK))) {
        return *launch.workingDirectory + " (the working directory for " + path + ")";
    }
    if (failure.number == E2BIG) return path + " (arguments and environment together)";
    // A program that is there is missing or refused only as far as its interpreter is.
    if (path.starts_with('/') && canRead(path, X_OK)) {
        const std::optional<std::string> interpreter = interpreterOf(path);
        if (interpreter && !canRead(*interpreter, X_OK)) {
            return *interpreter + " (the interpreter of " + path + ")";
        }
        if (failure.number == ENOENT) return path + " (its interpreter)";
    }
    return path;
}

} // namespace Platform::detail
