#include <Platform/runtime/detail/Threads.h>

#include <array>
#include <cstddef>

#include <pthread.h>
#include <pthread/qos.h>

namespace Platform::detail {

void setThreadName(const char* name) noexcept {
    pthread_setname_np(name);
}

void setThreadUrgency(int urgency) noexcept {
    constexpr std::array classes{QOS_CLASS_BACKGROUND, QOS_CLASS_UTILITY, QOS_CLASS_DEFAULT,
                                 QOS_CLASS_USER_INITIATED};
    pthread_set_qos_class_self_np(classes.at(static_cast<std::size_t>(urgency)), 0);
}

} // namespace Platform::detail
