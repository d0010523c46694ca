/* Included before everything else: macOS's limits, and the numbers that its headers define and
   Linux's lack. */
#pragma once

#include <fcntl.h>
#include <limits.h>
#include <linux/limits.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#undef PIPE_BUF
#define PIPE_BUF 512
#undef PATH_MAX
#define PATH_MAX 1024
#undef SOMAXCONN
#define SOMAXCONN 128

#define F_SETNOSIGPIPE 73
#define SO_NOSIGPIPE 0x1022
#define O_SYMLINK (O_PATH | O_NOFOLLOW)
#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000
#define _CS_DARWIN_USER_TEMP_DIR 65537

#ifdef __cplusplus
extern "C" {
#endif
int getpeereid(int socket, uid_t* user, gid_t* group);
#ifdef __cplusplus
}
#endif
