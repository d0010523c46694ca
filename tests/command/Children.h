#pragma once

#include <Platform/command/detail/ChildProcess.h>
#include <Platform/command/detail/Pipe.h>

#include <support/Testing.h>

namespace Platform {

using detail::ChildProcess;
using detail::Launch;
using detail::makePipe;
using detail::Pipe;

/// Runs a shell's command; with its standard output where that is asked for.
inline ChildProcess startShell(const std::string& command, const FileDescriptor* output = nullptr,
                               const FileDescriptor* input = nullptr, bool holdsId = false) {
    const std::string path = "/bin/sh";
    const std::string arguments[] = {"-c", command};
    return ChildProcess::launch(
        {.path = path,
         .arguments = arguments,
         .descriptors = {input ? input->get() : -1, output ? output->get() : -1, -1},
         .holdsId = holdsId});
}

/// As `NothingLeft`, and no child is left either, once those on their way out have gone.
class NobodyLeft {
    // The first child starts what stays for good.
    [[maybe_unused]] const bool warm_ = startShell(":").waitForEnd(std::chrono::seconds(60));
    const NothingLeft nothing_;

public:
    ~NobodyLeft() {
        siginfo_t info;
        while (::waitid(P_ALL, 0, &info, WEXITED | WNOWAIT | WNOHANG) == 0) {
            std::this_thread::yield(); // for ever, if one stays: the test's limit of time ends that
        }
        EXPECT_EQ(errno, ECHILD);
    }
};

/// A test that starts processes, in the end of which nobody is left.
class CommandTest : public testing::Test {
    const NobodyLeft nobody_;

protected:
    const Scratch scratch;
};

/// What the child writes, to the end. `launch` is used with its standard output set.
inline std::string outputOf(Launch launch) {
    Pipe pipe = makePipe();
    launch.descriptors[1] = pipe.writing.get();
    const ChildProcess child = ChildProcess::launch(launch);
    pipe.writing.reset();
    const Data all = pipe.reading.readToEnd();
    child.waitForEnd();
    EXPECT_EQ(child.status(), 0);
    return std::string(all.view());
}

} // namespace Platform
