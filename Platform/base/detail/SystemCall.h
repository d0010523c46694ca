#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>

namespace Platform::detail {

/// The system calls that tests can make fail. Add one where a failure has to be reachable.
enum class SystemCall : unsigned char {
    open,
    close,
    read,
    write,
    mkfifo,
    unlink,
    rename,
    fcntl,
    mkdir,
    fstat,
    lstat,
    readlink,
    getentropy,
    socket,
    bind,
    listen,
    accept,
    connect,
    send,
    receive,
    poll,
    watch,
    pipe,
    spawn,
    wait,
    kill,
    getAttribute,
    setAttribute,
    removeAttribute,
    listAttributes,
    userEntry,
    listDirectory,
    attributeAt,
};

/// Called before a system call is made, on its thread, which it may hold up. Returns 0 to let the
/// call go ahead, or the error number that it fails with instead. `count` is the number of bytes
/// of a read, write or send, and null for the others; lowering it forces a short count.
/// A close is made whatever the hook returns.
using SystemCallHook = int (*)(SystemCall call, std::size_t* count);

/// Null in production.
inline std::atomic<SystemCallHook> systemCallHook{nullptr};

/// Sets the hook, null for none; returns the one before. For tests.
inline SystemCallHook setSystemCallHook(SystemCallHook hook) noexcept {
    return systemCallHook.exchange(hook);
}

/// Set by a signal handler of a program of ours: calls that are interrupted fail with `EINTR` from
/// then on, and are not repeated.
inline std::atomic<bool> interruptedCallsFail{false};

/// Throws the `Errno` of the current `errno`.
[[noreturn]] void throwErrno();

/// What the four functions below have in common; `count` is null or counts bytes.
template <class Function>
auto repeatSystemCall(SystemCall call, const std::size_t* count, Function function) {
    using Result = decltype(function(std::size_t{}));
    for (;;) {
        std::size_t allowed = count ? *count : 0;
        const SystemCallHook hook = systemCallHook.load(std::memory_order_acquire);
        const int failure = hook ? hook(call, count ? &allowed : nullptr) : 0;
        Result result = -1;
        if (failure == 0) {
            result = function(allowed);
        } else {
            errno = failure;
        }
        if (result != -1 || errno != EINTR || interruptedCallsFail) {
            return result;
        }
    }
}

/// Makes one system call by calling `function()`, again whenever it is interrupted. Returns what
/// the call returned; a failure is -1 with `errno` set.
template <class Function>
auto trySystemCall(SystemCall call, Function&& function) {
    return repeatSystemCall(call, nullptr, [&](std::size_t) { return function(); });
}

/// The same for a call that moves bytes: calls `function(count)`.
template <class Function>
auto trySystemCall(SystemCall call, std::size_t count, Function&& function) {
    return repeatSystemCall(call, &count, [&](std::size_t allowed) { return function(allowed); });
}

/// As `trySystemCall`, but a failure is thrown as `Errno`.
template <class Function>
auto systemCall(SystemCall call, Function&& function) {
    const auto result = trySystemCall(call, function);
    if (result == -1) {
        throwErrno();
    }
    return result;
}

/// The same for a call that moves bytes: calls `function(count)`.
template <class Function>
auto systemCall(SystemCall call, std::size_t count, Function&& function) {
    const auto result = trySystemCall(call, count, function);
    if (result == -1) {
        throwErrno();
    }
    return result;
}

} // namespace Platform::detail
