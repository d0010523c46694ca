#include <Platform/system/Mach.h>

#include <Platform/base/Errno.h>
#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/SystemCall.h>

#include <charconv>
#include <cstddef>
#include <string_view>

#include <fcntl.h>

namespace Platform::Mach {

std::optional<std::int64_t> numberOfActiveThreads() try {
    // One line, whose length and cost do not grow with the number of threads as those of the task
    // directory do.
    const FileDescriptor file(detail::systemCall(
        detail::SystemCall::open, [] { return ::open("/proc/self/stat", O_RDONLY | O_CLOEXEC); }));
    const Data line = file.readToEnd();
    // The program's name, in parentheses, may hold anything; the fields after it are numbers.
    std::string_view rest = line.view();
    rest.remove_prefix(rest.rfind(')') + 1);
    constexpr int fieldsBefore = 18;
    for (int field = 0; field < fieldsBefore; ++field) rest.remove_prefix(rest.find(' ') + 1);
    std::int64_t count = 0;
    std::from_chars(rest.data(), rest.data() + rest.size(), count);
    if (count < 1) return std::nullopt;
    return count;
} catch (const Errno&) {
    return std::nullopt;
}

} // namespace Platform::Mach
