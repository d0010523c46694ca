#include <Platform/system/Mach.h>

#include <mach/mach.h>

namespace Platform::Mach {

std::optional<std::int64_t> numberOfActiveThreads() {
    thread_act_array_t threads = nullptr;
    mach_msg_type_number_t count = 0;
    if (task_threads(mach_task_self(), &threads, &count) != KERN_SUCCESS) return std::nullopt;
    if (!threads) __builtin_trap();
    // The list is ours, and so is a right to each of its threads.
    for (mach_msg_type_number_t index = 0; index < count; ++index)
        mach_port_deallocate(mach_task_self(), threads[index]);
    vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(threads),
                  vm_size_t{count} * sizeof(thread_act_t));
    return count;
}

} // namespace Platform::Mach
