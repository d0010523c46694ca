// askpass-host BIN COMMAND: runs a shell command whose questions are answered on this terminal:
// prompts for user names and passwords with a line of standard input (declined at its end), edits
// by $EDITOR's stand-in here, accepting the file as it is. BIN is the folder of editor-shim and
// askpass-shim.
#include <Platform/Platform.h>

#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>

#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

extern "C" char** environ; // NOLINT(readability-redundant-declaration): not everywhere in a header

// Nobody else reads standard input, so this may block: it runs on a queue of its own.
static std::optional<std::string> readAnswer(const std::string& prompt) {
    std::cerr << prompt << ' ' << std::flush;
    termios before{};
    const bool isTerminal = tcgetattr(STDIN_FILENO, &before) == 0;
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    if (isTerminal) tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    std::string line;
    const bool answered = static_cast<bool>(std::getline(std::cin, line));
    if (isTerminal) tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
    std::cerr << (answered ? "(answered)" : "(declined)") << std::endl;
    return answered ? std::optional(line) : std::nullopt;
}

static Platform::SerialQueue& terminal() {
    static Platform::SerialQueue queue("terminal");
    return queue;
}

static Platform::Task<std::optional<std::string>> askTheUser(std::string prompt) {
    using Answer = std::optional<std::string>;
    auto asking = Platform::withCheckedContinuation<Answer>("ask", [&](auto continuation) {
        terminal().submit([continuation, prompt] { continuation.resume(readAnswer(prompt)); });
    });
    co_return co_await asking;
}

int main(int, char** argv) {
    const std::string bin = argv[1];
    Platform::Askpass::Server prompts(askTheUser);
    Platform::Editor::Server edits([](std::string path) -> Platform::Task<bool> {
        std::cerr << "accepted as it is: " << path << std::endl;
        co_return true;
    });

    // Both programs read the same variable. The askpass one is run as a bare path, so the
    // environment speaks to it; git's editor is a shell snippet, which can bring its own.
    for (auto& [name, value] : prompts.environment()) setenv(name.c_str(), value.c_str(), 1);
    const std::string editor = "MV_EDITOR_CONN='" + edits.path() + "' '" + bin + "/editor-shim'";
    setenv("GIT_EDITOR", editor.c_str(), 1);
    const std::string askpass = bin + "/askpass-shim";
    for (const char* name : {"GIT_ASKPASS", "SSH_ASKPASS", "SUDO_ASKPASS"}) {
        setenv(name, askpass.c_str(), 1);
    }
    setenv("SSH_ASKPASS_REQUIRE", "force", 1);

    // In a process group of its own: when an askpass program fails it interrupts its whole group,
    // so that the tool gives up, and that must not reach this host.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    pid_t tool = 0;
    char shell[] = "sh";
    char option[] = "-c";
    char* const arguments[] = {shell, option, argv[2], nullptr};
    if (posix_spawnp(&tool, shell, nullptr, &attributes, arguments, environ) != 0)
        return EXIT_FAILURE;
    int status = 0;
    waitpid(tool, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}
