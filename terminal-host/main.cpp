#include <Platform/Platform.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <signal.h>
#include <terminal-host/Answers.h>
#include <terminal-host/Options.h>
#include <terminal-host/Signals.h>
#include <terminal-host/Terminal.h>
#include <unistd.h>

namespace TerminalHost {

using namespace Platform;
namespace fs = std::filesystem;

namespace {

constexpr const char* handOffVariable = "MV_EDITOR_CONN";
constexpr const char* asEditor = "--as-editor"; // in the command's environment only

enum Status { ownFailure = 125, notRunnable = 126, notFound = 127, killed = 128 };

/// The program that a name stands for; the name itself when it has a slash. Throws `Errno`.
std::string programPath(const std::string& name) {
    if (name.find('/') != name.npos) return name;
    for (const fs::path& path : which(name)) {
        std::error_code ignored;
        if (fs::is_regular_file(path, ignored)) return fs::absolute(path);
    }
    throw Errno(ENOENT, name);
}

/// One of the small programs: beside this one, else in the search path.
std::string shimPath(const std::string& name) {
    const fs::path beside = fs::path(ProcessInfo::executablePath()).parent_path() / name;
    return ::access(beside.c_str(), X_OK) == 0 ? std::string(beside) : programPath(name);
}

/// This process's environment, with the variables by which tools find their editor and whom to ask
/// for a password.
std::map<std::string, std::string>
toolEnvironment(const Editor::Server& edits, const Askpass::Server& prompts, bool keepsAskpass) {
    auto environment = ProcessInfo::environment();
    const std::string askpass = shimPath("askpass-shim");
    for (const char* const name : {"GIT_ASKPASS", "SSH_ASKPASS", "SUDO_ASKPASS"}) {
        if (keepsAskpass && environment.contains(name)) continue;
        environment[name] = askpass;
        if (name == std::string_view("SSH_ASKPASS")) environment["SSH_ASKPASS_REQUIRE"] = "force";
    }
    // Both kinds of programs read the same variable. An askpass program is run by its bare path and
    // cannot bring another; an editor can: these are pieces of shell.
    environment[handOffVariable] = prompts.path();
    const std::string shim = std::string(handOffVariable) + "=" + quotedForShell(edits.path()) +
                             " " + quotedForShell(shimPath("editor-shim"));
    for (const char* const name : {"GIT_EDITOR", "GIT_SEQUENCE_EDITOR", "HGEDITOR"}) {
        environment[name] = shim;
    }
    // And these are taken for plain words by many tools, which know neither assignments nor quotes.
    const std::string words = quotedForShell(ProcessInfo::executablePath()) + " " + asEditor + " " +
                              quotedForShell(edits.path());
    for (const char* const name : {"VISUAL", "EDITOR"}) environment[name] = words;
    return environment;
}

/// The command, and what the user's signals do to it.
class Tool {
public:
    explicit Tool(std::shared_ptr<Terminal> terminal) : terminal_(std::move(terminal)) {}

    void start(const Cmd& command) {
        // Without a terminal of its own it cannot ask there behind our back.
        running_ =
            command.start({.terminatesGroup = true, .newSession = true, .inheritsStreams = true});
    }

    Cmd::RunningInstance& running() const noexcept { return *running_; }

    /// The signal to this program that has ended the command, if that is what has.
    std::optional<int> interruption() const noexcept {
        const auto signal = running_ ? running_->endingSignal() : std::nullopt;
        return signal == interruption_ ? signal : std::nullopt;
    }

    void handle(int number) noexcept {
        switch (number) {
        case SIGCONT:
            if (terminal_) terminal_->goOn();
            break;
        case SIGTSTP:
            stop();
            break;
        case SIGINT:
        case SIGQUIT:
            if (!terminal_ || !terminal_->isLent()) end(number);
            break;
        case SIGTERM:
        case SIGHUP:
            end(number);
            break;
        default:
            running_->sendSignal(number);
        }
    }

    void end(int number) noexcept {
        interruption_ = number;
        if (!running_->sendSignal(number) && running_->isRunning()) {
            // Somebody else's, as with sudo: the terminal would have reached it, but is not its
            // own.
            Journal::complain("the command may not be signalled, and goes on alone");
            if (terminal_) terminal_->restore();
            Signals::obey(number);
        }
        running_->sendSignal(SIGCONT);
    }

private:
    /// Ctrl-Z stops all, as it would without us in between.
    void stop() noexcept {
        if (terminal_) terminal_->hold();
        running_->sendSignal(SIGSTOP); // a group without a terminal does not heed SIGTSTP
        Signals::obey(SIGTSTP);        // which does nothing where nobody could continue us
        running_->sendSignal(SIGCONT);
        if (terminal_) terminal_->goOn();
    }

    const std::shared_ptr<Terminal> terminal_;
    std::shared_ptr<Cmd::RunningInstance> running_;
    std::atomic<int> interruption_ = 0;
};

/// Starts the command, and suspends until it has ended. Returns what this program ends with.
Task<int> run(std::shared_ptr<Tool> tool, const Journal* journal, std::vector<std::string> command,
              std::map<std::string, std::string> environment, Signals* signals) {
    try {
        const std::string path = programPath(command[0]);
        tool->start({.path = path,
                     .arguments = {command.begin() + 1, command.end()},
                     .environment = std::move(environment),
                     .workingDirectoryPath = std::nullopt,
                     .expectedExitStatus = {0},
                     .mergeOutputIntoError = false,
                     .standardInput = nullptr,
                     .standardOutput = nullptr,
                     .standardError = nullptr});
        journal->began(path, tool->running().processIdentifier());
    } catch (const Errno& error) {
        Journal::complain(error.what());
        co_return error.number() == ENOENT ? notFound : notRunnable;
    }
    signals->handle([tool](int number) { tool->handle(number); });
    int status = 0;
    try {
        auto waiting = tool->running().wait();
        co_await waiting;
    } catch (const Cmd::ExitError& error) {
        status = static_cast<int>(error.status);
    }
    const auto signal = tool->running().endingSignal();
    journal->ended(status, signal);
    co_return signal ? killed + *signal : status;
}

/// Ends serving, and suspends until that has ended. An error that ended it before is told.
template <class Server>
Task<> end(Server* server) {
    try {
        server->stop();
        auto ending = server->untilEnded();
        co_await ending;
    } catch (const std::exception& error) {
        Journal::complain(error.what());
    }
}

Task<int> host(Options options, const Journal* journal, Signals* signals) {
    const std::shared_ptr<Terminal> terminal = Terminal::open(*signals);
    const auto tool = std::make_shared<Tool>(terminal);
    const auto answers =
        std::make_shared<Answers>(options, *journal, terminal, [tool] { tool->end(SIGINT); });
    Editor::Server edits([answers](std::string path) { return answers->edit(std::move(path)); });
    Askpass::Server prompts(
        [answers](std::string prompt) { return answers->answer(std::move(prompt)); });
    int status = ownFailure;
    try {
        auto environment = toolEnvironment(edits, prompts, options.keepsAskpass);
        auto running = run(tool, journal, options.command, std::move(environment), signals);
        status = co_await running;
    } catch (const std::exception& error) {
        Journal::complain(error.what());
    }
    // Nothing is to go on while the process exits.
    auto endEdits = end(&edits);
    co_await endEdits;
    auto endPrompts = end(&prompts);
    co_await endPrompts;
    if (terminal) terminal->restore();
    if (const auto signal = tool->interruption()) Signals::obey(*signal);
    co_return status;
}

/// The way from a tool to the small program, where a tool that knows no shell passes the file after
/// other words: becomes that program, told which host to ask, with the file's whole path alone.
void becomeEditor(const std::string& host, const std::string& file) {
    const std::string shim = shimPath("editor-shim");
    ::setenv(handOffVariable, host.c_str(), 1); // NOLINT(concurrency-mt-unsafe): no threads yet
    const std::string path = fs::absolute(file);
    ::execl(shim.c_str(), shim.c_str(), path.c_str(), nullptr);
    throw Errno(errno, shim);
}

/// What the command is to inherit must be no file of ours, and what it ends with must be told.
void ownStandardStreams() {
    FileDescriptor null;
    do {
        [[maybe_unused]] const int standard = null.release(); // open for good
        null = FileDescriptor(::open("/dev/null", O_RDWR | O_CLOEXEC));
    } while (null && null.get() <= STDERR_FILENO);
    struct sigaction byDefault{};
    byDefault.sa_handler = SIG_DFL;
    ::sigaction(SIGCHLD, &byDefault, nullptr);
}

} // namespace

} // namespace TerminalHost

int main() {
    using namespace TerminalHost;
    try {
        ownStandardStreams();
        const auto arguments = ProcessInfo::arguments();
        if (arguments.size() > 3 && arguments[1] == asEditor) {
            becomeEditor(arguments[2], arguments.back());
        }
        const Options options = parseOptions(arguments);
        if (options.answer) {
            std::cout << *options.answer << std::flush;
            return std::cout ? EXIT_SUCCESS : ownFailure;
        }
        const Journal journal(options.isVerbose, options.logPath);
        Signals signals;
        return runMain(host(options, &journal, &signals));
    } catch (const UsageError& error) {
        std::cerr << "terminal-host: " << error.what() << " (see terminal-host --help)\n";
    } catch (const std::exception& error) {
        Journal::complain(error.what());
    }
    return ownFailure;
}
