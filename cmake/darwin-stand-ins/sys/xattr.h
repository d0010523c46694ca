/* Stand-in for the system's header, which the cross compiler lacks: only what is used of it. */
#pragma once

#include <stdint.h>
#include <sys/types.h>

#define XATTR_NOFOLLOW 0x0001
#define XATTR_CREATE 0x0002
#define XATTR_REPLACE 0x0004

#ifdef __cplusplus
extern "C" {
#endif

ssize_t getxattr(const char* path, const char* name, void* value, size_t size, uint32_t position,
                 int options);
ssize_t fgetxattr(int fd, const char* name, void* value, size_t size, uint32_t position,
                  int options);
int setxattr(const char* path, const char* name, const void* value, size_t size, uint32_t position,
             int options);
int fsetxattr(int fd, const char* name, const void* value, size_t size, uint32_t position,
              int options);
int removexattr(const char* path, const char* name, int options);
int fremovexattr(int fd, const char* name, int options);
ssize_t listxattr(const char* path, char* names, size_t size, int options);

#ifdef __cplusplus
}
#endif
