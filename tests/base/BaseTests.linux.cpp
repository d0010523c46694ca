#include <Platform/base/detail/Sigpipe.h>
#include <Platform/base/detail/SystemLogger.h>
#include <Platform/command/detail/Pipe.h>

#include <support/Testing.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace Platform {

namespace fs = std::filesystem;

using detail::makePipe;

TEST(FileDescriptor, ClosesOnceAndKeepsErrno) {
    const NothingLeft check;
    auto [reader, writer] = makePipe();
    const int number = reader.get();
    FileDescriptor& self = reader;
    reader = std::move(self);
    FileDescriptor owner = std::move(reader);
    EXPECT_EQ(reader.get(), -1); // NOLINT: what a moved-from owner is, is promised
    FileDescriptor released(owner.release());
    owner.reset();
    EXPECT_NE(::fcntl(number, F_GETFD), -1) << "moving and releasing close nothing";

    int closes = 0; // One that fails, or is interrupted, has closed all the same.
    const Faults faults([&](SystemCall, std::size_t*) { return ++closes == 1 ? EINTR : 0; });
    errno = EXDEV;
    released = std::move(writer);
    FileDescriptor(1'000'000).reset(); // never open
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(closes, 2);
    EXPECT_EQ(::fcntl(number, F_GETFD), -1);
}

TEST(FileDescriptor, MovesBytesThroughInterruptionsAndShortCounts) {
    const NothingLeft check;
    std::array<std::byte, 4> buffer;
    for (const std::size_t size : {4U, 4095U, 4096U, 4097U, 60'000U}) {
        auto [reader, writer] = makePipe();
        Data sent;
        while (sent.size() < size) sent.append(std::to_string(sent.size()));
        sent.truncate(size);
        int calls = 0;
        const Faults faults([&](SystemCall, std::size_t* count) {
            if (count && ++calls % 2 == 0) *count = std::min<std::size_t>(*count, 999);
            return count && calls % 3 == 0 ? EINTR : 0;
        });
        std::span<const std::byte> rest(sent);
        while (!rest.empty()) rest = rest.subspan(writer.write(rest));
        writer.reset();
        EXPECT_EQ(reader.readData(buffer).view(), sent.view().substr(0, 4));
        EXPECT_TRUE(reader.readToEnd().view() == sent.view().substr(4)) << size;
        EXPECT_TRUE(FileDescriptor().readData({}).empty()) << "not even a read";
        EXPECT_EQ(thrownNumber([] { FileDescriptor().readToEnd(); }), EBADF);
    }
}

TEST(FileDescriptor, AVanishedReaderIsAnErrorWhateverTheSignalsState) {
    const FileDescriptor writer = makePipe().writing;
    detail::suppressSigpipe(writer.get()); // which macOS needs, for each descriptor
    sigset_t sigpipe, mask, pending;
    const auto isPendingAfterWrite = [&] {
        const NothingLeft check;
        EXPECT_EQ(thrownNumber([&] { writer.write(Data("x")); }), EPIPE);
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 1;
    };
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    std::signal(SIGPIPE, SIG_DFL);
    EXPECT_FALSE(isPendingAfterWrite());
    pthread_sigmask(SIG_BLOCK, &sigpipe, &mask);
    EXPECT_FALSE(isPendingAfterWrite());
    raise(SIGPIPE);
    EXPECT_TRUE(isPendingAfterWrite()) << "it was waiting before, and is somebody else's";
    std::signal(SIGPIPE, SIG_IGN); // takes back the one that waits
    std::signal(SIGPIPE, SIG_DFL);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

/// The path that is returned, or the error's text.
static std::string outcome(const std::string& path) {
    const NothingLeft check;
    try {
        return makePrivateDirectory(path);
    } catch (const std::system_error& error) {
        return error.what();
    }
}

TEST(PrivateDirectory, RefusesWhatSomebodyElseCouldHavePlanted) {
    const Scratch scratch;
    const std::string path = scratch / "a/b";
    const mode_t umaskBefore = ::umask(002);
    EXPECT_EQ(outcome(path + "//"), path);
    ::umask(umaskBefore);
    EXPECT_EQ(fs::status(scratch / "a").permissions(), fs::perms(0775));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0700));
    for (const SystemCall call : {SystemCall::mkdir, SystemCall::lstat}) {
        const Faults faults(Faults::failing(call, EIO));
        EXPECT_EQ(outcome(path), path + ": Input/output error");
    }
    const auto refused = [&](const std::string& owner, const std::string& mode) {
        return path + " (owner " + owner + ", mode " + mode + "): Permission denied";
    };
    for (const std::string mode : {"0720", "0702", "1777", "0755"}) {
        fs::permissions(path, fs::perms(std::stoi(mode, nullptr, 8)));
        EXPECT_EQ(outcome(path),
                  mode == "0755" ? path : refused(std::to_string(::geteuid()), mode));
    }
    ::mkfifo((scratch / "file").c_str(), 0600);
    fs::create_symlink(scratch / "a", scratch / "link");
    fs::create_symlink("nowhere", scratch / "loose");
    for (const char* const name : {"file", "link", "link/", "loose", "loose/"})
        EXPECT_TRUE(outcome(scratch / name).ends_with(": Not a directory")) << name;
    if (::chown(path.c_str(), 65534, 65534) != 0) GTEST_SKIP() << "cannot give a directory away";
    EXPECT_EQ(outcome(path), refused("65534", "0755"));
}

TEST(TemporaryPipePath, IsFreshAndItsDirectoryPrivate) {
    const Scratch scratch;
    const Variable variable("TMPDIR", scratch / "not/yet/");
    const fs::path directory = scratch / "not/yet/app.morvel.pkg.platform.fifo";
    std::array<std::set<char>, 36> seen; // at each place
    for (int count = 0; count < 1'000; ++count) {
        const std::string name = fs::relative(makeTemporaryPipePath(), directory);
        ASSERT_EQ(name.size(), seen.size());
        for (std::size_t place = 0; place < seen.size(); ++place) seen[place].insert(name[place]);
    }
    std::string shape;
    for (const auto& set : seen) {
        const std::string found(set.begin(), set.end());
        shape += found == "0123456789ABCDEF" ? "x" : found == "89AB" ? "y" : found;
    }
    EXPECT_EQ(shape, "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx");
    EXPECT_TRUE(fs::is_empty(directory));
    ::chmod(directory.c_str(), 0777);
    EXPECT_EQ(thrownNumber(makeTemporaryPipePath), EACCES);
    const Faults faults(Faults::failing(SystemCall::getentropy, EIO));
    EXPECT_EQ(thrownNumber(makeTemporaryPipePath), EIO);

    const Variable relative("TMPDIR", "a"), runtime("XDG_RUNTIME_DIR", "/run//");
    EXPECT_EQ(temporaryDirectory(), "/run");
    const Variable none("XDG_RUNTIME_DIR", std::nullopt);
    EXPECT_EQ(temporaryDirectory(), "/tmp");
}

TEST(Data, MatchesAModelUnderRandomOperations) {
    std::mt19937 random(1);
    Data data;
    std::string model;
    for (int step = 0; step < 10'000; ++step) {
        const std::string text(random() % 100, static_cast<char>(random()));
        const std::size_t before = data.capacity();
        for (const char byte : text) data.append({&byte, 1});
        model += text;
        EXPECT_TRUE(data.capacity() == before || data.capacity() >= 2 * before);
        const std::size_t from = random() % (model.size() + 1);
        const std::size_t count = random() % (model.size() - from + 1);
        data.append(std::span(data).subspan(from, count)); // moves when the block grows
        model += model.substr(from, count);
        EXPECT_THROW(data.appendUninitialized(~std::size_t()), std::bad_alloc);
        ASSERT_EQ(data.view(), model) << "step " << step;

        Data moved = std::move(data);
        EXPECT_EQ(data.size() + data.capacity(), 0u); // NOLINT: it is empty, as promised
        data = std::move(moved);
        Data& self = data;
        data = std::move(self);
        data = self;
        Data copy;
        copy = data;
        data.truncate(from);
        model.resize(from);
        EXPECT_EQ(data == copy, from == copy.size());
        const std::size_t capacity = copy.capacity();
        copy.wipe();
        copy.appendUninitialized(capacity);
        ASSERT_EQ(copy.view(), std::string(capacity, '\0')) << "all of it is overwritten";
    }
}

TEST(OrderedDictionary, MatchesAModelUnderRandomOperations) {
    std::mt19937 random(3);
    OrderedDictionary<unsigned long, int> dictionary;
    std::vector<unsigned long> model;
    for (int step = 0; step < 20'000; ++step) {
        const auto key = random() % 40, gone = random() % 40;
        if (dictionary.insert(key, step)) model.push_back(key);
        OrderedDictionary<unsigned long, int> moved = std::move(dictionary);
        EXPECT_EQ(dictionary.removeFirst(), std::nullopt); // NOLINT: it is empty, as promised
        dictionary = std::move(moved);
        EXPECT_EQ(*dictionary.find(key), step);
        EXPECT_EQ(dictionary.remove(gone).has_value(), std::erase(model, gone) == 1);
        if (step % 3 == 0 && !model.empty()) {
            EXPECT_EQ(dictionary.removeFirst()->first, model.front());
            model.erase(model.begin());
        }
        std::vector<unsigned long> keys;
        for (const auto [each, value] : dictionary) keys.push_back(each);
        ASSERT_EQ(keys, model) << "step " << step;
    }
}

TEST(Text, DecodesAsUnicodeRecommends) {
    const std::string_view edges = "a\x7F\x80\x8F\x90\x9F\xA0\xBF\x80\xBF\xC0\xC1\xC2\xDF\xE0\xE1"
                                   "\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xFF";
    std::mt19937 random(2);
    std::string all, decoded;
    for (int round = 0; round < 100'000; ++round) {
        std::string text;
        for (std::size_t pieces = random() % 30; pieces > 0; --pieces) {
            const auto any = static_cast<char>(random()), edge = edges[random() % edges.size()];
            text.append(random() % 8 ? 1 : random() % 20, random() % 4 ? edge : any);
        }
        decoded += decodeUTF8(std::as_bytes(std::span(text))) + "\n";
        all += text + "\n"; // which ends whatever has begun
    }
    const Scratch scratch;
    const std::string path = write(scratch / "all", all);
    const std::string decodes = "import sys; text = open(sys.argv[1], 'rb').read().decode('utf-8', "
                                "'replace'); sys.stdout.buffer.write(text.encode())";
    const std::string other = run({"python3", "-c", decodes, path}).output;
    const auto same = std::ranges::mismatch(decoded, other).in1 - decoded.begin();
    const std::size_t at = static_cast<std::size_t>(same);
    EXPECT_EQ(decoded.substr(at, 40), other.substr(at, 40)) << "after " << at;
    const std::string controls =
        "\r\t\x1B[\x1F\x7F\xC2\x80|\xC2\x85|\xC2\x9F|\xE2\x80\xA8\xE2\x80\xA9";
    const std::string kept = "caf\xC3\xA9 ~ \xC2\xA0 \xE2\x80\xA6 \xFF\xC2";
    EXPECT_EQ(quotedForShell("/a-b_c.d:e%+,@=9"), "'/a-b_c.d:e%+,@=9'");
    EXPECT_EQ(quotedForShell("/a-b_c.d:e%+,@9"), "/a-b_c.d:e%+,@9");
    EXPECT_EQ(quotedForShell(""), "''");
    EXPECT_EQ(quotedForShell("it's $HOME\n"), "'it'\\''s $HOME\n'");
    EXPECT_EQ(singleLine(controls + kept), "   [   | | |  " + kept);
}

TEST(Log, TheSystemLoggerTakesOneEntryAMessageAndIsNotWaitedFor) {
    const NothingLeft check;
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
        const Scratch scratch;
        sockaddr_un address{AF_UNIX, {}};
        (scratch / "log").copy(address.sun_path, sizeof address.sun_path - 1);
        const auto isTaken = [&] {
            return detail::sendToSystemLogger(address.sun_path, "label", "error: \xC3\xA9");
        };
        FileDescriptor logger(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
        ::bind(logger.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
        ::listen(logger.get(), 5); // means nothing to a datagram socket
        ASSERT_TRUE(isTaken());
        for (const SystemCall call : {SystemCall::socket, SystemCall::connect, SystemCall::send}) {
            const Faults faults(Faults::failing(call, ENOBUFS));
            EXPECT_FALSE(isTaken());
        }
        while (isTaken()) continue;
        EXPECT_EQ(errno, EAGAIN);
        if (type == SOCK_STREAM) logger = FileDescriptor(::accept(logger.get(), nullptr, nullptr));
        std::array<std::byte, 99> buffer;
        const std::string entry(logger.readData(buffer).view());
        std::tm time{};
        EXPECT_EQ(::strptime(entry.c_str(), "<11>%b %e %T", &time), entry.c_str() + 19) << entry;
        EXPECT_EQ(entry.substr(19), " label[" + std::to_string(::getpid()) + "]: error: \xC3\xA9" +
                                        std::string(type == SOCK_STREAM, '\0'));
    }
}

TEST(Log, LeavesOneLineAnEntryOnStandardErrorWhereNoLoggerListens) {
    const auto child = [](Logger logger) {
        const Faults faults(Faults::failing(SystemCall::connect, ECONNREFUSED, 1'000));
        logger.error(std::make_exception_ptr(Errno(ENOENT, "/a\r\npath\x1B")));
        logger.error(std::make_exception_ptr(7));
        int ends[2];
        if (::pipe(ends) != 0 || ::dup2(ends[1], STDERR_FILENO) < 0) ::_exit(1);
        FileDescriptor(ends[0]).reset();
        logger.error(std::exception_ptr()); // nobody reads this and nobody dies of SIGPIPE
        ::_exit(0);
    };
    EXPECT_EXIT(child(Logger("label")), testing::ExitedWithCode(0),
                "^label: error: /a  path : No such file or directory\n"
                "label: error: unknown error\n$");
}

/// Asked before the library has been handed the arguments, so that these come from the kernel.
static std::vector<std::string>* early = nullptr;
[[gnu::used, gnu::section(".init_array.00100")]] static void (*const askTooEarly)() = [] {
    early = new std::vector<std::string>(ProcessInfo::arguments());
};

TEST(ProcessInfo, TellsArgumentsAndEnvironmentWithoutHelpFromMain) {
    const Faults faults(Faults::failing(SystemCall::open, EMFILE));
    EXPECT_EQ(ProcessInfo::arguments().at(0), early->at(0)) << "handed over, not opened";
    char texts[][10] = {"B=first=1", "A=\xFF", "B=second", "without", "EMPTY=", "=odd"};
    char* entries[] = {texts[0], texts[1], texts[2], texts[3], texts[4], texts[5], nullptr};
    char** const before = std::exchange(environ, entries);
    const auto all = ProcessInfo::environment();
    EXPECT_EQ(ProcessInfo::environmentValue("B"), "first=1");
    EXPECT_EQ(ProcessInfo::environmentValue("EMPT"), std::nullopt);
    environ = before;
    EXPECT_EQ(all, (std::map<std::string, std::string>{
                       {"", "odd"}, {"A", "\xFF"}, {"B", "first=1"}, {"EMPTY", ""}}));
}

} // namespace Platform
