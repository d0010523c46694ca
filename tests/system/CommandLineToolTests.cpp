#include <support/Testing.h>

namespace Platform {

TEST(CommandLineTool, TurnsAnErrorIntoItsTextAndStatusOne) {
    const std::string tool = program("helper-command-line-tool");
    const auto expect = [&](std::vector<std::string> arguments, int status, const char* output,
                            const char* errors) {
        arguments.insert(arguments.begin(), tool);
        const auto result = run(arguments, {{"TOOL_TEST", "a=b\xff"}});
        EXPECT_EQ(result.status, status) << arguments[1];
        EXPECT_EQ(result.output, output);
        EXPECT_EQ(result.errors, errors);
    };
    expect({"base"}, 3, "returned\ngoodbye\n", "");
    expect({"print", "TOOL_TEST", "x y"}, 3,
           (tool + "\nprint\nTOOL_TEST\nx y\na=b\xff\nreturned\ngoodbye\n").c_str(), "");
    expect({"throw", "ninechars"}, 1, "goodbye\n", "ninechars");
    expect({"throw", "two\nlines\n"}, 1, "goodbye\n", "two\nlines\n");
    expect({"throw", ""}, 1, "goodbye\n", "");
    expect({"throw", "na\xc3\xafve"}, 1, "goodbye\n", "na\xc3\xafve");
    expect({"throw", "na\xefve"}, 1, "goodbye\n", "");
    expect({"throw-number"}, 1, "goodbye\n", "unknown error");
}

TEST(CommandLineTool, EndsTheSameWhenNobodyReadsTheError) {
    const Scratch scratch;
    const std::string pipe = scratch / "pipe";
    const auto statusWith = [&](const std::string& errors) {
        return run({"sh", "-c", errors + "\n\"$1\" throw text; echo $?", "sh",
                    program("helper-command-line-tool")})
            .output;
    };
    EXPECT_EQ(statusWith("exec 2>&-"), "goodbye\n1\n") << "closed";
    EXPECT_EQ(statusWith("mkfifo " + pipe + "; exec 3<>" + pipe + " 2>" + pipe + " 3<&-"),
              "goodbye\n1\n")
        << "a pipe without a reader";
}

} // namespace Platform
