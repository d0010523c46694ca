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

/// The system call by itself: the C library has no function for it, and the child must not return
/// from one. Returns the id, or the negative error number.
long clone3(const clone_args& how, CloneBody body, void* data) noexcept {
#if defined(__x86_64__)
    long result = SYS_clone3;
    asm volatile("syscall\n\t"
                 "testq %%rax, %%rax\n\t"
                 "jnz 1f\n\t"
                 "movq %[data], %%rdi\n\t"
                 "callq *%[body]\n\t"
                 "hlt\n"
                 "1:"
                 : "+a"(result)
                 : "D"(&how), "S"(sizeof how), [body] "r"(body), [data] "r"(data)
                 : "rcx", "r11", "cc", "memory");
    return result;
#elif defined(__aarch64__)
    register long result asm("x0") = reinterpret_cast<long>(&how);
    register std::size_t size asm("x1") = sizeof how;
    register long number asm("x8") = SYS_clone3;
    asm volatile("svc #0\n\t"
                 "cbnz x0, 1f\n\t"
                 "mov x0, %[data]\n\t"
                 "blr %[body]\n\t"
                 "brk #0\n"
                 "1:"
                 : "+r"(result)
                 : "r"(size), "r"(number), [body] "r"(body), [data] "r"(data)
                 : "x30", "cc", "memory");
    return result;
#else
    static_cast<void>(how), static_cast<void>(body), static_cast<void>(data);
    return -ENOSYS;
#endif
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
    const long result = clone3(how, body, data);
    if (result >= 0) return result;
    errno = static_cast<int>(-result);
    return -1;
}

long cloneWithHandlers(CloneBody body, void* data, int& identity) noexcept {
    alignas(16) std::byte stack[stackSize];
    const int flags = static_cast<int>(sharing) | SIGCHLD;
    return ::clone(body, stack + stackSize, flags, data, &identity);
}

} // namespace Platform::detail
