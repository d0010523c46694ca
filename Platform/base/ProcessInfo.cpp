#include <Platform/base/ProcessInfo.h>

#include <Platform/base/detail/ProcessVectors.h>

namespace Platform::ProcessInfo {
namespace {

/// Calls `visit(name, value)` for each entry until it returns false.
template <class Visit>
void visitEnvironment(Visit visit) {
    for (char** entry = detail::processEnvironment(); entry && *entry; ++entry) {
        const std::string_view text = *entry;
        const std::size_t separator = text.find('=');
        if (separator != text.npos &&
            !visit(text.substr(0, separator), text.substr(separator + 1))) {
            return;
        }
    }
}

} // namespace

std::vector<std::string> arguments() {
    return detail::processArguments();
}

std::string executablePath() {
    return detail::processPath();
}

std::map<std::string, std::string> environment() {
    std::map<std::string, std::string> result;
    visitEnvironment([&](std::string_view name, std::string_view value) {
        result.emplace(name, value);
        return true;
    });
    return result;
}

std::optional<std::string> environmentValue(std::string_view name) {
    std::optional<std::string> result;
    visitEnvironment([&](std::string_view entryName, std::string_view value) {
        if (entryName == name) {
            result.emplace(value);
        }
        return !result;
    });
    return result;
}

} // namespace Platform::ProcessInfo
