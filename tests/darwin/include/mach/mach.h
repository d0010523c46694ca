#pragma once

#include <stdint.h>

#define KERN_SUCCESS 0
#define KERN_FAILURE 5

typedef int kern_return_t;
typedef uint32_t mach_msg_type_number_t;
typedef uint32_t mach_port_t;
typedef mach_port_t thread_act_t;
typedef thread_act_t* thread_act_array_t;
typedef uintptr_t vm_address_t;
typedef uintptr_t vm_size_t;

#ifdef __cplusplus
extern "C" {
#endif
mach_port_t mach_task_self(void);
kern_return_t task_threads(mach_port_t task, thread_act_array_t* threads,
                           mach_msg_type_number_t* count);
kern_return_t mach_port_deallocate(mach_port_t task, mach_port_t name);
kern_return_t vm_deallocate(mach_port_t task, vm_address_t address, vm_size_t size);
#ifdef __cplusplus
}
#endif
