#pragma once

#include <Platform/runtime/Task.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <terminal-host/Journal.h>
#include <terminal-host/Options.h>
#include <terminal-host/Terminal.h>

namespace TerminalHost {

/// How each request is answered, as the options say. Shared with the servers' tasks, which may end
/// after their servers do.
class Answers {
public:
    /// `interrupt` is called when the user typed Ctrl-C in the editor on the terminal (which may
    /// be null). The journal outlives this.
    Answers(Options options, const Journal& journal, std::shared_ptr<Terminal> terminal,
            std::function<void()> interrupt);

    Platform::Task<bool> edit(std::string path);
    Platform::Task<std::optional<std::string>> answer(std::string prompt);

private:
    /// Awaits an answer and writes down how that went. What fails declines.
    template <class Answer>
    Platform::Task<Answer> journalled(const char* kind, std::string text,
                                      Platform::Task<Answer> answering, const char* success);
    Platform::Task<bool> decide(std::string path);
    Platform::Task<std::optional<std::string>> reply(std::string prompt);
    Platform::Task<bool> runOnFile(std::string command, std::string path);
    Platform::Task<bool> runEditor(std::string path);
    Platform::Task<std::optional<std::string>> runOnPrompt(std::string prompt);
    bool writeMessage(const std::string& path);

    const Options options_;
    const Journal& journal_;
    const std::shared_ptr<Terminal> terminal_;
    const std::function<void()> interrupt_;
    std::size_t messagesUsed_ = 0;
};

} // namespace TerminalHost
