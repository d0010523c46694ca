#include <Platform/system/CommandLineTool.h>

#include <Platform/base/ProcessInfo.h>
#include <Platform/base/Text.h>
#include <Platform/base/detail/WriteAll.h>

#include <cstdlib>
#include <exception>
#include <span>
#include <string_view>

#include <signal.h>

namespace Platform {
namespace {

void writeDescription(std::string_view description) noexcept try {
    if (decodeUTF8(description) != description) return;
    // Not every system has writes without the signal, which would end the process in another way.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    detail::writeAll(detail::standardError, std::as_bytes(std::span(description)));
} catch (const std::exception&) {
    // There is nobody left to tell.
}

} // namespace

void CommandLineTool::main(const std::vector<std::string>&,
                           const std::map<std::string, std::string>&) {}

void CommandLineTool::run() noexcept {
    try {
        main(ProcessInfo::arguments(), ProcessInfo::environment());
        return;
    } catch (const std::exception& error) {
        writeDescription(error.what());
    } catch (...) {
        writeDescription("unknown error");
    }
    std::exit(EXIT_FAILURE); // NOLINT(concurrency-mt-unsafe): a program calls this once
}

} // namespace Platform
