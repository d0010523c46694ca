#include <Platform/command/detail/CloneProcess.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>

#include <linux/sched.h>
#include <sched.h>
#include <sys/syscall.h>

namespace Platform::detail {

namespace {

constexpr std::size_t stackSize = 16384;
constexpr unsigned long sharing = CLONE_VM | CLONE_VFORK | CLONE_PIDFD;

struct CloneCall {
    long number;
    std::uintptr_t arguments[3];
};

/// The system call by itself: the child must not return from a function of the C library, and what
/// sanitizers put in front of those would note the child's deeds as this process's. Returns the
/// id, or the negative error number.
long callClone(const CloneCall& call, CloneBody body, void* data) noexcept {
#if defined(__x86_64__)
    long result = call.number;
    asm volatile("syscall\n\t"
                 "testq %%rax, %%rax\n\t"
                 "jnz 1f\n\t"
                 "movq %[data], %%rdi\n\t"
                 "callq *%[body]\n\t"
                 "hlt\n"
                 "1:"
                 : "+a"(result)
                 : "D"(call.arguments[0]), "S"(call.arguments[1]),
                   "d"(call.arguments[2]), [body] "r"(body), [data] "r"(data)
                 : "rcx", "r11", "cc", "memory");
    return result;
#elif defined(__aarch64__)
    register long result asm("x0") = static_cast<long>(call.arguments[0]);
    register std::uintptr_t second asm("x1") = call.arguments[1];
    register std::uintptr_t third asm("x2") = call.arguments[2];
    register long number asm("x8") = call.number;
    asm volatile("svc #0\n\t"
                 "cbnz x0, 1f\n\t"
                 "mov x0, %[data]\n\t"
                 "blr %[body]\n\t"
                 "brk #0\n"
                 "1:"
                 : "+r"(result)
                 : "r"(second), "r"(third), "r"(number), [body] "r"(body), [data] "r"(data)
                 : "x30", "cc", "memory");
    return result;
#else
#error "This processor's way to make a system call is missing here."
#endif
}

long cloned(long result) noexcept {
    if (result >= 0) return result;
    errno = static_cast<int>(-result);
    return -1;
}

} // namespace

long cloneWithoutHandlers(CloneBody body, void* data, int& identity) noexcept {
    // The calling thread stands still, so its own stack has room for the child's.
    alignas(16) std::byte stack[stackSize];
    clone_args how{};
    how.flags = sharing | CLONE_CLEAR_SIGHAND;
    how.pidfd = reinterpret_cast<std::uintptr_t>(&identity);
    how.exit_signal = SIGCHLD;
    how.stack = reinterpret_cast<std::uintptr_t>(stack);
    how.stack_size = stackSize;
    const CloneCall call{SYS_clone3, {reinterpret_cast<std::uintptr_t>(&how), sizeof how, 0}};
    return cloned(callClone(call, body, data));
}

long cloneWithHandlers(CloneBody body, void* data, int& identity) noexcept {
    alignas(16) std::byte stack[stackSize];
    const CloneCall call{SYS_clone,
                         {sharing | SIGCHLD, reinterpret_cast<std::uintptr_t>(stack + stackSize),
                          reinterpret_cast<std::uintptr_t>(&identity)}};
    return cloned(callClone(call, body, data));
}

} // namespace Platform::detail
