#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Task.h>
#include <Platform/transport/detail/HandOff.h>

#include <functional>
#include <optional>
#include <string>

namespace Platform::Askpass {

/// The host's half of the credential hand-off: answers the prompts of the askpass programs that a
/// tool runs, one at a time.
///
/// Owned by its scope: neither copyable nor movable. Put `environment()` into the environment of
/// the tools that you start, each in a process group of its own (see `Client::main`). When serving
/// ends by an error, one entry is written to the log, label "askpassServer", and no further prompt
/// is answered: make a new server then. Stopping it is no error.
///
/// The library overwrites its own buffers that held an answer before it frees them.
class PLATFORM_EXPORT Server final : public detail::HandOffServer {
public:
    /// Asks the user; an answer, or absent when there is none. The prompt is the request's text,
    /// U+FFFD in place of what is not UTF-8. The answer is passed on unchanged; an empty one is an
    /// answer.
    ///
    /// Called from a detached task on the shared cooperative pool, whose cancellation (`stop`) it
    /// may heed. An exception declines the prompt and is logged; serving goes on.
    using PromptBlock = std::function<Task<std::optional<std::string>>(std::string prompt)>;

    /// Creates a pipe and starts serving. The callback is kept until the serving task has ended,
    /// which may be after the server's own end: what it refers to must live as long.
    ///
    /// Throws `Errno` when the pipe or its directory cannot be made; `what()` tells which, and of a
    /// directory that is not private the owner and mode.
    explicit Server(PromptBlock promptBlock);
};

} // namespace Platform::Askpass
