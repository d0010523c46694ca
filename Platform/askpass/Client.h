#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Task.h>

/// The credential hand-off: a tool's question for a user name, password or pass phrase, answered by
/// a desktop host. It shares the variable `MV_EDITOR_CONN` with the editor hand-off: a host that
/// serves both gives each program its own value.
namespace Platform::Askpass {

/// The program that the tool runs to ask its user.
class PLATFORM_EXPORT Client {
public:
    Client() = delete;

    /// The whole program: hands the prompt in its only argument to the host that the environment
    /// variable `MV_EDITOR_CONN` names, waits for as long as the user takes, and prints the answer
    /// and a line feed on standard output. A declined prompt prints an empty line.
    ///
    /// Returns then, for the program to end with status 0. On failure it prints the error on
    /// standard error and sends SIGINT to its whole process group, itself included, so that the
    /// tool gives up instead of going on with an empty credential. A host therefore starts tools in
    /// a process group of their own.
    ///
    /// With `SSH_ASKPASS_PROMPT=confirm` in the environment the question is yes or no, and the exit
    /// status the answer: anything but a text from the host ends the process with status 1, without
    /// output. To be run by `runMain`.
    static Task<void> main();
};

} // namespace Platform::Askpass
