#include <Platform/command/detail/PrefixSuffixSaver.h>

#include "Children.h"

#include <support/Commands.h>

namespace Platform {

using Channel = Cmd::Channel;
using std::chrono::milliseconds;

namespace {

Cmd shell(std::string script) {
    return command("/bin/sh", {"-c", std::move(script)});
}

TaskHandle<> start(const Cmd& cmd, Cmd::Options options = {}) {
    return detached([cmd, options] { return cmd.run(options); });
}

std::string text(Task<Data>&& task) {
    return std::string(runMain(std::move(task)).view());
}

/// A command whose output goes to a channel.
Cmd heard(std::string script) {
    Cmd cmd = shell(std::move(script));
    cmd.standardOutput = std::make_shared<Channel>();
    return cmd;
}

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 31 + i / 251);
    return bytes;
}

} // namespace

TEST(Cmd, ExitErrorSaysWhatTheProgramSaid) {
    const auto description = [](std::int64_t status, const char* data) {
        return Cmd::ExitError(status, Data(std::string_view(data))).errorDescription();
    };
    EXPECT_EQ(Cmd::ExitError(0).errorDescription(), "Exit status 0");
    EXPECT_EQ(Cmd::ExitError(-1).errorDescription(), "Exit status -1");
    EXPECT_EQ(Cmd::ExitError(1).errorString(), std::nullopt);
    EXPECT_EQ(Cmd::ExitError(1, Data()).errorString(), std::nullopt);
    EXPECT_EQ(Cmd::ExitError(1, Data("\n")).errorString(), "");
    EXPECT_EQ(description(2, " \t\r\n\v\f\xC2\x85\xC2\xA0\xE2\x80\xA8\xE3\x80\x80"),
              "Exit status 2");
    EXPECT_EQ(description(128, "\n fatal: not\na repository \n"),
              "Exit status 128: fatal: not\na repository");
    EXPECT_EQ(description(3, "\xFF\xE2\x80 x\n"), "Exit status 3: \xEF\xBF\xBD\xEF\xBF\xBD x");
    Cmd::ExitError error(7, Data("a"));
    error.errorData = Data("b");
    EXPECT_EQ(error.errorDescription(), "Exit status 7: b");
    EXPECT_EQ(errorDescription(std::make_exception_ptr(error)), "Exit status 7: a");
}

TEST(Cmd, CapturesWhatIsAskedForAndSavesTheErrorText) {
    const NobodyLeft check;
    const Cmd both = shell("printf 'o\\377 '; printf e >&2");
    EXPECT_EQ(text(both.output()), "o\xFF ");
    EXPECT_EQ(runMain(both.outputString()), "o\xEF\xBF\xBD ");
    EXPECT_EQ(text(shell("echo 1; sleep 0; echo 2 >&2").combinedOutput()).size(), 4U);
    EXPECT_EQ(text(shell(":").output()), "");
    runMain(both.error());

    Cmd failing = shell("printf o; printf e >&2; exit 3");
    EXPECT_EQ(exitError(failing.run())->errorData, std::nullopt);
    EXPECT_EQ(exitError(shell("exit 3").output())->errorData, Data());
    for (const auto& error : {exitError(failing.output()), exitError(failing.outputString()),
                              exitError(failing.combinedOutput()), exitError(failing.error())}) {
        EXPECT_EQ(error->status, 3);
        EXPECT_EQ(error->errorData, Data("e"));
    }
    failing.expectedExitStatus = {0, 3};
    EXPECT_EQ(text(failing.output()), "o");
    failing.expectedExitStatus = {};
    failing.mergeOutputIntoError = true;
    EXPECT_EQ(exitError(failing.output())->errorData->size(), 2U);
    const std::string merged(exitError(failing.error())->errorData->view());
    EXPECT_TRUE(merged == "oe" || merged == "eo") << merged;
    EXPECT_EQ(exitError(shell("kill -9 $$").run())->status, 9);

    const Scratch scratch;
    for (const std::size_t size : {32767U, 32768U, 65535U, 65536U, 65537U, 100000U, 1000000U}) {
        const std::string bytes = pattern(size);
        const std::string path = write(scratch / "bytes", bytes);
        std::string expected = bytes;
        if (size > 65536) {
            expected = bytes.substr(0, 32768) + "\n... omitting " + std::to_string(size - 65536) +
                       " bytes ...\n" + bytes.substr(size - 32768);
        }
        EXPECT_EQ(exitError(shell("cat " + path + " >&2; exit 1").error())->errorData,
                  Data(expected));
        EXPECT_EQ(text(shell("cat " + path).output()), bytes);
    }
    // A saver that is fed in pieces of all sizes keeps the same.
    const std::string bytes = pattern(200000);
    std::mt19937 random(1);
    detail::prefixSuffixSaver saver;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t size =
            std::min<std::size_t>(random() % (random() % 2 ? 70000 : 100), bytes.size() - at);
        saver.append(std::as_bytes(std::span(bytes).subspan(at, size)));
        at += size;
    }
    EXPECT_EQ(saver.text().view(), bytes.substr(0, 32768) + "\n... omitting 134464 bytes ...\n" +
                                       bytes.substr(200000 - 32768));
}

TEST(Cmd, PassesEverythingOnToTheCommandsChannels) {
    const NobodyLeft check;
    Cmd cmd = shell("printf out; printf err >&2; exit $1");
    cmd.arguments.insert(cmd.arguments.end(), {"sh", "0"});
    for (const char* const status : {"0", "1"}) {
        cmd.arguments.back() = status;
        cmd.standardOutput = std::make_shared<Channel>();
        cmd.standardError = std::make_shared<Channel>();
        auto output = collect(cmd.standardOutput);
        auto error = collect(cmd.standardError);
        if (*status == '0') {
            EXPECT_EQ(text(cmd.output()), "out");
        } else {
            EXPECT_EQ(exitError(cmd.output())->errorData, Data("err"));
        }
        EXPECT_EQ(result(std::move(output)).view(), "out");
        EXPECT_EQ(result(std::move(error)).view(), "err");
    }
    // A receiver that has enough closes the channel; the program is not held up by that.
    const Cmd endless = shell("head -c 3000000 /dev/zero; head -c 3000000 /dev/zero >&2");
    for (const bool captures : {false, true}) {
        cmd = endless;
        cmd.standardOutput = std::make_shared<Channel>();
        cmd.standardError = std::make_shared<Channel>();
        auto work = detached([channels = cmd]() -> Task<> {
            for (const auto& channel : {channels.standardOutput, channels.standardError}) {
                co_await channel->receive();
                channel->close();
            }
        });
        captures ? runMain(cmd.error()) : runMain(cmd.run());
        result(std::move(work));
    }
}

TEST(Cmd, CombinesTheStreamsInTheOrderOfTheirChunks) {
    const NobodyLeft check;
    Cmd turns = shell("for i in 1 2 3 4; do printf o; read x; printf e >&2; read x; done");
    turns.standardInput = std::make_shared<Channel>();
    turns.standardOutput = std::make_shared<Channel>();
    turns.standardError = std::make_shared<Channel>();
    auto answering = detached([turns]() -> Task<> {
        for (int i = 0; i < 4; ++i) {
            for (const auto& channel : {turns.standardOutput, turns.standardError}) {
                co_await channel->receive();
                co_await turns.standardInput->send(Data("\n"));
            }
        }
        turns.standardInput->close();
    });
    EXPECT_EQ(text(turns.combinedOutput()), "oeoeoeoe");
    result(std::move(answering));
}

TEST(Cmd, FeedsWhatTheInputChannelGives) {
    const NobodyLeft check;
    Cmd cat = command("/bin/cat", {});
    cat.standardInput = std::make_shared<Channel>();
    cat.standardInput->close();
    EXPECT_EQ(text(cat.output()), "") << "a channel without values";

    const std::string bytes = pattern(1000003);
    const auto feed = [&bytes](std::shared_ptr<Channel> channel, std::size_t size) -> Task<> {
        for (std::size_t at = 0; at < bytes.size(); at += size) {
            co_await channel->send(Data(std::string_view(bytes).substr(at, size)));
        }
        channel->close();
    };
    for (const std::size_t size : {977U, 65536U, 700000U}) {
        cat.standardInput = std::make_shared<Channel>();
        auto feeding = detached([&] { return feed(cat.standardInput, size); });
        EXPECT_EQ(text(cat.output()), bytes);
        result(std::move(feeding));
    }
    // What the program does not read is dropped, or not received any more after its end.
    for (const char* const deaf : {"exec <&-; head -c 2000000 /dev/zero", ":"}) {
        Cmd cmd = shell(deaf);
        cmd.standardInput = std::make_shared<Channel>();
        auto feeding = detached([&]() -> Task<> {
            try {
                co_await feed(cmd.standardInput, 977);
            } catch (const ChannelError&) {
            }
        });
        EXPECT_EQ(text(cmd.output()).size(), *deaf == ':' ? 0U : 2000000U);
        cmd.standardInput->close();
        result(std::move(feeding));
    }
}

TEST(Cmd, RunDeliversEveryByteBeforeItReturns) {
    const NobodyLeft check;
    for (int round = 0; round < rounds(300, 10000); ++round) {
        const std::size_t size = static_cast<std::size_t>(round) * 37 % 66000;
        Cmd cmd = command("/usr/bin/head", {"-c", std::to_string(size), "/dev/zero"});
        if (round % 2 == 1) cmd = shell("exec head -c " + std::to_string(size) + " /dev/zero >&2");
        cmd.standardOutput = cmd.standardError = std::make_shared<Channel>();
        if (round % 2 == 0) cmd.standardError = nullptr;
        if (round % 2 == 1) cmd.standardOutput = nullptr;
        auto reading = collect(round % 2 == 0 ? cmd.standardOutput : cmd.standardError);
        runMain(cmd.run());
        ASSERT_EQ(result(std::move(reading)).size(), size) << round;
    }
    const std::int64_t size = rounds(64, 10240) * (std::int64_t{1} << 20);
    Cmd endless = command("/usr/bin/head", {"-c", std::to_string(size), "/dev/zero"});
    endless.standardOutput = std::make_shared<Channel>();
    auto counting = detached([channel = endless.standardOutput]() -> Task<std::int64_t> {
        std::int64_t count = 0;
        while (auto chunk = co_await channel->receive()) count += std::ssize(chunk->view());
        co_return count;
    });
    runMain(endless.run());
    EXPECT_EQ(result(std::move(counting)), size);
}

TEST(Cmd, AFailedLaunchLeavesNothing) {
    const NobodyLeft check;
    Cmd cmd = command("/bin/true", std::vector<std::string>(4096, "x"));
    runMain(cmd.run());
    cmd.arguments.emplace_back("x");
    cmd.path = "/none";
    const auto number = [](const Cmd& failing) { return thrownNumber([&] { failing.start(); }); };
    EXPECT_EQ(number(cmd), E2BIG) << "before anything else";
    EXPECT_EQ(thrownNumber([&] { runMain(cmd.output()); }), E2BIG);
    EXPECT_EQ(number(command("/bin/true", {std::string(3 << 20, 'x')})), E2BIG);
    EXPECT_EQ(number(command("/none/x", {})), ENOENT);
    EXPECT_EQ(number(command("/tmp", {})), EACCES);

    Cmd streams = command("/bin/cat", {});
    streams.standardInput = streams.standardOutput = streams.standardError =
        std::make_shared<Channel>();
    auto waiting = detached([&]() -> Task<> { co_await streams.standardOutput->receive(); });
    for (int which = 0; which < 3; ++which) {
        const Faults fault([which](SystemCall call, std::size_t*) mutable {
            return call == SystemCall::pipe && which-- == 0 ? EMFILE : 0;
        });
        EXPECT_EQ(number(streams), EMFILE);
    }
    for (const SystemCall call : {SystemCall::fcntl, SystemCall::spawn, SystemCall::watch}) {
        const Faults fault(Faults::failing(call, ENOMEM));
        EXPECT_EQ(number(streams), ENOMEM) << static_cast<int>(call);
    }
    runMain([](std::shared_ptr<Channel> untouched) -> Task<> {
        co_await untouched->send(Data("x")); // not closed
    }(streams.standardOutput));
    result(std::move(waiting));
    // Who follows a capture must not wait for ever.
    cmd.standardOutput = std::make_shared<Channel>();
    auto reading = collect(cmd.standardOutput);
    EXPECT_EQ(thrownNumber([&] { runMain(cmd.output()); }), E2BIG);
    result(std::move(reading));
}

/// Where the system cannot tell of a stream any more, nothing hangs and nothing is passed off as
/// whole.
TEST(Cmd, AFailureInTheMiddleIsAnError) {
    const NobodyLeft check;
    const Cmd large = shell("head -c 300000 /dev/zero; head -c 300000 /dev/zero >&2");
    for (const SystemCall call : {SystemCall::read, SystemCall::watch}) {
        int failures = 0;
        for (int skipped = 0; skipped < 6; ++skipped) {
            const Faults fault([=](SystemCall made, std::size_t*) mutable {
                return made == call && skipped-- == 0 ? ENOMEM : 0;
            });
            try {
                EXPECT_EQ(runMain(large.output()).size(), 300000U);
            } catch (const std::system_error& error) {
                EXPECT_EQ(error.code().value(), ENOMEM);
                ++failures;
            }
        }
        EXPECT_GT(failures, 0);
    }
}

TEST(Cmd, CuttingARunShort) {
    const NobodyLeft check;
    // Says that it is there, and that it was interrupted; writes more than a pipe holds then.
    const Cmd polite =
        heard("trap 'head -c 100000 /dev/zero; exit 5' INT; echo; while :; do :; done");
    auto instance = polite.start();
    first(polite.standardOutput);
    auto rest = collect(polite.standardOutput);
    instance->interrupt();
    EXPECT_EQ(result(std::move(rest)).size(), 0U) << "the stream ends at once";
    EXPECT_EQ(exitError(instance->wait())->status, 5);
    EXPECT_FALSE(instance->isRunning());

    // After the end nothing is cut.
    const std::string rubbish = "head -c 1000 /dev/zero";
    const Cmd quick = heard(rubbish);
    instance = quick.start();
    runMain(instance->wait());
    instance->interrupt();
    instance->terminate();
    rest = collect(quick.standardOutput);
    EXPECT_EQ(result(std::move(rest)).size(), 1000U);

    // Who has stopped hears of it all the same. To name the wait first keeps the instance.
    auto stoppedInstance = shell("kill -STOP $$").start();
    const int stoppedId = stoppedInstance->processIdentifier();
    siginfo_t info{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(stoppedId), &info, WSTOPPED | WNOWAIT), 0);
    auto stopped = detached([instance = std::move(stoppedInstance)]() mutable {
        auto waiting = std::exchange(instance, nullptr)->wait();
        return waiting;
    });
    stopped.cancel();
    EXPECT_THROW(result(std::move(stopped)), CancellationError);
    const Cmd accepting = heard("trap 'exit 0' TERM; echo; while :; do :; done");
    auto running = start(accepting);
    first(accepting.standardOutput);
    running.cancel();
    EXPECT_THROW(result(std::move(running)), CancellationError) << "whatever its status";

    // The last reference goes: the receiver sees the end, the program too.
    const Scratch scratch;
    Cmd reader = heard("echo; cat; echo > " + (scratch / "ended"));
    reader.standardInput = std::make_shared<Channel>();
    instance = reader.start();
    first(reader.standardOutput);
    rest = collect(reader.standardOutput);
    const int id = instance->processIdentifier();
    instance = nullptr;
    EXPECT_EQ(result(std::move(rest)).size(), 0U);
    while (::kill(id, 0) == 0) std::this_thread::yield();
    EXPECT_TRUE(std::filesystem::exists(scratch / "ended"));

    // A receiver that takes nothing holds up the run, but not its cancellation.
    Cmd unheard = heard(rubbish);
    auto held = start(unheard);
    first(unheard.standardOutput);
    result(std::move(held));
    unheard.standardOutput = std::make_shared<Channel>();
    instance = unheard.start();
    runMain(instance->wait());
    held = start(unheard);
    held.cancel();
    EXPECT_THROW(result(std::move(held)), CancellationError);
}

TEST(Cmd, LimitsWhatAProgramMayTake) {
    const NobodyLeft check;
    const milliseconds moment(20);
    const Cmd obedient = shell("sleep 1000");
    EXPECT_EQ(thrownNumber([&] { runMain(obedient.run({.timeLimit = moment})); }), ETIMEDOUT);
    EXPECT_EQ(thrownNumber([&] { runMain(obedient.output({.timeLimit = moment})); }), ETIMEDOUT);
    runMain(shell(":").run({.timeLimit = milliseconds::max()}));
    const Cmd stubborn = shell("trap '' TERM; echo; while :; do :; done");
    EXPECT_EQ(
        thrownNumber([&] { runMain(stubborn.output({.timeLimit = moment, .killAfter = moment})); }),
        ETIMEDOUT);

    // The whole group, its stubborn part too.
    const Cmd family = heard("sh -c 'trap \"\" TERM; echo $$; while :; do :; done' & wait");
    auto running = start(family, {.killAfter = moment, .terminatesGroup = true});
    const int id = std::stoi(std::string(first(family.standardOutput).view()));
    running.cancel();
    EXPECT_THROW(result(std::move(running)), CancellationError);
    while (::kill(id, 0) == 0) std::this_thread::yield();

    // Others that hold the pipe: a run does not wait for them, a capture does unless it is told.
    const std::string leaves = "sleep 1000 & echo $!";
    const auto stop = [](std::string_view number) {
        ::kill(std::stoi(std::string(number)), SIGKILL);
    };
    const Cmd left = heard(leaves);
    auto reading = collect(left.standardOutput);
    runMain(left.run());
    stop(result(std::move(reading)).view());
    const auto capture = [](const std::string& script, milliseconds grace) {
        return runMain(shell(script).capture(Cmd::Captured::output, {.outputGrace = grace}));
    };
    const Cmd::Capture some = capture(leaves, moment);
    EXPECT_FALSE(some.isComplete);
    stop(some.data.view());
    const auto most = capture("head -c 60000 /dev/zero; " + leaves, milliseconds(0));
    EXPECT_GT(most.data.size(), 60000U);
    stop(most.data.view().substr(60000));
    const auto complete =
        capture("head -c 60000 /dev/zero; head -c 1 /dev/zero >&2", milliseconds(0));
    EXPECT_EQ(complete.data.size(), 60000U);
    EXPECT_TRUE(complete.isComplete);
    const Scratch scratch;
    auto waiting = detached(
        [&] { return shell(leaves + " > " + (scratch / "id") + "; kill -KILL $$").output(); });
    while (!contentsOf(scratch / "id").ends_with('\n')) std::this_thread::yield();
    waiting.cancel();
    EXPECT_THROW(result(std::move(waiting)), CancellationError);
    stop(contentsOf(scratch / "id"));

    const Cmd state = command(program("helper-child-state"), {});
    const auto leads = [&](Cmd::Options how) {
        const std::string all = text(state.output(how));
        const std::size_t start = all.find("leads");
        return all.substr(start, all.find('\n', start) - start);
    };
    EXPECT_EQ(leads({.newSession = true}), "leads group session");
    EXPECT_EQ(leads({.staysInGroup = true}), "leads");
    EXPECT_THROW(leads({.terminatesGroup = true, .staysInGroup = true}), Errno);
}

TEST(Cmd, PassesItsOwnStreamsAndSignalsOn) {
    const NobodyLeft check;
    const Scratch scratch;
    const FileDescriptor in(::open(write(scratch / "in", "given").c_str(), O_RDONLY | O_CLOEXEC));
    const FileDescriptor saved(::fcntl(0, F_DUPFD_CLOEXEC, 3));
    ::dup2(in.get(), 0);
    EXPECT_EQ(text(command("/bin/cat", {}).output({.inheritsStreams = true})), "given");
    EXPECT_EQ(text(command("/bin/cat", {}).output()), "");
    ::dup2(saved.get(), 0);

    Cmd caught = heard("trap 'echo caught' USR1; echo ready; read never; kill -USR2 $$");
    caught.standardInput = std::make_shared<Cmd::Channel>();
    const auto running = caught.start();
    EXPECT_EQ(first(caught.standardOutput).view(), "ready\n");
    EXPECT_FALSE(running->endingSignal());
    EXPECT_TRUE(running->sendSignal(SIGUSR1));
    caught.standardInput->close();
    EXPECT_EQ(first(caught.standardOutput).view(), "caught\n");
    EXPECT_EQ(exitError(running->wait())->status, SIGUSR2);
    EXPECT_EQ(running->endingSignal(), SIGUSR2);
    EXPECT_FALSE(running->sendSignal(SIGUSR1));
    const auto byItself = shell("exit " + std::to_string(SIGUSR2)).start();
    EXPECT_EQ(exitError(byItself->wait())->status, SIGUSR2);
    EXPECT_FALSE(byItself->endingSignal());
}

TEST(Cmd, NothingIsLeftOfRunsThatAreCutAtRandom) {
    const NobodyLeft check;
    std::mt19937 random(1);
    const char* const scripts[] = {
        ":",
        "head -c 200000 /dev/zero",
        "head -c 70000 /dev/zero >&2; exit 1",
        "exec cat",
        "exec >&- 2>&-; read line",
        "trap '' TERM; head -c 100000 /dev/zero",
        "sleep 1000",
        "kill -STOP $$",
    };
    const int count = rounds(400, 10000);
    for (int round = 0; round < count;) {
        std::vector<TaskHandle<>> handles;
        std::vector<std::shared_ptr<Channel>> inputs;
        for (int beside = 0; beside < 8; ++beside, ++round) {
            const std::size_t which = random() % std::size(scripts);
            Cmd cmd = shell(scripts[which]);
            if (random() % 2 == 0) {
                cmd.standardInput = std::make_shared<Channel>();
                inputs.push_back(cmd.standardInput);
            }
            if (random() % 2 == 0) cmd.standardOutput = std::make_shared<Channel>();
            if (random() % 2 == 0) cmd.standardError = std::make_shared<Channel>();
            for (const auto& channel : {cmd.standardOutput, cmd.standardError}) {
                if (channel)
                    handles.push_back(detached([channel]() -> Task<> {
                        while (co_await channel->receive()) {
                        }
                    }));
            }
            const unsigned way = random() % 4;
            const Cmd::Options options{.killAfter = milliseconds(100)};
            handles.push_back(detached([=]() -> Task<> {
                try {
                    if (way == 0) {
                        auto instance = cmd.start(options);
                        instance->terminate();
                        instance = nullptr; // dropped
                    } else if (way == 1) {
                        co_await cmd.run(options);
                    } else {
                        co_await cmd.output(options);
                    }
                } catch (const Cmd::ExitError&) {
                } catch (const CancellationError&) {
                }
            }));
            if (random() % 3 == 0) {
                for (unsigned spin = random() % 64; spin > 0; --spin) std::this_thread::yield();
                handles.back().cancel();
            }
            if (which >= 3 && way > 0) handles.back().cancel(); // would not end by itself
        }
        for (const auto& input : inputs) input->close();
        for (auto& handle : handles) result(std::move(handle));
    }
}

TEST(Cmd, AThousandAtOnce) {
    const NobodyLeft check;
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit more{std::min<rlim_t>(4096, limit.rlim_max), limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &more); // three a child
    runMain([]() -> Task<> {
        auto body = [](TaskGroup<Data>& group) -> Task<> {
            Cmd cat = command("/bin/cat", {});
            cat.standardInput = std::make_shared<Channel>();
            for (int i = 0; i < 1000; ++i) group.addTask([cat] { return cat.output(); });
            for (int i = 0; i < 1000; ++i) co_await cat.standardInput->send(Data("x"));
            cat.standardInput->close();
            std::size_t size = 0;
            while (auto data = co_await group.next()) size += data->size();
            EXPECT_EQ(size, 1000U);
        };
        co_await withTaskGroup<Data>(body);
    }());
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace Platform
