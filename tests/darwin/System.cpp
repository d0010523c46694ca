#include "Emulation.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include <crt_externs.h>
#include <dirent.h>
#include <fcntl.h>
#include <mach-o/dyld.h>
#include <mach/mach.h>
#include <pthread.h>
#include <pthread/qos.h>
#include <sched.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

DARWIN_WRAPS(close);
DARWIN_WRAPS(confstr);

namespace {

int argumentCount;
char** arguments;
char executable[4 * PATH_MAX];

/// Threads get 512 KiB of stack; the C library takes a little of it here.
void setThreadStacks() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 512 * 1024 + 16 * 1024);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

/// Keeps the vectors, and the path that the program was started by, without resolving links.
void begin(int count, char** vector, char**) {
    argumentCount = count;
    arguments = vector;
    const char* const started = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    if (started[0] != '/' && getcwd(executable, sizeof executable / 2))
        std::strcat(executable, "/");
    std::strncat(executable, started, sizeof executable / 2 - 1);
    setThreadStacks();
}

// Before any constructor of the program, which may ask already.
[[gnu::section(".preinit_array"), gnu::used]] void (*const beginsFirst)(int, char**,
                                                                        char**) = begin;

thread_local int processDirectory = -1; ///< While the thread has a working directory of its own.

} // namespace

int pthread_setname_np(const char* name) noexcept {
    // Linux's names have 15 characters.
    char start[16] = {};
    if (std::strlen(name) > 63) return ENAMETOOLONG;
    std::memcpy(start, name, std::min(std::strlen(name), sizeof start - 1));
    return pthread_setname_np(pthread_self(), start);
}

extern "C" {

int pthread_set_qos_class_self_np(qos_class_t wanted, int relative) {
    return wanted == QOS_CLASS_UNSPECIFIED || relative > 0 || relative < -15 ? EINVAL : 0;
}

// The thread does not see a later chdir of the process: it stays apart here.
int pthread_fchdir_np(int directory) { // no header declares it
    if (directory == -1 && processDirectory == -1) {
        errno = EBADF;
        return -1;
    }
    if (processDirectory == -1) {
        if (unshare(CLONE_FS) != 0) return -1;
        processDirectory = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (processDirectory == -1) return -1;
    }
    if (directory != -1) return fchdir(directory);
    const int result = fchdir(processDirectory);
    __real_close(processDirectory);
    processDirectory = -1;
    return result;
}

// A user has a folder for temporary files, whose path has 50 characters.
size_t __wrap_confstr(int name, char* text, size_t size) noexcept {
    if (name != _CS_DARWIN_USER_TEMP_DIR) return __real_confstr(name, text, size);
    char path[64];
    const int length =
        std::snprintf(path, sizeof path, "/tmp/var-folders-%010u/zz/zyxvpxvq6csfxvn_/T/", getuid());
    for (char* slash = path + 1; (slash = std::strchr(slash + 1, '/'));) {
        *slash = '\0';
        mkdir(path, 0700);
        *slash = '/';
    }
    if (size > 0) std::snprintf(text, size, "%s", path);
    return static_cast<size_t>(length) + 1;
}

mach_port_t mach_task_self() {
    return 1;
}

kern_return_t task_threads(mach_port_t, thread_act_array_t* threads,
                           mach_msg_type_number_t* count) {
    DIR* const folder = opendir("/proc/self/task");
    if (!folder) return KERN_FAILURE;
    std::vector<thread_act_t> found;
    while (const dirent* const entry = readdir(folder))
        if (entry->d_name[0] != '.')
            found.push_back(static_cast<thread_act_t>(std::atoi(entry->d_name)));
    closedir(folder);
    *count = static_cast<mach_msg_type_number_t>(found.size());
    *threads = static_cast<thread_act_array_t>(std::malloc(found.size() * sizeof(thread_act_t)));
    std::copy(found.begin(), found.end(), *threads);
    return KERN_SUCCESS;
}

kern_return_t mach_port_deallocate(mach_port_t, mach_port_t) {
    return KERN_SUCCESS;
}

kern_return_t vm_deallocate(mach_port_t, vm_address_t address, vm_size_t) {
    std::free(reinterpret_cast<void*>(address));
    return KERN_SUCCESS;
}

int* _NSGetArgc() {
    return &argumentCount;
}

char*** _NSGetArgv() {
    return &arguments;
}

char*** _NSGetEnviron() {
    return &environ;
}

int _NSGetExecutablePath(char* path, uint32_t* size) {
    const auto needed = static_cast<uint32_t>(std::strlen(executable) + 1);
    if (*size >= needed) std::memcpy(path, executable, needed);
    return std::exchange(*size, needed) >= needed ? 0 : -1;
}
}
