#include <Platform/base/ProcessInfo.h>
#include <Platform/base/detail/UserDirectory.h>

namespace Platform::detail {

std::string systemTemporaryDirectory() {
    return ProcessInfo::environmentValue("XDG_RUNTIME_DIR").value_or("");
}

} // namespace Platform::detail
