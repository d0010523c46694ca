#include <Platform/command/Sudo.h>

#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/command/Which.h>
#include <Platform/command/detail/ChildProcess.h>

#include <array>
#include <chrono>
#include <string_view>

#include <fcntl.h>
#include <sys/prctl.h>

namespace Platform::Sudo {

namespace {

using detail::ChildProcess;
using detail::SystemCall;

/// As much of a program's name as the system keeps for a process, with the zero after it.
constexpr std::size_t nameSize = 16;

/// What the process is running; stays as it was after its end, until that is collected.
std::string programOf(const ChildProcess& process) {
    const std::string path = "/proc/" + std::to_string(process.id()) + "/comm";
    const FileDescriptor file(detail::systemCall(
        SystemCall::open, [&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    const Data name = file.readToEnd();
    return std::string(name.view().substr(0, name.view().find('\n')));
}

std::string programOfThisThread() {
    std::array<char, nameSize> name{};
    ::prctl(PR_GET_NAME, name.data());
    return name.data();
}

/// The launcher becomes the program once the user has agreed, in the same process. Its exit
/// statuses are no help: the program may end with any of them.
bool becomesAnother(const ChildProcess& process, const std::string& launcher) {
    // For a moment after its start a process goes by the name of the thread that started it.
    std::string before = programOfThisThread();
    for (;;) {
        const bool hasEnded = process.waitForEnd(std::chrono::milliseconds(10));
        const std::string name = programOf(process);
        if (name != launcher && (name != before || hasEnded)) return true;
        if (hasEnded) return false;
        if (name == launcher) before.clear();
    }
}

} // namespace

bool run(const std::string& path, const std::vector<std::string>& arguments) noexcept try {
    const auto launchers = which("pkexec");
    if (launchers.empty() || !path.starts_with('/')) return false;
    const std::string launcher = launchers.front();
    // In a terminal the launcher would ask there by itself, which a background process must not.
    std::vector<std::string> all{"--disable-internal-agent", path};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const ChildProcess process =
        ChildProcess::launch({.path = launcher, .arguments = all, .holdsId = true});
    return becomesAnother(process, launchers.front().filename().string().substr(0, nameSize - 1));
} catch (...) {
    return false;
}

} // namespace Platform::Sudo
