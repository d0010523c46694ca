/* The calls with a position and options, beside Linux's own, which tests use. */
#pragma once

#include <stdint.h>
#include_next <sys/xattr.h>

#undef XATTR_CREATE
#undef XATTR_REPLACE
#define XATTR_NOFOLLOW 0x0001
#define XATTR_CREATE 0x0002
#define XATTR_REPLACE 0x0004
#define XATTR_NOSECURITY 0x0008
#define XATTR_NODEFAULT 0x0010

#ifdef __cplusplus
ssize_t getxattr(const char* path, const char* name, void* value, size_t size, uint32_t position,
                 int options);
ssize_t fgetxattr(int file, const char* name, void* value, size_t size, uint32_t position,
                  int options);
int setxattr(const char* path, const char* name, const void* value, size_t size, uint32_t position,
             int options);
int removexattr(const char* path, const char* name, int options);
int fremovexattr(int file, const char* name, int options);
#endif
