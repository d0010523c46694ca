#include <support/Testing.h>

namespace Platform {

TEST(Which, FindsWhatMayBeExecutedInTheOrderOfThePath) {
    const Scratch scratch;
    const std::string a = scratch / "a", b = scratch / "b";
    for (const std::string& folder : {a, b, b + "/tool"}) std::filesystem::create_directory(folder);
    writeScript(a + "/tool", "");
    write(a + "/text", "");
    const std::string path = ":" + b + "::" + a + "/:" + scratch / "none" + ":" + a + ":" + b + ":";
    const auto texts = [](const std::string& name, const std::optional<std::string>& list = {}) {
        std::vector<std::string> all;
        for (const auto& found : which(name, list)) all.push_back(found.native());
        return all;
    };
    using Texts = std::vector<std::string>;
    EXPECT_EQ(texts("tool", path), (Texts{b + "/tool", a + "//tool", a + "/tool", b + "/tool"}));
    EXPECT_EQ(texts("text", path), Texts());
    EXPECT_EQ(texts(std::string("tool\0x", 6), path), Texts());
    EXPECT_EQ(texts("a/tool", scratch / "."), Texts{scratch / "./a/tool"});
    EXPECT_EQ(texts("/", ""), Texts()) << "an empty piece is not the root, nor this folder";
    std::filesystem::current_path(scratch / ".");
    EXPECT_EQ(texts("tool", "b"), Texts{"b/tool"});
    EXPECT_EQ(texts("b", ":"), Texts());
    const Variable given("PATH", a);
    EXPECT_EQ(texts("tool"), Texts{a + "/tool"});
    const Variable missing("PATH", std::nullopt);
    EXPECT_EQ(texts("tool"), Texts());
}

} // namespace Platform
