#include "Emulation.h"

#include <cctype>
#include <csignal>

#include <dirent.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

DARWIN_WRAPS(kill);
DARWIN_WRAPS(posix_spawn);
DARWIN_WRAPS(posix_spawnp);
DARWIN_WRAPS(posix_spawn_file_actions_adddup2);
DARWIN_WRAPS(posix_spawnattr_setflags);
DARWIN_WRAPS(waitid);

namespace DarwinEmulation {
namespace {

/// Targets of a launch are remembered in room of the actions that the C library leaves unused.
constexpr int targetLimit = 512;

void addTarget(posix_spawn_file_actions_t& actions, int number) {
    int& bits = actions.__pad[number / 32];
    bits = static_cast<int>(static_cast<unsigned>(bits) | 1U << number % 32);
}

bool isTarget(const posix_spawn_file_actions_t& actions, int number) {
    return (static_cast<unsigned>(actions.__pad[number / 32]) >> number % 32 & 1U) != 0;
}

/// Makes the child close what is no target of an action.
int keepOnlyTargets(posix_spawn_file_actions_t& actions) {
    int end = targetLimit;
    while (end > 0 && !isTarget(actions, end - 1)) --end;
    for (int number = 0; number < end; ++number) {
        if (isTarget(actions, number)) continue;
        if (const int error = posix_spawn_file_actions_addclose(&actions, number)) return error;
    }
    return posix_spawn_file_actions_addclosefrom_np(&actions, end);
}

int prepare(const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attributes) {
    if (!attributes) return 0;
    sigset_t defaults;
    posix_spawnattr_getsigdefault(attributes, &defaults);
    if ((attributes->__flags & POSIX_SPAWN_SETSIGDEF) != 0 &&
        (sigismember(&defaults, SIGKILL) == 1 || sigismember(&defaults, SIGSTOP) == 1))
        return EINVAL;
    if ((attributes->__flags & POSIX_SPAWN_CLOEXEC_DEFAULT) == 0 || !actions) return 0;
    return keepOnlyTargets(const_cast<posix_spawn_file_actions_t&>(*actions));
}

bool isTracedByAnother(id_t process) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%u/status", process);
    const int tracer = numberInProc<int>(path, "TracerPid: %d");
    std::snprintf(path, sizeof path, "/proc/self/task/%d", tracer);
    return tracer != 0 && access(path, F_OK) != 0;
}

/// Whether the group has a process that has not ended.
bool isAlive(pid_t group) {
    DIR* const folder = opendir("/proc");
    bool found = false;
    while (const dirent* const entry = folder && !found ? readdir(folder) : nullptr) {
        if (std::isdigit(entry->d_name[0]) == 0) continue;
        char path[64];
        std::snprintf(path, sizeof path, "/proc/%.20s/status", entry->d_name);
        found = numberInProc<pid_t>(path, "NSpgid: %d") == group &&
                numberInProc<char>(path, "State: %c") != 'Z';
    }
    if (folder) closedir(folder);
    return found;
}

} // namespace
} // namespace DarwinEmulation

using namespace DarwinEmulation;

extern "C" {

// A group with only zombies left is EPERM.
int __wrap_kill(pid_t process, int number) noexcept {
    if (process < -1 && __real_kill(process, 0) == 0 && !isAlive(-process)) {
        errno = EPERM;
        return -1;
    }
    return __real_kill(process, number);
}

// Numbers from OPEN_MAX on are refused. A copy onto itself leaves the descriptor close-on-exec.
int __wrap_posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* actions, int from,
                                            int to) noexcept {
    if (from < 0 || from >= 10240 || to < 0 || to >= targetLimit) return EBADF;
    addTarget(*actions, to);
    return from == to ? 0 : __real_posix_spawn_file_actions_adddup2(actions, from, to);
}

// Linux's call refuses POSIX_SPAWN_CLOEXEC_DEFAULT, which the next one looks for.
int __wrap_posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags) noexcept {
    const auto known = static_cast<short>(flags & ~POSIX_SPAWN_CLOEXEC_DEFAULT);
    const int error = __real_posix_spawnattr_setflags(attributes, known);
    if (error == 0) attributes->__flags = flags;
    return error;
}

// With POSIX_SPAWN_CLOEXEC_DEFAULT only the targets of actions stay open. SIGKILL and SIGSTOP among
// the signals to be reset are refused.
int __wrap_posix_spawn(pid_t* id, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* arguments,
                       char* const* environment) {
    if (const int error = prepare(actions, attributes)) return error;
    return __real_posix_spawn(id, path, actions, attributes, arguments, environment);
}

int __wrap_posix_spawnp(pid_t* id, const char* file, const posix_spawn_file_actions_t* actions,
                        const posix_spawnattr_t* attributes, char* const* arguments,
                        char* const* environment) {
    if (const int error = prepare(actions, attributes)) return error;
    return __real_posix_spawnp(id, file, actions, attributes, arguments, environment);
}

// A child that another process traces is not this process's for as long. What is told of no child
// is not touched.
int __wrap_waitid(idtype_t type, id_t id, siginfo_t* info, int options) {
    if (type == P_PID && isTracedByAnother(id)) {
        errno = ECHILD;
        return -1;
    }
    siginfo_t found{};
    const int result = __real_waitid(type, id, &found, options);
    if (result == 0 && found.si_pid != 0) *info = found;
    return result;
}
}
