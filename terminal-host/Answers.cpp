#include <terminal-host/Answers.h>

#include <Platform/base/CancellationError.h>
#include <Platform/base/Data.h>
#include <Platform/base/ProcessInfo.h>
#include <Platform/command/Cmd.h>
#include <Platform/command/RunningInstance.h>
#include <Platform/runtime/Cancellation.h>
#include <Platform/runtime/TaskGroup.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace TerminalHost {

using namespace Platform;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

/// A shell command that gets one more word, as git runs its editors. One of plain words takes the
/// shell's place: a shell in between would die of an interrupt that the program survives.
Cmd shell(const std::string& redirections, const std::string& command, std::string word) {
    const bool isPlain = command.find_first_of("|&;<>()$`\\\"'\n*?[#~=%{}!:") == command.npos &&
                         !command.starts_with(". ");
    const std::string script =
        "exec " + redirections + "; " + (isPlain ? "exec " : "") + command + " \"$@\"";
    return {.path = "/bin/sh",
            .arguments = {"-c", script, command, std::move(word)},
            .environment = std::nullopt,
            .workingDirectoryPath = std::nullopt,
            .expectedExitStatus = {0},
            .mergeOutputIntoError = false,
            .standardInput = nullptr,
            .standardOutput = nullptr,
            .standardError = nullptr};
}

/// A program that asks nobody: none of its group is left when its request has gone.
constexpr Cmd::Options byItself{
    .killAfter = std::chrono::seconds(2), .terminatesGroup = true, .inheritsStreams = true};
constexpr std::size_t longestAnswer = 65536;
constexpr const char* noInput = "</dev/null";
constexpr const char* onTerminal = "</dev/tty >/dev/tty 2>&1";

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The plan of a rebase, or Mercurial's of a histedit, rather than a message.
bool isPlan(std::string_view path) {
    return path.ends_with("/git-rebase-todo") || path.ends_with(".histedit.hg.txt");
}

std::optional<std::string> editorOfUser() {
    for (const char* const name : {"VISUAL", "EDITOR"}) {
        auto value = ProcessInfo::environmentValue(name);
        if (value && value->find_first_not_of(" \t\n") != value->npos) return value;
    }
    return std::nullopt;
}

/// Runs a program whose output is a channel, and keeps its first line. Whether it exited with 0.
Task<bool> readLine(TaskGroup<>* group, const Cmd* program, Data* line) {
    group->addTask([program] { return program->run(byItself); });
    bool isWhole = false;
    while (auto chunk = co_await program->standardOutput->receive()) {
        const std::string_view text = chunk->view().substr(0, longestAnswer);
        const std::size_t end = text.find_first_of("\r\n");
        if (!isWhole) line->append(text.substr(0, end));
        isWhole = isWhole || end != text.npos || line->size() > longestAnswer;
        chunk->wipe();
    }
    try {
        auto ending = group->waitForAll();
        co_await ending;
    } catch (const Cmd::ExitError&) {
        co_return false;
    }
    co_return true;
}

} // namespace

Answers::Answers(Options options, const Journal& journal, std::shared_ptr<Terminal> terminal,
                 std::function<void()> interrupt)
    : options_(std::move(options)), journal_(journal), terminal_(std::move(terminal)),
      interrupt_(std::move(interrupt)) {}

Task<bool> Answers::edit(std::string path) {
    return journalled("edit", path, decide(path), "accepted");
}

Task<std::optional<std::string>> Answers::answer(std::string prompt) {
    return journalled("prompt", prompt, reply(prompt), "answered");
}

template <class Answer>
Task<Answer> Answers::journalled(const char* kind, std::string text, Task<Answer> answering,
                                 const char* success) {
    const auto start = Clock::now();
    Answer answer{};
    const char* outcome = "declined";
    try {
        answer = co_await answering;
        if (answer) outcome = success;
    } catch (const CancellationError&) {
        outcome = "cancelled";
    } catch (const std::exception& error) {
        Journal::complain(error.what());
        outcome = "failed";
    }
    if (isTaskCancelled()) outcome = "cancelled";
    journal_.answered(kind, text, outcome, secondsSince(start));
    co_return answer;
}

Task<bool> Answers::decide(std::string path) {
    std::error_code ignored;
    if (!path.starts_with('/') ||
        (path.find("\xEF\xBF\xBD") != path.npos && !fs::exists(path, ignored))) {
        // Relative to a folder that nobody knows here, or not said in UTF-8.
        Journal::complain({"cannot tell which file is meant by ", path});
        co_return false;
    }
    const bool plan = isPlan(path);
    Task<bool> deciding;
    if (plan && options_.planCommand) {
        deciding = runOnFile(*options_.planCommand, path);
    } else {
        switch (options_.edits) {
        case Options::Edits::accepted:
            co_return true;
        case Options::Edits::declined:
            co_return false;
        case Options::Edits::byMessage:
            co_return plan || writeMessage(path);
        case Options::Edits::byCommand:
            deciding = runOnFile(options_.editCommand, path);
            break;
        case Options::Edits::byEditor:
            deciding = runEditor(path);
            break;
        }
    }
    co_return co_await deciding;
}

Task<bool> Answers::runOnFile(std::string command, std::string path) {
    const Cmd program = shell(noInput, command, path);
    try {
        auto running = program.run(byItself);
        co_await running;
    } catch (const Cmd::ExitError&) {
        co_return false;
    }
    co_return true;
}

Task<bool> Answers::runEditor(std::string path) {
    const auto editor = editorOfUser();
    if (!terminal_) {
        if (!editor) {
            Journal::complain({"no terminal, and neither VISUAL nor EDITOR, to edit ", path});
            co_return false;
        }
        auto running = runOnFile(*editor, path); // one with a window, perhaps
        co_return co_await running;
    }
    const Cmd program = shell(onTerminal, editor.value_or("vi"), path);
    std::optional<int> signal;
    std::int64_t status = 0;
    try {
        auto lending = terminal_->lend(program);
        signal = co_await lending;
    } catch (const Cmd::ExitError& error) {
        status = error.status;
    }
    // A shell in between tells of the signal by its status.
    if (signal == SIGINT || status == 128 + SIGINT) interrupt_();
    co_return !signal && status == 0;
}

bool Answers::writeMessage(const std::string& path) {
    const std::size_t number = std::min(messagesUsed_++, options_.messages.size() - 1);
    std::ofstream file(path, std::ios::binary);
    file << options_.messages[number] << std::flush;
    if (!file) Journal::complain({"cannot write ", path});
    return static_cast<bool>(file);
}

Task<std::optional<std::string>> Answers::reply(std::string prompt) {
    if (options_.prompts == Options::Prompts::declined) co_return std::nullopt;
    if (options_.prompts == Options::Prompts::byCommand) {
        auto running = runOnPrompt(prompt);
        co_return co_await running;
    }
    if (!terminal_) {
        Journal::complain({"no terminal to ask at: ", prompt});
        co_return std::nullopt;
    }
    auto asking = terminal_->ask(prompt);
    co_return co_await asking;
}

Task<std::optional<std::string>> Answers::runOnPrompt(std::string prompt) {
    Cmd program = shell(noInput, options_.askpassCommand, prompt);
    program.standardOutput = std::make_shared<Cmd::Channel>();
    Data line = Data::secret();
    auto reading = [&program, &line](TaskGroup<>& group) {
        return readLine(&group, &program, &line);
    };
    auto asking = withTaskGroup<>(reading);
    const bool isAnswered = co_await asking;
    if (line.size() > longestAnswer) throw std::length_error("an answer without an end");
    if (!isAnswered) co_return std::nullopt;
    co_return std::string(line.view());
}

} // namespace TerminalHost
