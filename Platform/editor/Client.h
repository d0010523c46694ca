#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Task.h>

/// The editor hand-off: a version-control tool's question "edit this file", answered by a desktop
/// host.
namespace Platform::Editor {

/// The program that the tool runs as its editor.
class PLATFORM_EXPORT Client {
public:
    Client() = delete;

    /// The whole program: hands the path in its only argument to the host that the environment
    /// variable `MV_EDITOR_CONN` names, and waits for the verdict, for as long as the user takes.
    ///
    /// Ends the process: status 0 when the host accepted the edit; else 1, with one entry "error:
    /// …" in the log, label "editorClient". Prints nothing. To be run by `runMain`.
    static Task<void> main();
};

} // namespace Platform::Editor
