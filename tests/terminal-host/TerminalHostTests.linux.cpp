#include <poll.h>
#include <pty.h>
#include <support/RealTools.h>
#include <sys/syscall.h>
#include <termios.h>
#include <utmp.h>

namespace Platform {
namespace {

/// A terminal, and a shell script that leads a session on it.
class Pty {
public:
    explicit Pty(const std::string& script) {
        int master = -1, slave = -1;
        EXPECT_EQ(::openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
        ::fcntl(master, F_SETFD, FD_CLOEXEC);
        master_ = FileDescriptor(master);
        initialModes = modes();
        id_ = ::fork();
        if (id_ == 0) {
            ::login_tty(slave);
            ::execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
            ::_exit(127);
        }
        FileDescriptor(slave).reset();
        end_ = FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, id_, 0)));
    }
    ~Pty() {
        if (id_ < 0) return;
        ::kill(id_, SIGKILL);
        wait();
    }

    std::string initialModes;
    pid_t id() const noexcept { return id_; }

    void type(std::string_view text) const { master_.write(std::as_bytes(std::span(text))); }

    /// Waits until this was written; returns what came before it. Both are forgotten.
    std::string until(std::string_view text) {
        std::size_t place = output_.find(text);
        while (place == output_.npos && readMore()) place = output_.find(text);
        if (place == output_.npos) {
            ADD_FAILURE() << "no \"" << text << "\" in: " << output_;
            return {};
        }
        std::string before = output_.substr(0, place);
        output_.erase(0, place + text.size());
        return before;
    }

    /// The terminal's modes, to be compared.
    std::string modes() const {
        termios value{};
        ::tcgetattr(master_.get(), &value);
        return {reinterpret_cast<const char*>(&value), sizeof value};
    }
    bool echoes() const {
        termios value{};
        ::tcgetattr(master_.get(), &value);
        return (value.c_lflag & ECHO) != 0;
    }

    /// Waits for the script's end. The output is what was not asked for yet.
    Process::Result wait() {
        while (readMore()) continue;
        int status = 0;
        ::waitpid(std::exchange(id_, -1), &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), output_, ""};
    }

private:
    /// False: the script has ended, or the deadline has passed.
    bool readMore() {
        pollfd events[] = {{master_.get(), POLLIN, 0}, {end_.get(), POLLIN, 0}};
        const int count = ::poll(events, 2, 30'000);
        if ((events[0].revents & POLLIN) != 0) {
            std::array<std::byte, 4096> chunk;
            output_ += master_.readData(chunk).view();
            return true;
        }
        if (count > 0) return false;
        ADD_FAILURE() << "no more than: " << output_;
        ::kill(id_, SIGKILL);
        return false;
    }

    FileDescriptor master_, end_;
    std::string output_;
    pid_t id_ = -1;
};

class TerminalHost : public RealTools {
protected:
    /// Kills a process that still runs, by what a shell wrote of its id.
    static void endProcess(const std::string& id) {
        const int number = std::atoi(id.c_str());
        ASSERT_GT(number, 1) << id; // anything else would mean this process's group
        EXPECT_EQ(::kill(number, SIGKILL), 0);
    }

    const std::string host = program("terminal-host");
};

TEST_F(TerminalHost, AnswersRealToolsWithAndWithoutATerminal) {
    const std::string script = PLATFORM_HELPER_DIR "/../terminal-host/real-tools.sh";
    const auto without = run({script, host});
    EXPECT_EQ(without.status, 0) << without.output << without.errors;
    std::filesystem::create_directory("with");
    Pty pty("cd with && exec '" + script + "' '" + host + "'");
    const auto with = pty.wait();
    EXPECT_EQ(with.status, 0) << with.output;
}

TEST_F(TerminalHost, StandsInForItsCommand) {
    const auto streams =
        run({"sh", "-c", "printf in | \"$0\" --accept sh -c 'cat; echo error >&2; exit 3'", host});
    EXPECT_EQ(streams.status, 3);
    EXPECT_EQ(streams.output, "in");
    EXPECT_EQ(streams.errors, "error\n");
    EXPECT_EQ(run({host, "sh", "-c", "kill -KILL $$"}).status, 128 + SIGKILL);
    EXPECT_EQ(run({host, "nothing-of-this-name"}).status, 127);
    const auto closed = run({"sh", "-c", "\"$0\" --log log sh -c 'cat; echo lost' <&- >&-", host});
    EXPECT_EQ(closed.status, 0) << closed.errors;
    EXPECT_EQ(contentsOf("log").find("lost"), std::string::npos);
    const auto relative = run({host, "--message", "text", "sh", "-c",
                               "mkdir sub; cd sub; $EDITOR one && ! eval \"$GIT_EDITOR two\""});
    EXPECT_EQ(relative.status, 0) << relative.errors;
    EXPECT_EQ(contentsOf("sub/one"), "text\n");
    EXPECT_FALSE(std::filesystem::exists("two")) << "relative to nobody knows what";
    const auto daemon = run(
        {host, "--askpass", "setsid sleep 1000 & echo $! $1 #", "sh", "-c", "$GIT_ASKPASS 'Who?'"});
    endProcess(daemon.output); // which has not held up its host
    EXPECT_EQ(run({host, "/etc/passwd"}).status, 126);
    for (const char* const wrong : {"", "--", "--edit", "--no true", "--accept=1 true",
                                    "--accept --decline true", "--message-file missing true"}) {
        const auto refused = run({"sh", "-c", std::string("\"$0\" ") + wrong, host});
        EXPECT_EQ(refused.status, 125) << wrong;
        EXPECT_TRUE(refused.errors.starts_with("terminal-host: ")) << refused.errors;
    }
    // A gigabyte comes through, and a daemon that keeps the streams holds nobody up.
    const std::string gigabyte = "head -c 1073741824 /dev/zero";
    EXPECT_EQ(run({"sh", "-c", "\"$0\" " + gigabyte + " | cksum", host}).output,
              run({"sh", "-c", gigabyte + " | cksum"}).output);
    const auto leaves = run({host, "sh", "-c", "setsid sleep 1000 & echo $!"});
    EXPECT_EQ(leaves.status, 0);
    endProcess(leaves.output);
    const auto keeps = run({host, "--keep-askpass", "sh", "-c", "echo $GIT_ASKPASS $SSH_ASKPASS"},
                           {{"GIT_ASKPASS", "mine"}, {"SSH_ASKPASS", std::nullopt}});
    EXPECT_EQ(keeps.output, "mine " + program("askpass-shim") + "\n");
}

TEST_F(TerminalHost, TellsWhatWasAskedButNoAnswer) {
    const std::string ask = "$EDITOR '/a \"file\"'; $GIT_ASKPASS 'Who?' >answer; cat answer";
    const auto told = run({host, "--verbose", "--log", "log", "--decline", "--askpass",
                           "echo s3cret #", "sh", "-c", ask + "; kill -TERM $$"});
    EXPECT_EQ(told.output, "s3cret\n");
    EXPECT_EQ(told.errors, "terminal-host: declined: edit /a \"file\"\n"
                           "editorClient: error: Operation canceled\n"
                           "terminal-host: answered: prompt Who?\n");
    const auto read = run({"python3", "-c", R"(import json
for line in open('log'):
    entry = json.loads(line)
    print(*[entry[key] for key in sorted(entry) if key not in ('time', 'seconds', 'process')]))"});
    EXPECT_EQ(read.output, "start /usr/bin/sh\ndeclined edit /a \"file\"\nanswered prompt Who?\n"
                           "end 15\n");
    EXPECT_EQ(contentsOf("log").find("s3cret"), std::string::npos);
}

TEST_F(TerminalHost, LeavesTheTerminalAsItWas) {
    const auto ending = [&](const std::string& words, const std::string& waitsFor, auto act) {
        Pty pty("exec '" + host + "' " + words);
        pty.until(waitsFor);
        act(pty);
        const auto result = pty.wait();
        EXPECT_EQ(pty.modes(), pty.initialModes) << words;
        return result;
    };
    const auto typing = [](std::string_view keys) { return [=](Pty& pty) { pty.type(keys); }; };
    const auto signalling = [](int number) { return [=](Pty& pty) { ::kill(pty.id(), number); }; };

    const std::string prompt = "Secret [2J? ";
    const std::string ask = "sh -c '$GIT_ASKPASS \"Secret\x1B[2J?\" >answer; echo \"status $?\"'";
    const auto answered = ending(ask, prompt, [](Pty& pty) {
        EXPECT_FALSE(pty.echoes());
        pty.type("s3cret\r");
    });
    EXPECT_EQ(answered.status, 0);
    EXPECT_EQ(answered.output, "\r\nstatus 0\r\n");
    EXPECT_EQ(contentsOf("answer"), "s3cret\n");
    EXPECT_EQ(ending(ask, prompt, typing("s3cr\x04\x04")).status, 0);
    EXPECT_EQ(contentsOf("answer"), "\n") << "the end of input declines";
    EXPECT_EQ(ending(ask, prompt, typing("\x03")).status, -SIGINT);
    EXPECT_EQ(ending(ask, prompt, typing("\x1C")).status, -SIGQUIT);
    EXPECT_EQ(ending(ask, prompt, signalling(SIGTERM)).status, -SIGTERM);
    EXPECT_EQ(ending(ask, prompt, signalling(SIGHUP)).status, -SIGHUP);
    ASSERT_EQ(::mkfifo("fifo", 0600), 0);
    const std::string goesOn = "sh -c '$GIT_ASKPASS Secret & read never <fifo; exit 4'";
    EXPECT_EQ(ending(goesOn, "Secret", [](Pty&) { write("fifo", "now\n"); }).status, 4);
    const std::string asks = "--askpass 'echo asked >/dev/tty; sleep 1000; :' " + ask;
    EXPECT_EQ(ending(asks, "asked", typing("\x03")).status, -SIGINT);

    Pty job("set -m; '" + host + "' " + ask + "; echo stopped; fg >/dev/null");
    job.until(prompt);
    job.type("\x1A");
    EXPECT_EQ(job.until("stopped\r\n" + prompt), "");
    EXPECT_FALSE(job.echoes());
    job.type("s3cret\r");
    EXPECT_EQ(job.wait().output, "\r\nstatus 0\r\n");
    EXPECT_EQ(job.modes(), job.initialModes);
    EXPECT_EQ(contentsOf("answer"), "s3cret\n");

    Pty background("set -m; '" + host + "' " + ask +
                   " & until grep -q '^State:.T' /proc/$!/status; do :; done; echo stopped; stty "
                   "-a; fg >/dev/null");
    background.until("stopped\r\n");
    EXPECT_NE(background.until(prompt).find(" echo "), std::string::npos);
    background.type("s3cret\r");
    EXPECT_EQ(background.wait().output, "\r\nstatus 0\r\n");

    EXPECT_EQ(run({"git", "init", "-q", "."}).status, 0);
    const auto committing = [&](const std::string& editor, auto act) {
        const Variable variable("EDITOR", editor);
        return ending("git commit -q --allow-empty -e -m Text", "editing", act).status;
    };
    const std::string talks = "f() { stty raw -echo; echo editing; ";
    write("ready", "editing\n"); // by a program: a shell may miss an interrupt while it starts one
    EXPECT_EQ(committing("tail -f ready", typing("\x03")), -SIGINT);
    EXPECT_EQ(committing("tail -f ready; exit 0 #", typing("\x03")), -SIGINT);
    EXPECT_EQ(committing(talks + "kill -KILL $$; }; f", typing("")), 1);
    EXPECT_EQ(committing(talks + "exit 1; }; f", typing("")), 1);
    EXPECT_EQ(committing(talks + "read -r line; }; f", signalling(SIGTERM)), -SIGTERM);
    write("survives", "trap '' INT; echo editing; read line");
    EXPECT_EQ(committing("sh survives", typing("\x03\r")), 0);
    EXPECT_EQ(run({"git", "rev-list", "--count", "HEAD"}).output, "1\n");
    EXPECT_EQ(committing(talks + "read -r line; }; f", typing("\n")), 0);
}

TEST_F(TerminalHost, PassesSignalsOnToItsCommand) {
    write("command", "for name in WINCH USR1 USR2; do trap \"echo $name\" $name; done; "
                     "trap 'exit 7' TERM; echo ready; while kill -0 $PPID; do :; done");
    Pty pty("exec '" + host + "' sh command");
    pty.until("ready\r\n");
    const std::pair<int, const char*> signals[] = {
        {SIGWINCH, "WINCH"}, {SIGUSR1, "USR1"}, {SIGUSR2, "USR2"}};
    for (int round = 0; round < rounds(20, 2'000); ++round) {
        const auto& [number, name] = signals[round % 3];
        if (round > 2) ::kill(pty.id(), SIGCONT); // a second signal comes right after the first
        ::kill(pty.id(), number);
        EXPECT_EQ(pty.until(std::string(name) + "\r\n"), "");
    }
    ::kill(pty.id(), SIGTERM);
    EXPECT_EQ(pty.wait().status, 7);
}

TEST_F(TerminalHost, StaysAsSmallThroughManyAndLargeEdits) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr long slack = 16384; // they keep what was freed
#else
    constexpr long slack = 512;
#endif
    const std::string peak = "grep VmHWM /proc/$PPID/status | tr -dc 0-9; echo; ";
    const int count = rounds(200, 10'000);
    const std::string ask =
        "ask() { for i in $(seq $1); do eval \"$GIT_EDITOR $PWD/f\" || exit; done; }; ";
    const std::string script = ask + "ask 100; " + peak + "ask \"$0\"; " + peak;
    const auto many = Process({host, "--accept", "sh", "-c", script, std::to_string(count)})
                          .wait(std::chrono::minutes(10));
    EXPECT_EQ(many.status, 0) << many.errors;
    long before = 0, after = 0;
    EXPECT_EQ(std::sscanf(many.output.c_str(), "%ld %ld", &before, &after), 2) << many.output;
    EXPECT_LT(after, before + slack) << "KiB";

    const auto large = run({"sh", "-c", R"(
        git init -q . && yes 'a line of a text' | head -c 41943040 >large && git add large &&
        "$0" --edit "sed -i '1s/^/Large/'" -- sh -c "git commit -q -v; $1"; git log --format=%s)",
                            host, peak});
    EXPECT_EQ(std::sscanf(large.output.c_str(), "%ld", &after), 1) << large.output << large.errors;
    EXPECT_NE(large.output.find("\nLarge\n"), std::string::npos) << large.output;
    EXPECT_LT(after, before + slack) << "KiB";
}

} // namespace
} // namespace Platform
