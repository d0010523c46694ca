#include <Platform/command/detail/PrefixSuffixSaver.h>

#include "Children.h"

#include <support/Commands.h>

namespace Platform {

using Channel = Cmd::Channel;
using std::chrono::milliseconds;
using Commands = CommandTest;

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

/// A command whose streams are channels.
Cmd connected(std::string script) {
    Cmd cmd = shell(std::move(script));
    cmd.standardInput = std::make_shared<Channel>();
    cmd.standardOutput = std::make_shared<Channel>();
    cmd.standardError = std::make_shared<Channel>();
    return cmd;
}

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 31 + i / 251);
    return bytes;
}

/// What an error text keeps of that.
std::string errorText(const std::string& bytes) {
    if (bytes.size() <= 65536) return bytes;
    return bytes.substr(0, 32768) + "\n... omitting " + std::to_string(bytes.size() - 65536) +
           " bytes ...\n" + bytes.substr(bytes.size() - 32768);
}

/// Of the calls of one kind, the one with that index fails.
auto failingAt(SystemCall which, int index, int number) {
    return [=](SystemCall call, std::size_t*) mutable {
        return call == which && index-- == 0 ? number : 0;
    };
}

} // namespace

TEST(Cmd, ExitErrorSaysWhatTheProgramSaid) {
    const auto description = [](std::int64_t status, const char* data) {
        return Cmd::ExitError(status, Data(std::string_view(data))).errorDescription();
    };
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

TEST_F(Commands, CaptureWhatIsAskedForAndSaveTheErrorText) {
    const Cmd both = shell("printf 'o\\377 '; printf e >&2");
    EXPECT_EQ(text(both.output()), "o\xFF ");
    EXPECT_EQ(runMain(both.outputString()), "o\xEF\xBF\xBD ");

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
    failing.mergeOutputIntoError = true;
    EXPECT_EQ(text(failing.output()), "o");
    failing.expectedExitStatus = {};
    EXPECT_EQ(exitError(failing.output())->errorData->size(), 2U);
    const std::string merged(exitError(failing.error())->errorData->view());
    EXPECT_TRUE(merged == "oe" || merged == "eo") << merged;

    for (const std::size_t size : {32767U, 32768U, 65535U, 65536U, 65537U, 100000U, 1000000U}) {
        const std::string bytes = pattern(size), path = write(scratch / "bytes", bytes);
        EXPECT_EQ(exitError(shell("cat " + path + " >&2; exit 1").error())->errorData,
                  Data(errorText(bytes)));
    }
    // A saver that is fed in pieces of all sizes keeps the same.
    const std::string bytes = pattern(200000);
    std::mt19937 random(1);
    detail::prefixSuffixSaver saver;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::string piece = bytes.substr(at, random() % (random() % 2 ? 70000 : 100));
        saver.append(std::as_bytes(std::span(piece)));
        at += piece.size();
    }
    EXPECT_EQ(saver.text().view(), errorText(bytes));
}

TEST_F(Commands, StartAsTheyAreDescribed) {
    Cmd cmd = command("/usr/bin/env");
    cmd.environment = {{"A", "b=c"}, {"D", ""}};
    EXPECT_EQ(text(cmd.output()), "A=b=c\nD=\n");
    cmd.environment->clear();
    EXPECT_EQ(text(cmd.output()), "");
    cmd.environment = std::nullopt;
    const Variable passed("PLATFORM_TESTS_PASSED", "on");
    EXPECT_NE(text(cmd.output()).find("PLATFORM_TESTS_PASSED=on\n"), std::string::npos);
    cmd = command("/bin/pwd", {"-P"});
    cmd.workingDirectoryPath = std::filesystem::canonical(scratch / ".");
    EXPECT_EQ(text(cmd.output()), *cmd.workingDirectoryPath + "\n");
}

TEST_F(Commands, EndByTheSignalThatTheyAreSent) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const auto instance = command("/bin/sleep", {"1000"}).start();
        signal == SIGINT ? instance->interrupt() : instance->terminate();
        EXPECT_EQ(exitError(instance->wait())->status, signal);
        EXPECT_EQ(instance->endingSignal(), signal);
    }
    // Of two that wait, one is refused, and here ends the wait of the other.
    const auto instance = command("/bin/sleep", {"1000"}).start();
    const auto waiting = [instance]() -> Task<std::int64_t> {
        try {
            auto end = instance->wait();
            co_await end;
        } catch (const std::logic_error&) {
            instance->terminate();
            co_return 100;
        } catch (const Cmd::ExitError& error) {
            co_return error.status;
        }
        co_return 0;
    };
    auto first = detached(waiting), second = detached(waiting);
    EXPECT_EQ(result(std::move(first)) + result(std::move(second)), 100 + SIGTERM);
}

TEST_F(Commands, DeliverWithoutThoseWhoHoldAStreamOpen) {
    const Cmd cmd = connected("tail -f /dev/null >&2 & echo $!");
    auto reading = detached([cmd]() -> Task<Data> { // in the order that is not ours
        while (co_await cmd.standardError->receive()) {
        }
        Data all;
        while (auto chunk = co_await cmd.standardOutput->receive()) all.append(*chunk);
        co_return all;
    });
    runMain(cmd.run());
    EXPECT_EQ(::kill(std::stoi(std::string(result(std::move(reading)).view())), SIGKILL), 0);
}

TEST_F(Commands, PassEverythingOnToTheirChannels) {
    Cmd cmd = connected("printf out; printf err >&2; exit 1");
    auto output = collect(cmd.standardOutput), error = collect(cmd.standardError);
    EXPECT_EQ(exitError(cmd.output())->errorData, Data("err"));
    EXPECT_EQ(result(std::move(output)).view(), "out");
    EXPECT_EQ(result(std::move(error)).view(), "err");
    // A receiver that has enough closes the channel; the program is not held up by that.
    for (const bool captures : {false, true}) {
        cmd = connected("head -c 3000000 /dev/zero; head -c 3000000 /dev/zero >&2");
        auto work = detached([cmd]() -> Task<> {
            for (const auto& channel : {cmd.standardOutput, cmd.standardError}) {
                co_await channel->receive();
                channel->close();
            }
        });
        captures ? runMain(cmd.error()) : runMain(cmd.run());
        result(std::move(work));
    }
}

TEST_F(Commands, CombineTheStreamsInTheOrderOfTheirChunks) {
    const Cmd turns =
        connected("for i in 1 2 3 4; do printf o; read x; printf e >&2; read x; done");
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

TEST_F(Commands, AreFedWhatTheInputChannelGives) {
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
        auto feeding = detached([&] { return feed(cmd.standardInput, 977); });
        EXPECT_EQ(text(cmd.output()).size(), *deaf == ':' ? 0U : 2000000U);
        cmd.standardInput->close();
        try {
            result(std::move(feeding));
        } catch (const ChannelError&) {
        }
    }
}

TEST_F(Commands, DeliverEveryByteBeforeARunReturns) {
    for (int round = 0; round < rounds(300, 10000); ++round) {
        const std::size_t size = static_cast<std::size_t>(round) * 37 % 66000;
        const bool isError = round % 2 == 1;
        const std::string script = "exec head -c " + std::to_string(size) + " /dev/zero";
        const Cmd cmd = connected(isError ? script + " >&2" : script);
        auto reading = collect(isError ? cmd.standardError : cmd.standardOutput);
        runMain(cmd.run());
        ASSERT_EQ(result(std::move(reading)).size(), size) << round;
    }
    const std::int64_t size = rounds(64, 10240) * (std::int64_t{1} << 20);
    const Cmd endless = connected("exec head -c " + std::to_string(size) + " /dev/zero");
    auto counting = detached([channel = endless.standardOutput]() -> Task<std::int64_t> {
        std::int64_t count = 0;
        while (auto chunk = co_await channel->receive()) count += std::ssize(chunk->view());
        co_return count;
    });
    runMain(endless.run());
    EXPECT_EQ(result(std::move(counting)), size);
}

TEST_F(Commands, LeaveNothingOfAFailedLaunch) {
    const std::string succeeds = which("true").at(0);
    Cmd cmd = command(succeeds, std::vector<std::string>(4096, "x"));
    runMain(cmd.run());
    cmd.arguments.emplace_back("x");
    cmd.path = "/none";
    const auto number = [](const Cmd& failing) { return thrownNumber([&] { failing.start(); }); };
    EXPECT_EQ(number(cmd), E2BIG) << "before anything else";
    EXPECT_EQ(number(command(succeeds, {std::string(3 << 20, 'x')})), E2BIG);

    const Cmd streams = connected("exec cat");
    auto waiting = detached([&]() -> Task<> { co_await streams.standardOutput->receive(); });
    const std::multimap<SystemCall, int> faults{{SystemCall::pipe, 0},  {SystemCall::pipe, 1},
                                                {SystemCall::pipe, 2},  {SystemCall::fcntl, 0},
                                                {SystemCall::spawn, 0}, {SystemCall::watch, 0}};
    for (const auto& [call, index] : faults) {
        const Faults fault(failingAt(call, index, EMFILE));
        EXPECT_EQ(number(streams), EMFILE) << static_cast<int>(call) << " " << index;
    }
    const auto sendingTo = [](std::shared_ptr<Channel> untouched) -> Task<> {
        co_await untouched->send(Data("x")); // not closed
    };
    runMain(sendingTo(streams.standardOutput));
    result(std::move(waiting));
    // Who follows a capture must not wait for ever.
    cmd.standardOutput = std::make_shared<Channel>();
    auto reading = collect(cmd.standardOutput);
    EXPECT_EQ(thrownNumber([&] { runMain(cmd.output()); }), E2BIG);
    result(std::move(reading));
}

/// Where the system cannot tell of a stream any more, nothing hangs and nothing is passed off as
/// whole.
TEST_F(Commands, FailInTheMiddleWithAnError) {
    const Cmd large = shell("head -c 300000 /dev/zero; head -c 300000 /dev/zero >&2");
    for (const SystemCall call : {SystemCall::read, SystemCall::watch}) {
        int failures = 0;
        for (int index = 0; index < 6; ++index) {
            const Faults fault(failingAt(call, index, ENOMEM));
            const int number =
                thrownNumber([&] { EXPECT_EQ(runMain(large.output()).size(), 300000U); });
            EXPECT_TRUE(number == 0 || number == ENOMEM) << number;
            failures += number == ENOMEM;
        }
        EXPECT_GT(failures, 0);
    }
    // Input that stops half-way, because the system cannot tell when there is room for more.
    std::string outcomes;
    for (int index = 0; index < 6; ++index) {
        Cmd reader = shell("wc -c");
        reader.standardInput = std::make_shared<Cmd::Channel>();
        auto sending = detached([channel = reader.standardInput]() -> Task<> {
            try {
                co_await channel->send(Data(std::string(300'000, 'x')));
            } catch (const CancellationError&) {
            }
            channel->close();
        });
        const Faults fault(failingAt(SystemCall::watch, index, ENOMEM));
        const int number = thrownNumber(
            [&] { outcomes += runMain(reader.outputString()) == "300000\n" ? 'a' : '?'; });
        if (number != 0) outcomes += number == ENOMEM ? 'f' : '!';
        sending.cancel();
        result(std::move(sending));
    }
    EXPECT_EQ(outcomes.find_first_of("?!"), outcomes.npos) << outcomes;
    EXPECT_NE(outcomes.find('f'), outcomes.npos);
}

TEST_F(Commands, CanBeCutShort) {
    // Says that it is there, and that it was interrupted; writes more than a pipe holds then.
    const Cmd polite =
        connected("trap 'head -c 100000 /dev/zero; exit 5' INT; echo; while :; do :; done");
    auto instance = polite.start();
    first(polite.standardOutput);
    auto rest = collect(polite.standardOutput);
    instance->interrupt();
    EXPECT_EQ(result(std::move(rest)).size(), 0U) << "the stream ends at once";
    EXPECT_EQ(exitError(instance->wait())->status, 5);
    EXPECT_FALSE(instance->isRunning());

    // After the end nothing is cut.
    const std::string rubbish = "head -c 1000 /dev/zero";
    const Cmd quick = connected(rubbish);
    instance = quick.start();
    runMain(instance->wait());
    instance->interrupt();
    instance->terminate();
    rest = collect(quick.standardOutput);
    EXPECT_EQ(result(std::move(rest)).size(), 1000U);

    // Who has stopped hears of it all the same. To name the wait first keeps the instance.
    instance = shell("kill -STOP $$").start();
    const auto stoppedId = static_cast<id_t>(instance->processIdentifier());
    siginfo_t info{};
    ASSERT_EQ(::waitid(P_PID, stoppedId, &info, WSTOPPED | WNOWAIT), 0);
    auto running = detached([instance = std::move(instance)]() mutable {
        auto waiting = std::exchange(instance, nullptr)->wait();
        return waiting;
    });
    running.cancel();
    EXPECT_THROW(result(std::move(running)), CancellationError);
    const Cmd accepting = connected("trap 'exit 0' TERM; echo; while :; do :; done");
    running = start(accepting);
    first(accepting.standardOutput);
    running.cancel();
    EXPECT_THROW(result(std::move(running)), CancellationError) << "whatever its status";

    // The last reference goes: the receiver sees the end, the program too.
    const Cmd reader = connected("echo; cat; echo > " + (scratch / "ended"));
    instance = reader.start();
    first(reader.standardOutput);
    rest = collect(reader.standardOutput);
    const int id = instance->processIdentifier();
    instance = nullptr;
    EXPECT_EQ(result(std::move(rest)).size(), 0U);
    while (::kill(id, 0) == 0) std::this_thread::yield();
    EXPECT_TRUE(std::filesystem::exists(scratch / "ended"));

    // A receiver that takes nothing holds up the run, but not its cancellation.
    Cmd unheard = connected(rubbish);
    running = start(unheard);
    first(unheard.standardOutput);
    result(std::move(running));
    unheard.standardOutput = std::make_shared<Channel>();
    instance = unheard.start();
    runMain(instance->wait());
    running = start(unheard);
    running.cancel();
    EXPECT_THROW(result(std::move(running)), CancellationError);
}

TEST_F(Commands, HaveLimitsToWhatTheyMayTake) {
    const milliseconds moment(20);
    const Cmd obedient = shell("sleep 1000");
    EXPECT_EQ(thrownNumber([&] { runMain(obedient.run({.timeLimit = moment})); }), ETIMEDOUT);
    EXPECT_EQ(thrownNumber([&] { runMain(obedient.output({.timeLimit = moment})); }), ETIMEDOUT);
    runMain(shell(":").run({.timeLimit = milliseconds::max()}));

    // The whole group, its stubborn part too.
    const Cmd family = connected("sh -c 'trap \"\" TERM; echo $$; while :; do :; done' & wait");
    auto running = start(family, {.killAfter = moment, .terminatesGroup = true});
    const int id = std::stoi(std::string(first(family.standardOutput).view()));
    running.cancel();
    EXPECT_THROW(result(std::move(running)), CancellationError);
    while (::kill(id, 0) == 0) std::this_thread::yield();

    // Others that hold the pipe: a run does not wait for them, a capture does unless it is told.
    const std::string leaves = "sleep 1000 & echo $!", much = "head -c 60000 /dev/zero; ";
    const auto stop = [](std::string_view number) {
        ::kill(std::stoi(std::string(number)), SIGKILL);
    };
    const Cmd left = connected(leaves);
    auto reading = collect(left.standardOutput);
    runMain(left.run());
    stop(result(std::move(reading)).view());
    const auto capture = [](const std::string& script, milliseconds grace) {
        return runMain(shell(script).capture(Cmd::Captured::output, {.outputGrace = grace}));
    };
    for (const milliseconds grace : {moment, milliseconds(0)}) {
        const Cmd::Capture most = capture(much + leaves, grace);
        EXPECT_FALSE(most.isComplete);
        ASSERT_GT(most.data.size(), 60000U);
        stop(most.data.view().substr(60000));
    }
    const Cmd::Capture complete = capture(much + "head -c 1 /dev/zero >&2", milliseconds(0));
    EXPECT_EQ(complete.data.size(), 60000U);
    EXPECT_TRUE(complete.isComplete);
    auto waiting = detached(
        [&] { return shell(leaves + " > " + (scratch / "id") + "; kill -KILL $$").output(); });
    while (!contentsOf(scratch / "id").ends_with('\n')) std::this_thread::yield();
    waiting.cancel();
    EXPECT_THROW(result(std::move(waiting)), CancellationError);
    stop(contentsOf(scratch / "id"));

    const Cmd state = command(program("helper-child-state"), {});
    const auto leads = [&](Cmd::Options how, const char* what) {
        return text(state.output(how)).find(what) != std::string::npos;
    };
    EXPECT_TRUE(leads({.newSession = true}, "\nleads group session\n"));
    EXPECT_TRUE(leads({.staysInGroup = true}, "\nleads\n"));
    EXPECT_THROW(leads({.terminatesGroup = true, .staysInGroup = true}, ""), Errno);
}

TEST_F(Commands, PassTheirOwnStreamsAndSignalsOn) {
    const FileDescriptor in(::open(write(scratch / "in", "given").c_str(), O_RDONLY | O_CLOEXEC));
    const FileDescriptor saved(::fcntl(0, F_DUPFD_CLOEXEC, 3));
    ::dup2(in.get(), 0);
    EXPECT_EQ(text(command("/bin/cat", {}).output({.inheritsStreams = true})), "given");
    EXPECT_EQ(text(command("/bin/cat", {}).output()), "");
    ::dup2(saved.get(), 0);

    const Cmd caught = connected("trap 'echo caught' USR1; echo ready; read never; kill -USR2 $$");
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

TEST_F(Commands, LeaveNothingOfRunsThatAreCutAtRandom) {
    std::mt19937 random(1);
    const char* const scripts[] = {":",
                                   "head -c 200000 /dev/zero",
                                   "head -c 70000 /dev/zero >&2; exit 1",
                                   "exec cat",
                                   "exec >&- 2>&-; read line",
                                   "trap '' TERM; head -c 100000 /dev/zero",
                                   "sleep 1000",
                                   "kill -STOP $$"};
    const int count = rounds(400, 10000);
    for (int round = 0; round < count;) {
        std::vector<TaskHandle<>> runs;
        std::vector<TaskHandle<Data>> readers;
        std::vector<std::shared_ptr<Channel>> inputs;
        for (int beside = 0; beside < 8; ++beside, ++round) {
            const std::size_t which = random() % std::size(scripts);
            Cmd cmd = shell(scripts[which]);
            for (auto* const channel :
                 {&cmd.standardInput, &cmd.standardOutput, &cmd.standardError})
                if (random() % 2 == 0) *channel = std::make_shared<Channel>();
            if (cmd.standardInput) inputs.push_back(cmd.standardInput);
            for (const auto& channel : {cmd.standardOutput, cmd.standardError})
                if (channel) readers.push_back(collect(channel));
            const unsigned way = random() % 4;
            const Cmd::Options options{.killAfter = milliseconds(100)};
            if (way == 0) {
                cmd.start(options)->terminate(); // and dropped
                continue;
            }
            runs.push_back(
                detached([=] { return way == 1 ? cmd.run(options) : cmd.error(options); }));
            if (which < 3 && random() % 3 > 0) continue; // the others would not end by themselves
            for (unsigned spin = random() % 64; spin > 0; --spin) std::this_thread::yield();
            runs.back().cancel();
        }
        for (const auto& input : inputs) input->close();
        for (auto& handle : runs) {
            try {
                result(std::move(handle));
            } catch (const Cmd::ExitError&) {
            } catch (const CancellationError&) {
            }
        }
        for (auto& reader : readers) result(std::move(reader));
    }
}

TEST_F(Commands, RunByTheThousandAtOnce) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(4096, limit.rlim_max); // three a child
    ::setrlimit(RLIMIT_NOFILE, &limit);
    Cmd cat = command("/bin/cat", {});
    cat.standardInput = std::make_shared<Channel>();
    std::vector<TaskHandle<Data>> runs;
    for (int i = 0; i < 1000; ++i) runs.push_back(detached([cat] { return cat.output(); }));
    const auto feed = [](std::shared_ptr<Channel> channel) -> Task<> {
        for (int i = 0; i < 1000; ++i) co_await channel->send(Data("x"));
    };
    runMain(feed(cat.standardInput));
    cat.standardInput->close();
    std::size_t size = 0;
    for (auto& handle : runs) size += result(std::move(handle)).size();
    EXPECT_EQ(size, 1000U);
}

} // namespace Platform
