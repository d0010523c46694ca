#include <Platform/base/ProcessInfo.h>

#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/SystemCall.h>

#include "Faults.h"

#include <cerrno>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Platform {
namespace {

constexpr std::string_view childMark = "PLATFORM_TESTS_TELL_PROCESS_INFO";

std::vector<std::string>* earlyArguments = nullptr;
int earlyFailure = 0;

/// Started with the mark, this executable tells what it knows on descriptor 3, before `main`.
[[maybe_unused]] const bool told = [] {
    if (!ProcessInfo::environmentValue(childMark)) {
        return false;
    }
    Data report;
    for (const auto& list : {ProcessInfo::arguments(), *earlyArguments}) {
        for (const std::string& argument : list) {
            report.append(argument + '\n');
        }
        report.append("--\n");
    }
    for (const auto& [name, value] : ProcessInfo::environment()) {
        report.append(name + '\n' + value + '\n');
        if (ProcessInfo::environmentValue(name) != value) {
            report.append("differs\n");
        }
    }
    FileDescriptor(3).write(report);
    ::_exit(0);
}();

/// Runs before the library has been handed the arguments, so these come from the kernel.
void askTooEarly() {
    using detail::SystemCall;
    detail::setSystemCallHook(
        [](SystemCall call, std::size_t*) { return call == SystemCall::open ? EMFILE : 0; });
    earlyFailure = thrownNumber([] { ProcessInfo::arguments(); });
    detail::setSystemCallHook(nullptr);
    earlyArguments = new std::vector<std::string>(ProcessInfo::arguments());
}
[[gnu::used, gnu::section(".init_array.00100")]] void (*askBeforeTheLibraryKnows)() = askTooEarly;

/// What the executable tells when it is started like this.
std::string reportOf(std::vector<std::string> arguments, std::vector<std::string> environment) {
    environment.emplace_back(std::string(childMark) + "=1");
    std::vector<char*> argumentPointers;
    std::vector<char*> environmentPointers;
    for (std::string& text : arguments) {
        argumentPointers.push_back(text.data());
    }
    for (std::string& text : environment) {
        environmentPointers.push_back(text.data());
    }
    argumentPointers.push_back(nullptr);
    environmentPointers.push_back(nullptr);

    int ends[2];
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const FileDescriptor reader(ends[0]);
    FileDescriptor writer(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writer.get(), 3);
    pid_t child = -1;
    EXPECT_EQ(::posix_spawn(&child, "/proc/self/exe", &actions, nullptr, argumentPointers.data(),
                            environmentPointers.data()),
              0);
    posix_spawn_file_actions_destroy(&actions);
    writer.reset();
    const Data report = reader.readToEnd();
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return std::string(report.view());
}

TEST(ProcessInfo, TellsAnyBytesWithoutHelpFromMain) {
    const NothingLeft check;
    const std::string arguments =
        "name\n\n\xFF\xFE one\ttwo\n\n" + std::string(100'000, 'x') + "\n";
    EXPECT_EQ(reportOf({"name", "", "\xFF\xFE one\ttwo", "", std::string(100'000, 'x')},
                       {"B=first=1", "A=\xFF", "B=second", "without", "EMPTY=", "=odd"}),
              arguments + "--\n" + arguments + "--\n" + "\nodd\nA\n\xFF\nB\nfirst=1\nEMPTY\n\n" +
                  std::string(childMark) + "\n1\n");
}

TEST(ProcessInfo, FollowsChangesOfTheEnvironment) {
    EXPECT_EQ(ProcessInfo::environmentValue("PLATFORM_TESTS_VALUE"), std::nullopt);
    ::setenv("PLATFORM_TESTS_VALUE", "changed", 1);
    EXPECT_EQ(ProcessInfo::environmentValue("PLATFORM_TESTS_VALUE"), "changed");
    EXPECT_EQ(ProcessInfo::environmentValue("PLATFORM_TESTS"), std::nullopt);
    ::unsetenv("PLATFORM_TESTS_VALUE");

    char** const before = std::exchange(environ, nullptr);
    EXPECT_TRUE(ProcessInfo::environment().empty());
    environ = before;
}

TEST(ProcessInfo, ArgumentsThatCannotBeReadAreAnError) {
    EXPECT_EQ(earlyFailure, EMFILE);
    EXPECT_FALSE(ProcessInfo::arguments().empty());
}

} // namespace
} // namespace Platform
