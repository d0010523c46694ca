#pragma once

#include <cerrno>
#include <cstdio>

#include <sys/types.h>

/// Declares the two sides of a call that the linker wraps: what takes its place and what it was.
#define DARWIN_WRAPS(call) extern "C" decltype(::call) __wrap_##call, __real_##call

namespace DarwinEmulation {

/// Whether writes to it raise no SIGPIPE. macOS keeps this with the open file, and so across an
/// exec; here it goes with the descriptor.
bool isWithoutSigpipe(int descriptor) noexcept;
void setWithoutSigpipe(int descriptor, bool value) noexcept;

/// How many signal handlers have run on this thread.
int handlersRun() noexcept;

/// A number out of a file of /proc, which follows `key` at the start of a line; 0 without one.
template <class Number>
Number numberInProc(const char* path, const char* key) noexcept {
    const int error = errno;
    Number number = 0;
    if (std::FILE* const file = std::fopen(path, "re")) {
        for (char line[512]; std::fgets(line, sizeof line, file);) std::sscanf(line, key, &number);
        std::fclose(file);
    }
    errno = error;
    return number;
}

} // namespace DarwinEmulation
