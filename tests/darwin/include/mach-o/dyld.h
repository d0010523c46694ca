#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C"
#endif
    int
    _NSGetExecutablePath(char* path, uint32_t* size);
