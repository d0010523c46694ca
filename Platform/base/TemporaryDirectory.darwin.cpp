#include <Platform/base/detail/UserDirectory.h>

#include <climits>

#include <unistd.h>

namespace Platform::detail {

std::string systemTemporaryDirectory() {
    char path[PATH_MAX];
    const std::size_t size = ::confstr(_CS_DARWIN_USER_TEMP_DIR, path, sizeof path);
    return size > 0 && size <= sizeof path ? std::string(path) : std::string();
}

} // namespace Platform::detail
