/* Stand-in for the system's header, which the cross compiler lacks: only what is used of it. */
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct os_log_s* os_log_t;
typedef uint8_t os_log_type_t;
enum {
    OS_LOG_TYPE_DEFAULT = 0x00,
    OS_LOG_TYPE_INFO = 0x01,
    OS_LOG_TYPE_DEBUG = 0x02,
    OS_LOG_TYPE_ERROR = 0x10,
    OS_LOG_TYPE_FAULT = 0x11,
};

struct mach_header;
extern struct mach_header __dso_handle;
extern struct os_log_s _os_log_default;
#define OS_LOG_DEFAULT (&_os_log_default)

os_log_t os_log_create(const char* subsystem, const char* category);
bool os_log_type_enabled(os_log_t log, os_log_type_t type);
void _os_log_impl(void* dso, os_log_t log, os_log_type_t type, const char* format, uint8_t* buffer,
                  uint32_t size);

#ifdef __cplusplus
}
#endif

#define os_log_with_type(log, type, format, ...)                                                   \
    __extension__({                                                                                \
        os_log_t log_ = (log);                                                                     \
        if (os_log_type_enabled(log_, (type))) {                                                   \
            static const char format_[] = format;                                                  \
            uint8_t buffer_[__builtin_os_log_format_buffer_size(format, ##__VA_ARGS__)];           \
            _os_log_impl(&__dso_handle, log_, (type), format_,                                     \
                         (uint8_t*)__builtin_os_log_format(buffer_, format, ##__VA_ARGS__),        \
                         (uint32_t)sizeof buffer_);                                                \
        }                                                                                          \
    })
#define os_log(log, format, ...) os_log_with_type(log, OS_LOG_TYPE_DEFAULT, format, ##__VA_ARGS__)
#define os_log_error(log, format, ...)                                                             \
    os_log_with_type(log, OS_LOG_TYPE_ERROR, format, ##__VA_ARGS__)
