#include <support/HandOffs.h>

namespace Platform {
namespace {

/// Expects the end with this error, and one log entry that says so.
void expectFailure(const Process::Result& result, const std::string& description) {
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    if (std::filesystem::exists("/dev/log")) {
        std::fputs("A system logger listens: the entry's text is not checked.\n", stderr);
        return;
    }
    EXPECT_EQ(result.errors, "editorClient: error: " + description + "\n");
}

TEST(EditorClient, SendsThePathAsGivenAndEndsWithTheVerdict) {
    const Scratch scratch;
    const std::string pipe = scratch / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string large(1 << 20, '\0');
    const struct {
        std::string path;
        std::string answer;
        int number;
    } rows[] = {
        {"/plain/path", "\0"s, 0},
        {"with a space", "\0and a payload"s, 0},
        {"quotes ' \" ` $HOME \\", large, 0},
        {"line\nend\r\n", "\0"s, 0},
        {"-v", "\0"s, 0},
        {"--", "\0"s, 0},
        {"", "\0"s, 0},
        {"\xC3\xBC \xE6\x96\x87", "\0"s, 0},
        {"not \xFF\xC3 UTF-8", "\0"s, 0},
        {"/" + std::string(3'999, 'n'), "\0"s, 0},
        {"declined", "\1", ECANCELED},
        {"text", "\3ok", ECANCELED},
        {"data", "\2", ECANCELED},
        {"path", "\4" + large, ECANCELED},
        {"empty", "", EBADMSG},
        {"unknown", "\5", EBADMSG},
        {"unknown and large", "\xFF" + large, EBADMSG},
    };
    for (const auto& [path, answer, number] : rows) {
        SCOPED_TRACE(path);
        Process host({program("helper-pipe-peer"), pipe, ">" + scratch / "request",
                      "<" + write(scratch / "answer", answer)});
        const auto result = run({program("editor-shim"), path}, {{"MV_EDITOR_CONN", pipe}});
        EXPECT_EQ(host.wait().status, 0);
        EXPECT_EQ(contentsOf(scratch / "request"), "\4" + path);
        if (number != 0) {
            expectFailure(result, Errno(number).what());
            continue;
        }
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output + result.errors, "");
    }
    EXPECT_TRUE(isPipe(pipe));
}

TEST(EditorClient, FailsWithOneLogEntryOnBadInput) {
    const Scratch scratch;
    const std::string pipe = scratch / "pipe"; // whoever opens it waits for ever
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string file = write(scratch / "file", "precious");
    const auto failure = [](int number) { return std::string(Errno(number).what()); };
    const auto notAPipe = [&](const std::string& path) {
        return path + " is not a named pipe: " + failure(EINVAL);
    };
    const struct {
        std::vector<std::string> arguments;
        std::optional<std::string> variable;
        std::string description;
    } rows[] = {
        {{}, pipe, failure(ENOENT)},
        {{"one", "two"}, pipe, failure(ENOENT)},
        {{"path"}, std::nullopt, failure(ENOTRECOVERABLE)},
        {{"path"}, "", failure(ENOENT)},
        {{"path"}, scratch / "nothing", failure(ENOENT)},
        {{"path"}, file + "/below", failure(ENOTDIR)},
        {{"path"}, file, notAPipe(file)},
        {{"path"}, "/dev/null", notAPipe("/dev/null")},
        {{"path"}, scratch / "", failure(EISDIR)},
        {{"path"}, std::string(5'000, 'x'), failure(ENAMETOOLONG)},
    };
    for (auto [arguments, variable, description] : rows) {
        SCOPED_TRACE(variable.value_or("(no variable)"));
        arguments.insert(arguments.begin(), program("editor-shim"));
        expectFailure(run(arguments, {{"MV_EDITOR_CONN", variable}}), description);
    }
    EXPECT_EQ(contentsOf(file), "precious");
}

TEST(EditorClient, IsRefusedByThePipeOfSomebodyElse) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs the right to become somebody else";
    const Scratch scratch;
    ASSERT_EQ(::chmod((scratch / "").c_str(), 0711), 0);
    const std::string pipe = scratch / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string shim = scratch / "shim";
    std::filesystem::copy(program("editor-shim"), shim);
    const auto result =
        run({"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", shim, "path"},
            {{"MV_EDITOR_CONN", pipe}});
    expectFailure(result, Errno(EACCES).what());
}

} // namespace
} // namespace Platform
