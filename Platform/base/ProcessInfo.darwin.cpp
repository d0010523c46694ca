#include <Platform/base/Errno.h>
#include <Platform/base/detail/ProcessVectors.h>

#include <cerrno>
#include <cstdint>

#include <crt_externs.h>
#include <mach-o/dyld.h>

namespace Platform::detail {

std::vector<std::string> processArguments() {
    char** const vector = *_NSGetArgv();
    std::vector<std::string> result;
    for (int index = 0; index < *_NSGetArgc() && vector[index]; ++index) {
        result.emplace_back(vector[index]);
    }
    return result;
}

std::string processPath() {
    std::uint32_t size = 0;
    ::_NSGetExecutablePath(nullptr, &size);
    std::string path(size, '\0');
    if (::_NSGetExecutablePath(path.data(), &size) != 0) throw Errno(ENAMETOOLONG);
    path.resize(path.find('\0'));
    return path;
}

char** processEnvironment() noexcept {
    return *_NSGetEnviron();
}

} // namespace Platform::detail
