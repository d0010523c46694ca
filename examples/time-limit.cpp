// time-limit MILLISECONDS COMMAND [ARG]...: runs a command, but no longer than that: then it is
// terminated, with what it started, and killed when it takes no notice. COMMAND is an absolute
// path.
#include <Platform/Platform.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>

static Platform::Task<int> run(std::vector<std::string> arguments) {
    const Platform::Cmd command{.path = arguments.at(2),
                                .arguments = {arguments.begin() + 3, arguments.end()},
                                .environment = std::nullopt,
                                .workingDirectoryPath = std::nullopt,
                                .expectedExitStatus = {0},
                                .mergeOutputIntoError = false,
                                .standardInput = nullptr,
                                .standardOutput = nullptr,
                                .standardError = nullptr};
    const Platform::Cmd::Options options{.timeLimit =
                                             std::chrono::milliseconds(std::stoi(arguments[1])),
                                         .killAfter = std::chrono::milliseconds(500),
                                         .terminatesGroup = true};
    try {
        co_await command.run(options);
        co_return EXIT_SUCCESS;
    } catch (const Platform::Errno& error) {
        if (error.number() == ETIMEDOUT) {
            std::cerr << command.path << " took too long" << std::endl;
        } else { // it could not be started; this names it
            std::cerr << error.what() << std::endl;
        }
    } catch (const std::exception& error) {
        std::cerr << command.path << ": " << error.what() << std::endl;
    }
    co_return EXIT_FAILURE;
}

int main() {
    return Platform::runMain(run(Platform::ProcessInfo::arguments()));
}
