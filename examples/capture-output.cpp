// capture-output COMMAND [ARG]...: runs a command and tells how much it wrote, or why it failed, in
// its own words. COMMAND is an absolute path.
#include <Platform/Platform.h>

#include <cstdlib>
#include <iostream>

static Platform::Task<int> run(std::vector<std::string> arguments) {
    const Platform::Cmd command{.path = arguments.at(1),
                                .arguments = {arguments.begin() + 2, arguments.end()},
                                .environment = std::nullopt,
                                .workingDirectoryPath = std::nullopt,
                                .expectedExitStatus = {0},
                                .mergeOutputIntoError = false,
                                .standardInput = nullptr,
                                .standardOutput = nullptr,
                                .standardError = nullptr};
    try {
        const Platform::Data output = co_await command.output();
        std::cout << output.size() << " bytes" << std::endl;
        co_return EXIT_SUCCESS;
    } catch (const Platform::Cmd::ExitError& error) {
        std::cerr << command.path << ": " << error.errorDescription() << std::endl;
    } catch (const std::exception& error) { // it could not be started
        std::cerr << error.what() << std::endl;
    }
    co_return EXIT_FAILURE;
}

int main() {
    return Platform::runMain(run(Platform::ProcessInfo::arguments()));
}
