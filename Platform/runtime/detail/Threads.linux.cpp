#include <Platform/runtime/detail/Threads.h>

#include <cstring>

#include <pthread.h>

namespace Platform::detail {

void setThreadName(const char* name) noexcept {
    char cut[16] = {};
    std::strncpy(cut, name, sizeof cut - 1);
    pthread_setname_np(pthread_self(), cut);
}

void setThreadUrgency(int) noexcept {}

} // namespace Platform::detail
