#include <Platform/command/Shell.h>

#include <Platform/base/ProcessInfo.h>
#include <Platform/base/Text.h>
#include <Platform/command/Cmd.h>
#include <Platform/system/User.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

namespace Platform {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::mutex defaultMutex;

std::optional<Shell>& theDefault() {
    static std::optional<Shell> shell;
    return shell;
}

Shell::Environment parseVariables(const std::string& output) {
    Shell::Environment environment;
    std::string_view rest = output;
    while (!rest.empty()) {
        const std::string_view line = takeLine(rest);
        const std::size_t sign = line.find('=');
        if (sign == line.npos || sign == 0 || sign + 1 == line.size()) continue;
        environment[std::string(trimWhiteSpace(line.substr(0, sign)))] =
            trimWhiteSpace(line.substr(sign + 1));
    }
    return environment;
}

/// What the shell prints; absent when the attempt fails.
Task<std::optional<std::string>> attempt(std::string path, std::vector<std::string> arguments,
                                         std::optional<milliseconds> timeLimit) {
    try {
        auto environment = ProcessInfo::environment();
        environment.erase(""); // which this process may have inherited, but no child can be given
        const Cmd shell{.path = std::move(path),
                        .arguments = std::move(arguments),
                        .environment = std::move(environment),
                        .workingDirectoryPath = std::nullopt,
                        .expectedExitStatus = {0},
                        .mergeOutputIntoError = false,
                        .standardInput = nullptr,
                        .standardOutput = nullptr,
                        .standardError = nullptr};
        // An interactive shell takes no notice of SIGTERM, and a daemon that it leaves behind may
        // hold the output open.
        const Cmd::Options options{.timeLimit = timeLimit,
                                   .killAfter = milliseconds(200),
                                   .terminatesGroup = true,
                                   .outputGrace = milliseconds(0),
                                   .newSession = true};
        auto running = shell.outputString(options);
        co_return co_await running;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) { // the next may succeed
        co_return std::nullopt;
    }
}

} // namespace

Shell::Shell(std::string path, std::optional<Environment> environment) noexcept
    : path_(std::move(path)), environment_(std::move(environment)) {}

Task<Shell> Shell::load(std::string path, std::optional<milliseconds> timeLimit) {
    const std::vector<std::string> attempts[] = {
        {"-l", "-i", "-c", "env"}, {"-l", "-c", "env"}, {"-c", "env"}};
    const Clock::time_point start = Clock::now();
    for (const auto& arguments : attempts) {
        std::optional<milliseconds> left = timeLimit;
        if (left) {
            *left -= std::chrono::duration_cast<milliseconds>(Clock::now() - start);
            if (*left <= milliseconds(0)) break;
        }
        auto trying = attempt(path, arguments, left);
        const std::optional<std::string> output = co_await trying;
        if (output) co_return Shell(std::move(path), parseVariables(*output));
    }
    co_return Shell(std::move(path), std::nullopt);
}

Task<> Shell::loadDefault(std::optional<milliseconds> timeLimit) {
    const std::optional<Passwd> passwd = User::effective().passwd();
    if (!passwd || !passwd->pwShell()) co_return;
    auto loading = load(*passwd->pwShell(), timeLimit);
    Shell shell = co_await loading;
    setDefaultShell(std::move(shell));
}

std::optional<Shell> Shell::defaultShell() {
    const std::lock_guard guard(defaultMutex);
    return theDefault();
}

void Shell::setDefaultShell(std::optional<Shell> shell) {
    const std::lock_guard guard(defaultMutex);
    std::swap(theDefault(), shell);
}

std::optional<std::string> Shell::PATH() const {
    if (!environment_) return std::nullopt;
    const auto entry = environment_->find("PATH");
    if (entry == environment_->end()) return std::nullopt;
    return entry->second;
}

} // namespace Platform
