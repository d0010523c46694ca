#include <Platform/base/Text.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace Platform {
namespace {

using namespace std::string_literals;

constexpr std::string_view R = "\xEF\xBF\xBD";

std::string replaced(std::size_t count, std::string_view rest) {
    std::string result;
    while (count-- > 0) {
        result += R;
    }
    return result.append(rest);
}

/// The well-formed sequences of UTF-8: the range of each byte.
const std::vector<std::vector<std::pair<int, int>>> wellFormed = {
    {{0x00, 0x7F}},
    {{0xC2, 0xDF}, {0x80, 0xBF}},
    {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}},
    {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}},
    {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}},
};

/// Decodes by trying every row of the table on every byte.
std::string decodedByTable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        std::size_t longest = 1;
        bool whole = false;
        for (const auto& row : wellFormed) {
            std::size_t length = 0;
            while (length < row.size() && length < text.size() &&
                   static_cast<unsigned char>(text[length]) >= row[length].first &&
                   static_cast<unsigned char>(text[length]) <= row[length].second) {
                ++length;
            }
            whole = whole || length == row.size();
            longest = std::max(longest, length);
        }
        result += whole ? text.substr(0, longest) : R;
        text.remove_prefix(longest);
    }
    return result;
}

TEST(DecodeUTF8, ReplacesAsUnicodeRecommends) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"plain \0 text"s, "plain \0 text"s},
        {"\xEF\xBB\xBFgr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80",
         "\xEF\xBB\xBFgr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80"},
        // Unicode's own examples: overlong, surrogates, too big, truncated.
        {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41", replaced(8, "A")},
        {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41", replaced(8, "A")},
        {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42", replaced(5, "A") + replaced(2, "B")},
        {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", replaced(4, "A")},
        // Truncated by the end.
        {"a\xC3", "a" + replaced(1, "")},
        {"a\xF0\x9F\x98", "a" + replaced(1, "")},
        {"a\xE0\x80", "a" + replaced(2, "")},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(decodeUTF8(bytes), text);
        EXPECT_EQ(decodeUTF8(std::as_bytes(std::span(bytes))), text);
        EXPECT_EQ(decodedByTable(bytes), text) << "the table is wrong";
    }
}

TEST(DecodeUTF8, AgreesWithTheTableOnRandomBytes) {
    // Every byte, with those at the ends of the table's ranges and ASCII more often.
    std::string bytes(4096, 'a');
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    for (const auto& row : wellFormed) {
        for (const auto& [low, high] : row) {
            for (const int byte : {low - 1, low, high, high + 1}) {
                bytes.append(16, static_cast<char>(byte));
            }
        }
    }
    std::mt19937 random(2);
    for (int round = 0; round < 100'000; ++round) {
        // The start differs in alignment, and the runs of ASCII in length.
        std::string text(round % 13, 'a');
        const std::size_t first = round % 3 == 0 ? 0 : 4096;
        for (std::size_t count = random() % 40; count > 0; --count) {
            text += bytes[first + random() % (bytes.size() - first)];
        }
        ASSERT_EQ(decodeUTF8(text), decodedByTable(text)) << testing::PrintToString(text);
    }
}

TEST(SingleLine, ReplacesEveryControlCharacterAndLineEnd) {
    EXPECT_EQ(singleLine("a\r\nb\tc\0d\x1B[1m\x7F"s), "a  b c d [1m ");
    EXPECT_EQ(singleLine("a\xC2\x85"
                         "b\xE2\x80\xA8"
                         "c\xE2\x80\xA9"
                         "d"),
              "a b c d");
    const std::string kept = "caf\xC3\xA9 \xC2\xA0 \xE2\x80\xA6 \xFF\xC2";
    EXPECT_EQ(singleLine(kept), kept);
}

} // namespace
} // namespace Platform
