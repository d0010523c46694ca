#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace TerminalHost {

/// What the command line asks for.
struct Options {
    enum class Edits : std::uint8_t { byEditor, byCommand, byMessage, accepted, declined };
    enum class Prompts : std::uint8_t { onTerminal, byCommand, declined };

    Edits edits = Edits::byEditor;
    std::string editCommand;
    std::optional<std::string> planCommand; ///< For the plan of a rebase, before all others.
    std::vector<std::string> messages; ///< What the files get: one each, the last for the rest.
    Prompts prompts = Prompts::onTerminal;
    std::string askpassCommand;
    bool keepsAskpass = false;
    bool isVerbose = false;
    std::optional<std::string> logPath;
    std::vector<std::string> command; ///< The program and its arguments.

    /// Only this text was asked for (the help, the version).
    std::optional<std::string> answer;
};

/// The command line makes no sense; `what()` says why.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads a command line, the program's own path first, and the files that it names. Throws
/// `UsageError`.
Options parseOptions(const std::vector<std::string>& arguments);

} // namespace TerminalHost
