#include <terminal-host/Options.h>

#include <cstddef>
#include <fstream>
#include <sstream>
#include <string_view>
#include <utility>

namespace TerminalHost {

namespace {

constexpr const char* help = R"(Usage: terminal-host [OPTION]... [--] COMMAND [ARGUMENT]...

Runs COMMAND, and answers what it and the tools that it starts ask their user:
to edit a file (git, hg, crontab, visudo), to type a password (git, ssh, sudo).

Edits; without any of these, by $VISUAL or $EDITOR on the terminal:
  --edit COMMAND       run this shell command on each file; status 0 accepts
  --message TEXT       write TEXT into the file; when given again, the second
                       is for the second file, and the last for all others
  --message-file FILE  the same with the contents of FILE
  --accept             accept each file as it is
  --decline            decline every edit
  --todo COMMAND       as --edit, for the plan of a rebase or histedit alone
                       (with messages and without this it is accepted as it is)

Prompts; without any of these they are asked on the terminal, without echo:
  --askpass COMMAND    run this shell command on each prompt; the first line of
                       its output is the answer, another status than 0 declines
  --decline-prompts    decline every prompt
  --keep-askpass       leave askpass programs that the environment names already

  --verbose            tell each request and its answer on standard error
  --log FILE           append the same to FILE, a JSON object a line
  --help, --version

Ends with COMMAND's exit status, 128 + N when signal N ended it; 125 when
terminal-host itself failed, 126 when COMMAND cannot be run, 127 when it is not
found.
)";

std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    if (file.peek() != std::ifstream::traits_type::eof()) contents << file.rdbuf();
    if (!file.is_open() || file.bad()) throw UsageError("cannot read " + path);
    return contents.str();
}

/// Goes through the command line.
class Parser {
public:
    explicit Parser(const std::vector<std::string>& arguments) : arguments_(arguments) {}

    Options parse() {
        while (at_ < arguments_.size() && arguments_[at_].starts_with('-')) {
            const std::string argument = arguments_[at_++];
            if (argument == "--") break;
            const std::size_t equals = argument.find('=');
            name_ = argument.substr(0, equals);
            value_ =
                equals == argument.npos ? std::nullopt : std::optional(argument.substr(equals + 1));
            option();
            if (options_.answer) return options_;
            if (value_) throw UsageError(name_ + " takes no value");
        }
        options_.command.assign(arguments_.begin() + static_cast<std::ptrdiff_t>(at_),
                                arguments_.end());
        if (options_.command.empty()) throw UsageError("no command is given");
        return options_;
    }

private:
    void option() {
        using Edits = Options::Edits;
        using Prompts = Options::Prompts;
        if (name_ == "--edit") {
            choose(options_.edits, Edits::byCommand);
            options_.editCommand = shellCommand();
        } else if (name_ == "--message") {
            choose(options_.edits, Edits::byMessage);
            options_.messages.push_back(value() + "\n");
        } else if (name_ == "--message-file") {
            choose(options_.edits, Edits::byMessage);
            options_.messages.push_back(contentsOf(value()));
        } else if (name_ == "--accept") {
            choose(options_.edits, Edits::accepted);
        } else if (name_ == "--decline") {
            choose(options_.edits, Edits::declined);
        } else if (name_ == "--todo") {
            options_.planCommand = shellCommand();
        } else if (name_ == "--askpass") {
            choose(options_.prompts, Prompts::byCommand);
            options_.askpassCommand = shellCommand();
        } else if (name_ == "--decline-prompts") {
            choose(options_.prompts, Prompts::declined);
        } else if (name_ == "--keep-askpass") {
            options_.keepsAskpass = true;
        } else if (name_ == "--verbose") {
            options_.isVerbose = true;
        } else if (name_ == "--log") {
            options_.logPath = value();
        } else if (name_ == "--help") {
            options_.answer = help;
        } else if (name_ == "--version") {
            options_.answer = "terminal-host " TERMINAL_HOST_VERSION "\n";
        } else {
            throw UsageError("unknown option " + name_);
        }
    }

    /// The option's value, from behind the '=' or the next argument.
    std::string value() {
        if (value_) return *std::exchange(value_, std::nullopt);
        if (at_ == arguments_.size()) throw UsageError(name_ + " needs a value");
        return arguments_[at_++];
    }

    /// A shell command: the file or the prompt would become the command in the place of none.
    std::string shellCommand() {
        std::string command = value();
        if (command.find_first_not_of(" \t\n") == command.npos) {
            throw UsageError(name_ + " needs a command");
        }
        return command;
    }

    template <class Way>
    void choose(Way& chosen, Way way) {
        if (chosen != Way() && chosen != way) {
            throw UsageError(name_ + " contradicts an earlier option");
        }
        chosen = way;
    }

    const std::vector<std::string>& arguments_;
    std::size_t at_ = 1;
    std::string name_;
    std::optional<std::string> value_;
    Options options_;
};

} // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
    return Parser(arguments).parse();
}

} // namespace TerminalHost
