#pragma once

#include <support/Testing.h>

namespace Platform::Testing {

/// A command that is expected to succeed, with this process's environment and the changes to it.
inline Cmd command(std::string path, std::vector<std::string> arguments = {},
                   const std::map<std::string, std::string>& changes = {}) {
    Cmd result{.path = std::move(path),
               .arguments = std::move(arguments),
               .environment = ProcessInfo::environment(),
               .workingDirectoryPath = std::nullopt,
               .expectedExitStatus = {0},
               .mergeOutputIntoError = false,
               .standardInput = nullptr,
               .standardOutput = nullptr,
               .standardError = nullptr};
    for (const auto& [name, value] : changes) (*result.environment)[name] = value;
    return result;
}

/// All that comes, gathered in the background.
inline TaskHandle<Data> collect(std::shared_ptr<Cmd::Channel> channel) {
    return detached([channel = std::move(channel)]() -> Task<Data> {
        Data data;
        while (auto chunk = co_await channel->receive()) data.append(*chunk);
        co_return data;
    });
}

/// The error that running it to the end throws.
template <class T>
std::optional<Cmd::ExitError> exitError(Task<T> task) {
    try {
        runMain(std::move(task));
    } catch (const Cmd::ExitError& error) {
        return error;
    }
    ADD_FAILURE() << "no error";
    return std::nullopt;
}

/// Takes one chunk, and no more.
inline Data first(const std::shared_ptr<Cmd::Channel>& channel) {
    auto taking = [&]() -> Task<Data> { co_return *co_await channel->receive(); };
    return runMain(taking());
}

/// Waits for a detached task on this thread.
template <class T>
T result(TaskHandle<T> handle) {
    auto wait = [&handle]() -> Task<T> { co_return co_await handle; };
    return runMain(wait());
}

} // namespace Platform::Testing
