#include <Platform/transport/detail/Presence.h>

#include <Platform/transport/detail/Attendance.h>
#include <Platform/transport/detail/LocalSocket.h>

#include <support/BarePeer.h>
#include <support/Commands.h>
#include <support/HandOffs.h>

namespace Platform {
namespace {

constexpr std::chrono::seconds patience(10); // of a loaded machine; who hangs does so for good

Cmd client(const std::string& pipe, std::string argument, const std::string& name = "editor-shim") {
    return command(program(name), {std::move(argument)}, {{"MV_EDITOR_CONN", pipe}});
}

Task<bool> accept(std::string) {
    co_return true;
}

/// How long a client that is answered at once takes here.
std::chrono::nanoseconds usualTime() {
    const Editor::Server server(accept);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 5; ++i) runMain(client(server.path(), "x").run());
    return (std::chrono::steady_clock::now() - start) / 5;
}

/// Waits for the end, however it comes.
void end(const std::shared_ptr<Cmd::RunningInstance>& instance) {
    try {
        runMain(instance->wait());
    } catch (const Cmd::ExitError&) {
    }
}

TEST(LocalSocket, HasHungUpWhenThePeerHasClosedWhateverIsLeftToRead) {
    for (const bool hasBytes : {false, true}) {
        SCOPED_TRACE(hasBytes);
        int ends[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        const FileDescriptor connection(ends[0]);
        FileDescriptor peer(ends[1]);
        if (hasBytes) peer.write(Data("x"));
        EXPECT_FALSE(detail::hasHungUp(connection));
        {
            const Faults shortage(Faults::failing(SystemCall::poll, EAGAIN));
            EXPECT_FALSE(detail::hasHungUp(connection));
        }
        peer.reset();
        EXPECT_TRUE(detail::hasHungUp(connection));
    }
}

} // namespace

class Presence : public testing::Test {
protected:
    /// Lets a random part of a time pass.
    void passSome(std::chrono::nanoseconds most) {
        const auto end = std::chrono::steady_clock::now() + most / 1000 * (random_() % 1000);
        while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
    }

    std::ptrdiff_t presences() const {
        using Entries = std::filesystem::directory_iterator;
        return std::distance(Entries(directory_ / "mv.presence"), Entries());
    }

    const OwnTemporaryDirectory directory_;
    std::mt19937 random_{1};
};

/// Ends a client at an instant that nobody foresees, and then serves one as if nothing had been.
TEST_F(Presence, ClientsMayDieAtAnyInstant) {
    const auto usual = usualTime();
    std::atomic<int> asked = 0;
    Editor::Server server([&](std::string path) -> Task<bool> {
        ++asked;
        co_return path.ends_with("/alive");
    });
    for (int round = 0; round < rounds(300, 10'000); ++round) {
        SCOPED_TRACE(round);
        const std::string number = std::to_string(round);
        const bool isLarge = random_() % 8 == 0; // more than a pipe holds
        const auto killed =
            client(server.path(), std::string(isLarge ? 100'000 : 1, 'x') + number).start();
        passSome(usual * 2);
        ::kill(killed->processIdentifier(), SIGKILL);
        if (random_() % 4 == 0) end(killed); // else the next comes while this one goes
        runMain(client(server.path(), number + "/alive").run({.timeLimit = patience}));
        if (testing::Test::HasFailure()) return;
        end(killed);
    }
    EXPECT_GT(asked, rounds(300, 10'000));
    while (server.openHandOffs() > 0) std::this_thread::yield();
}

/// A dying client closes the pipe and its connection in an order of the system's.
TEST_F(Presence, ClientsMayDieWhileTheyReadALargeAnswer) {
    const auto usual = usualTime();
    const Askpass::Server server([](std::string prompt) -> Task<std::optional<std::string>> {
        co_return prompt == "short" ? "answer" : std::string(200'000, 'x');
    });
    for (int round = 0; round < rounds(200, 5'000); ++round) {
        SCOPED_TRACE(round);
        const auto killed = client(server.path(), "long", "askpass-shim").start();
        passSome(usual * 4);
        ::kill(killed->processIdentifier(), SIGKILL);
        const Cmd next = client(server.path(), "short", "askpass-shim");
        ASSERT_EQ(runMain(next.outputString({.timeLimit = patience})), "answer\n");
        end(killed);
    }
}

TEST_F(Presence, ClientsOfAHostThatAnswersAtOnceNeverWait) {
    const Editor::Server server(accept);
    for (int round = 0; round < rounds(300, 100'000); ++round) {
        SCOPED_TRACE(round);
        runMain(client(server.path(), "/x").run({.timeLimit = patience}));
    }
}

TEST_F(Presence, ClientsDoNotOutliveTheirHost) {
    const auto usual = usualTime();
    std::map<std::int64_t, int> seen;
    for (int round = 0; round < rounds(60, 1'000); ++round) {
        SCOPED_TRACE(round);
        Cmd host = command(program("helper-host"));
        host.standardOutput = std::make_shared<Cmd::Channel>();
        const auto running = host.start();
        const Data line = first(host.standardOutput);
        const std::string path(line.view().substr(0, line.size() - 1));
        std::vector<TaskHandle<std::int64_t>> clients;
        for (const char* const what : {"wait", "accept", "wait"}) {
            const Cmd cmd = client(path, random_() % 2 == 0 ? what : "accept");
            clients.push_back(detached([cmd]() -> Task<std::int64_t> {
                try {
                    co_await cmd.run({.timeLimit = patience});
                } catch (const Cmd::ExitError& error) {
                    co_return error.status;
                }
                co_return 0;
            }));
        }
        passSome(usual * 6);
        ::kill(running->processIdentifier(), SIGKILL);
        for (auto& one : clients) ++seen[result(std::move(one))];
        end(running);
    }
    EXPECT_EQ(seen.size(), 2U) << "status 0 or 1, nothing else";
    EXPECT_GT(seen[1], rounds(60, 1'000));
    // What they left goes with the next server.
    const Editor::Server next(accept);
    EXPECT_EQ(presences(), 1);
    EXPECT_EQ(directory_.pipes(), 1);
}

/// A queue of connections that is full refuses on macOS, as the socket of a dead host does.
TEST_F(Presence, AStoppedHostKeepsItsPipeAndItsClients) {
    // A path with no room in a socket's address: each connect goes through its directory.
    const std::string deep = directory_ / std::string(120, 'd').c_str();
    const Variable longPath("TMPDIR", deep);
    Cmd host = command(program("helper-host"));
    host.standardOutput = std::make_shared<Cmd::Channel>();
    const auto running = host.start();
    const Data line = first(host.standardOutput);
    const std::string path(line.view().substr(0, line.size() - 1));
    ::kill(running->processIdentifier(), SIGSTOP);
    int failure = 0;
    while (failure == 0) { // a connection stays in the queue when its client has gone
        const FileDescriptor visitor = detail::makeLocalSocket();
        const detail::LocalAddress address(detail::presencePath(path));
        ::fcntl(visitor.get(), F_SETFL, O_NONBLOCK);
        if (::connect(visitor.get(), address.get(), address.size()) != 0) failure = errno;
    }
    const Editor::Server next(accept); // removes what dead hosts have left
    EXPECT_TRUE(isPipe(path));
    EXPECT_TRUE(std::filesystem::is_socket(detail::presencePath(path)));

    static std::atomic<int> connects;
    connects = 0;
    const Faults counting([](SystemCall call, std::size_t*) {
        if (call == SystemCall::connect) {
            ++connects;
            connects.notify_all();
        }
        return 0;
    });
    sigset_t notices; // are for the thread that has the turn
    sigemptyset(&notices);
    for (const int number : {SIGIO, SIGALRM}) sigaddset(&notices, number);
    ::pthread_sigmask(SIG_BLOCK, &notices, nullptr);
    auto attending = std::async(std::launch::async, [&] {
        const detail::Attendance turn(path);
        ::kill(running->processIdentifier(), SIGKILL);
        end(running);
        return turn.hostHasGone(); // never known without presence
    });
    // Linux holds up the first connect; macOS refuses it, and the client asks and tries again.
    const int least = failure == EAGAIN ? 1 : 3;
    while (connects < least &&
           attending.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        std::this_thread::yield();
    ::kill(running->processIdentifier(), SIGCONT);
    EXPECT_TRUE(attending.get());
}

TEST_F(Presence, ParallelClientsNeverCross) {
    std::atomic<std::size_t> most = 0;
    Editor::Server edits([&](std::string path) -> Task<bool> {
        most = std::max(most.load(), edits.openHandOffs());
        co_return std::hash<std::string>()(path) % 2 == 0;
    });
    Askpass::Server prompts([](std::string prompt) -> Task<std::optional<std::string>> {
        co_return "answer to " + prompt;
    });
    for (int round = 0; round < rounds(3, 100); ++round) {
        auto body = [&](TaskGroup<>& group) -> Task<> {
            for (int i = 0; i < 64; ++i) {
                std::string text = std::to_string(i);
                text.append(random_() % 4 == 0 ? random_() % 100'000 : random_() % 100, 'x');
                Cmd cmd = client(i % 2 == 0 ? edits.path() : prompts.path(), text);
                if (i % 2 == 0) {
                    cmd.expectedExitStatus = {std::hash<std::string>()(text) % 2 == 0 ? 0 : 1};
                    group.addTask([cmd] { return cmd.run({.timeLimit = patience}); });
                } else {
                    cmd.path = program("askpass-shim");
                    group.addTask([cmd, text]() -> Task<> {
                        const Data answer = co_await cmd.output({.timeLimit = patience});
                        EXPECT_TRUE(answer.view() == "answer to " + text + "\n");
                    });
                }
            }
            co_await group.waitForAll();
        };
        runMain(withTaskGroup<>(body));
    }
    EXPECT_GT(most, 1U) << "none waited for its turn";
    while (edits.openHandOffs() > 0) std::this_thread::yield();
}

/// Real git in parallel, two questions each, as a fetch of many submodules asks.
TEST_F(Presence, ParallelToolsGetTheirOwnSecrets) {
    const Askpass::Server prompts([](std::string prompt) -> Task<std::optional<std::string>> {
        co_return prompt.substr(0, 4) + prompt.substr(prompt.find("host-"), 7); // "User", "Pass"
    });
    auto fills = [&](TaskGroup<>& group) -> Task<> {
        for (int i = 10; i < 34; ++i) {
            const std::string host = "host-" + std::to_string(i);
            const Cmd git = command(
                "/bin/sh",
                {"-c", "printf 'protocol=https\\nhost=" + host + "\\n\\n' | git credential fill"},
                {{"MV_EDITOR_CONN", prompts.path()}, {"GIT_ASKPASS", program("askpass-shim")}});
            group.addTask([git, host]() -> Task<> {
                EXPECT_EQ(co_await git.outputString({.timeLimit = patience}),
                          "protocol=https\nhost=" + host + "\nusername=User" + host +
                              "\npassword=Pass" + host + "\n");
            });
        }
        co_await group.waitForAll();
    };
    runMain(withTaskGroup<>(fills));
}

/// The example's window closes when the tool that waits for it is killed, and the next is served.
TEST_F(Presence, ClosesTheWindowOfAToolThatGaveUp) {
    const std::string window = directory_ / "window";
    writeScript(directory_ / "editor", "case $1 in *wait) trap \"rm '" + window +
                                           "'; exit\" TERM; echo > '" + window +
                                           "'; while :; do :; done;; esac");
    const std::string shim = "'" + program("editor-shim") + "' ";
    const auto result =
        run({program("example-window-host"), directory_ / "editor",
             shim + "/wait & while ! [ -e '" + window + "' ]; do :; done; " +
                 "kill -9 $!; while [ -e '" + window + "' ]; do :; done; " + shim + "/next"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "opened /wait\nclosed /wait\nopened /next\n");
}

TEST_F(Presence, TellsOfTheEndOfItsHost) {
    LogEntries log;
    Editor::Server server(accept);
    BarePeer malformed(server.path(), "<", "\77");
    EXPECT_EQ(thrownNumber([&] { runMain(server.untilEnded()); }), EBADMSG);
    malformed.finish();
    // Nobody will answer any more: who comes is told so at once.
    const auto late = run({program("editor-shim"), "/late"}, {{"MV_EDITOR_CONN", server.path()}});
    EXPECT_EQ(late.status, 1);
    EXPECT_TRUE(late.errors.starts_with("editorClient: error: the host has ended: Connection re"))
        << late.errors;
    Editor::Server stopped(accept);
    stopped.stop();
    runMain(stopped.untilEnded());
    EXPECT_EQ(presences(), 0) << "a dead one went with the next server";
}

TEST_F(Presence, DoesWithoutWhereItCannotBe) {
    const std::string deep = directory_ / std::string(120, 'd').c_str();
    const Variable longPath("TMPDIR", deep);
    LogEntries log;
    const auto serve = [&deep] {
        const Editor::Server server(accept);
        runMain(client(server.path(), "/x").run());
        return !std::filesystem::is_empty(deep + "/mv.presence");
    };
    EXPECT_TRUE(serve()) << "a path that is too long for a socket";
    const Faults fault(Faults::failing(SystemCall::bind, EPERM, 2));
    EXPECT_FALSE(serve());
    EXPECT_FALSE(serve());
    const auto entries = log.take();
    const auto isOurs = [](const std::string& text) { return text.starts_with("presence: "); };
    EXPECT_LE(std::ranges::count_if(entries, isOurs), 1) << "a process, once";
}

} // namespace Platform
