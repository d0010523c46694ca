#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Task.h>
#include <Platform/transport/detail/HandOff.h>

#include <functional>
#include <string>

namespace Platform::Editor {

/// The host's half of the editor hand-off: answers the requests of the editor programs that a tool
/// runs, one at a time, in the order in which they come to the pipe.
///
/// Owned by its scope: neither copyable nor movable. Put `environment()` into the environment of
/// the tools that you start. When serving ends by an error (a client that died in the middle of its
/// request, a pipe that was removed), one entry is written to the log, label "editorServer", and no
/// further request is answered: make a new server then.
class PLATFORM_EXPORT Server final : public detail::HandOffServer {
public:
    /// Shows the file to the user; true accepts the edit, false declines it. The path is the
    /// request's text, U+FFFD in place of what is not UTF-8.
    ///
    /// Called from a detached task on the shared cooperative pool, whose cancellation (`stop`) it
    /// may heed. An exception declines the edit and is logged; serving goes on.
    using EditBlock = std::function<Task<bool>(std::string path)>;

    /// Creates a pipe and starts serving. The callback is kept until the serving task has ended,
    /// which may be after the server's own end: what it refers to must live as long.
    ///
    /// Throws `Errno` when the pipe or its directory cannot be made; `what()` tells which, and of a
    /// directory that is not private the owner and mode.
    explicit Server(EditBlock editBlock);
};

} // namespace Platform::Editor
