#include <Platform/Platform.h>

#include <cstdio>

using namespace Platform;

/// The status of the installed editor program after a host's verdict on `path`.
static Task<std::int64_t> ask(std::string path) {
    const Editor::Server server(
        [](std::string path) -> Task<bool> { co_return path == "/accepted"; });
    auto environment = ProcessInfo::environment();
    environment.merge(server.environment());
    const Cmd shim{.path = EDITOR_SHIM,
                   .arguments = {path},
                   .environment = environment,
                   .workingDirectoryPath = std::nullopt,
                   .expectedExitStatus = {0},
                   .mergeOutputIntoError = false,
                   .standardInput = nullptr,
                   .standardOutput = nullptr,
                   .standardError = nullptr};
    try {
        co_await shim.run();
    } catch (const Cmd::ExitError& error) {
        co_return error.status;
    }
    co_return 0;
}

int main() {
    const auto accepted = runMain(ask("/accepted"));
    std::printf("accepted: %d, declined: %d\n", int(accepted), int(runMain(ask("/declined"))));
}
