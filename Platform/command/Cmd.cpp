#include <Platform/command/Cmd.h>

#include <Platform/base/Text.h>
#include <Platform/command/RunningInstance.h>
#include <Platform/command/detail/Capturing.h>
#include <Platform/command/detail/CommandRun.h>

#include <exception>
#include <utility>

namespace Platform {

namespace {

Task<> runToEnd(Cmd command, Cmd::Options options) {
    detail::CommandRun run(command, options, false);
    run.startOutput();
    std::exception_ptr failure;
    try {
        auto waiting = run.wait();
        co_await waiting;
    } catch (const Cmd::ExitError&) {
        failure = std::current_exception();
    }
    if (run.output() || run.error()) {
        auto delivering = run.deliver();
        co_await delivering;
    }
    if (failure) std::rethrow_exception(failure);
}

Task<Cmd::Capture> captureAll(Cmd command, Cmd::Captured what, Cmd::Options options) {
    detail::Capturing capturing(std::move(command), what, options);
    auto running = capturing.run();
    co_return co_await running;
}

Task<Data> captureData(Cmd command, Cmd::Captured what, Cmd::Options options) {
    auto capturing = captureAll(std::move(command), what, options);
    Cmd::Capture capture = co_await capturing;
    co_return std::move(capture.data);
}

Task<std::string> captureString(Cmd command, Cmd::Options options) {
    auto capturing = captureData(std::move(command), Cmd::Captured::output, options);
    const Data data = co_await capturing;
    co_return decodeUTF8(data);
}

Task<> captureNothing(Cmd command, Cmd::Options options) {
    auto capturing = captureAll(std::move(command), Cmd::Captured::nothing, options);
    co_await capturing;
}

} // namespace

std::shared_ptr<Cmd::RunningInstance> Cmd::start() const {
    return start(Options());
}

std::shared_ptr<Cmd::RunningInstance> Cmd::start(Options options) const {
    return std::shared_ptr<RunningInstance>(new RunningInstance(*this, options));
}

Task<> Cmd::run() const {
    return runToEnd(*this, Options());
}

Task<> Cmd::run(Options options) const {
    return runToEnd(*this, options);
}

Task<Data> Cmd::output() const {
    return output(Options());
}

Task<Data> Cmd::output(Options options) const {
    return captureData(*this, Captured::output, options);
}

Task<std::string> Cmd::outputString() const {
    return outputString(Options());
}

Task<std::string> Cmd::outputString(Options options) const {
    return captureString(*this, options);
}

Task<Data> Cmd::combinedOutput() const {
    return combinedOutput(Options());
}

Task<Data> Cmd::combinedOutput(Options options) const {
    return captureData(*this, Captured::outputAndError, options);
}

Task<> Cmd::error() const {
    return error(Options());
}

Task<> Cmd::error(Options options) const {
    return captureNothing(*this, options);
}

Task<Cmd::Capture> Cmd::capture(Captured what, Options options) const {
    return captureAll(*this, what, options);
}

Cmd::ExitError::ExitError(std::int64_t status_, std::optional<Data> errorData_)
    : status(status_), errorData(std::move(errorData_)),
      description_(std::make_shared<const std::string>(errorDescription())) {}

std::optional<std::string> Cmd::ExitError::errorString() const {
    if (!errorData || errorData->empty()) return std::nullopt;
    return std::string(trimWhiteSpaceAndLineEnds(decodeUTF8(*errorData)));
}

std::string Cmd::ExitError::errorDescription() const {
    std::string description = "Exit status " + std::to_string(status);
    const std::optional<std::string> text = errorString();
    if (text && !text->empty()) description.append(": ").append(*text);
    return description;
}

} // namespace Platform
