#include <Platform/runtime/detail/Threads.h>

#include <pthread.h>

namespace Platform::detail {

void setThreadName(const char* name) noexcept {
    pthread_setname_np(name);
}

} // namespace Platform::detail
