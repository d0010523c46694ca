// numbered-lines COMMAND [ARG]...: runs a command, and numbers the lines of its output as they
// come. Memory is needed for one chunk and one line, however long the output.
#include <Platform/Platform.h>

#include <cstdlib>
#include <iostream>
#include <memory>

static Platform::Task<> printLines(std::shared_ptr<Platform::Cmd::Channel> output) {
    Platform::ByteScanner scanner;
    long number = 0;
    while (auto chunk = co_await output->receive()) {
        scanner.append(*chunk);
        while (auto line = scanner.viewToEndOfLine(true)) {
            std::cout << ++number << '\t' << *line << '\n';
        }
        scanner.trim();
        std::cout.flush();
    }
    if (auto line = scanner.viewRest()) std::cout << ++number << '\t' << *line << std::endl;
}

static Platform::Task<int> run(std::vector<std::string> arguments) {
    const auto found = Platform::which(arguments.at(1));
    const Platform::Cmd command{.path = found.empty() ? arguments[1] : found.front().string(),
                                .arguments = {arguments.begin() + 2, arguments.end()},
                                .environment = std::nullopt,
                                .workingDirectoryPath = std::nullopt,
                                .expectedExitStatus = {0},
                                .mergeOutputIntoError = false,
                                .standardInput = nullptr,
                                .standardOutput = std::make_shared<Platform::Cmd::Channel>(),
                                .standardError = nullptr};
    // Reading and running go on beside each other; the channel ends when the output does.
    auto reading = Platform::detached([&] { return printLines(command.standardOutput); });
    int status = EXIT_SUCCESS;
    try {
        co_await command.run();
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        command.standardOutput->close(); // which a command that never ran has not done
        status = EXIT_FAILURE;
    }
    co_await reading;
    co_return status;
}

int main() {
    return Platform::runMain(run(Platform::ProcessInfo::arguments()));
}
