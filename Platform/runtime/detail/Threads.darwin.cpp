#include <Platform/runtime/detail/Threads.h>

#include <array>
#include <cstddef>
#include <cstring>

#include <pthread.h>
#include <pthread/qos.h>

namespace Platform::detail {

void setThreadName(const char* name) noexcept {
    char cut[64] = {}; // a longer name is refused
    std::strncpy(cut, name, sizeof cut - 1);
    pthread_setname_np(cut);
}

void setThreadUrgency(int urgency) noexcept {
    constexpr std::array classes{QOS_CLASS_BACKGROUND, QOS_CLASS_UTILITY, QOS_CLASS_DEFAULT,
                                 QOS_CLASS_USER_INITIATED};
    pthread_set_qos_class_self_np(classes.at(static_cast<std::size_t>(urgency)), 0);
}

} // namespace Platform::detail
