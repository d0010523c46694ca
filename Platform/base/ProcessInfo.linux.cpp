#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/ProcessVectors.h>
#include <Platform/base/detail/SystemCall.h>

#include <algorithm>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace Platform::detail {
namespace {

int argumentCount = 0;
char** argumentVector = nullptr;

/// The C library hands these to the functions that run before `main`. One that does not leaves
/// other values here, so they are believed only when they fit together the way the kernel lays
/// the vectors out, which is told without following a pointer.
void recordArguments(int count, char** arguments, char** environment) {
    if (environment && environment == environ && arguments + count + 1 == environment) {
        argumentCount = count;
        argumentVector = arguments;
    }
}

// Before the initialisers of everybody else, which may already ask.
[[gnu::used, gnu::section(".init_array.00101")]] void (*recordBeforeMain)(int, char**,
                                                                          char**) = recordArguments;

std::vector<std::string> argumentsFromKernel() {
    const FileDescriptor file(systemCall(
        SystemCall::open, [] { return ::open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC); }));
    const Data list = file.readToEnd();
    std::vector<std::string> result;
    for (std::string_view rest = list.view(); !rest.empty();) {
        const std::string_view argument = rest.substr(0, rest.find('\0'));
        result.emplace_back(argument);
        rest.remove_prefix(std::min(argument.size() + 1, rest.size()));
    }
    return result;
}

} // namespace

std::vector<std::string> processArguments() {
    if (!argumentVector) {
        return argumentsFromKernel();
    }
    std::vector<std::string> result;
    for (int index = 0; index < argumentCount && argumentVector[index]; ++index) {
        result.emplace_back(argumentVector[index]);
    }
    return result;
}

std::string processPath() {
    std::string path(256, '\0');
    for (;;) {
        const auto size = systemCall(SystemCall::readlink, [&] {
            return ::readlink("/proc/self/exe", path.data(), path.size());
        });
        if (static_cast<std::size_t>(size) < path.size()) {
            path.resize(static_cast<std::size_t>(size));
            return path;
        }
        path.resize(2 * path.size());
    }
}

char** processEnvironment() noexcept {
    return environ;
}

} // namespace Platform::detail
