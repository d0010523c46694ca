#include <Platform/command/Which.h>

#include <Platform/base/ProcessInfo.h>

#include <algorithm>
#include <string_view>

#include <unistd.h>

namespace Platform {

std::vector<std::filesystem::path> which(const std::string& name,
                                         const std::optional<std::string>& path) {
    std::vector<std::filesystem::path> found;
    const std::string list =
        path ? *path : ProcessInfo::environmentValue("PATH").value_or(std::string());
    for (std::string_view rest = list; !rest.empty();) {
        const std::string_view directory = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(directory.size() + 1, rest.size()));
        if (directory.empty()) continue;
        const std::string candidate = std::string(directory).append(1, '/').append(name);
        // The system would look at what stands before a NUL only.
        if (candidate.find('\0') != candidate.npos) continue;
        if (::access(candidate.c_str(), X_OK) == 0) found.emplace_back(candidate);
    }
    return found;
}

} // namespace Platform
