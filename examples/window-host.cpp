// window-host EDITOR COMMAND: runs a shell command, and EDITOR (an absolute path) on each file that
// the command wants edited, as a window would be opened: accepted when it ends with status 0. When
// the tool gives up before that (Ctrl-C, a kill), its window is closed.
#include <Platform/Platform.h>

#include <cstdlib>
#include <iostream>

static Platform::Cmd command(std::string path, std::vector<std::string> arguments,
                             std::map<std::string, std::string> environment) {
    return {.path = std::move(path),
            .arguments = std::move(arguments),
            .environment = std::move(environment),
            .workingDirectoryPath = std::nullopt,
            .expectedExitStatus = {0},
            .mergeOutputIntoError = false,
            .standardInput = nullptr,
            .standardOutput = nullptr,
            .standardError = nullptr};
}

static Platform::Task<bool> edit(std::string editor, std::string path) {
    std::cout << "opened " << path << std::endl;
    const std::vector<std::string> arguments{path};
    const auto window = command(editor, arguments, Platform::ProcessInfo::environment());
    const Platform::Cmd::Options options{.killAfter = std::chrono::seconds(1),
                                         .terminatesGroup = true};
    bool accepted = false;
    try {
        co_await window.run(options); // cancelled when the tool goes, which ends the editor
        accepted = true;
    } catch (const Platform::Cmd::ExitError&) { // the user declined
    } catch (const Platform::CancellationError&) {
        std::cout << "closed " << path << std::endl;
    }
    co_return accepted;
}

static Platform::Task<int> run(std::string editor, std::string script) {
    Platform::Editor::Server server([editor](std::string path) { return edit(editor, path); });
    auto environment = Platform::ProcessInfo::environment();
    for (auto& [name, value] : server.environment()) environment[name] = value;
    const std::vector<std::string> arguments{"-c", script};
    const auto tool = command("/bin/sh", arguments, std::move(environment));
    try {
        co_await tool.run();
        co_return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
    }
    co_return EXIT_FAILURE;
}

int main() {
    const auto arguments = Platform::ProcessInfo::arguments();
    if (arguments.size() != 3) {
        std::cerr << "usage: window-host EDITOR COMMAND" << std::endl;
        return EXIT_FAILURE;
    }
    return Platform::runMain(run(arguments[1], arguments[2]));
}
