#include <Platform/base/detail/ProcessVectors.h>

#include <crt_externs.h>

namespace Platform::detail {

std::vector<std::string> processArguments() {
    char** const vector = *_NSGetArgv();
    std::vector<std::string> result;
    for (int index = 0; index < *_NSGetArgc() && vector[index]; ++index) {
        result.emplace_back(vector[index]);
    }
    return result;
}

char** processEnvironment() noexcept {
    return *_NSGetEnviron();
}

} // namespace Platform::detail
