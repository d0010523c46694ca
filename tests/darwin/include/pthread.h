#pragma once

#include_next <pthread.h>

#ifdef __cplusplus
int pthread_setname_np(const char* name) noexcept;
#endif
