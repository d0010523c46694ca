#include <support/Testing.h>

namespace Platform {
namespace {

using Piece = std::optional<Data>;

/// The scanner, by the C++ library's searches.
struct Model {
    std::string data;
    std::size_t offset = 0;

    Piece scan(std::size_t at, std::size_t length, bool consume) {
        if (at == data.npos || length == 0) return std::nullopt;
        Piece piece(std::string_view(data).substr(offset, at - offset));
        offset = at + (consume ? length : 0);
        return piece;
    }
    Piece to(const std::string& pattern, bool consume) {
        return scan(data.find(pattern, offset), pattern.size(), consume);
    }
    Piece toAnyOf(const std::string& set, bool consume) {
        return scan(data.find_first_of(set, offset), 1, consume);
    }
    Piece finish() { return scan(offset < data.size() ? data.size() : data.npos, 1, false); }
    std::size_t trim() {
        data.erase(0, offset);
        return std::exchange(offset, 0);
    }
};

} // namespace

TEST(ByteScanner, ScansLikeTheModel) {
    std::minstd_rand random(1);
    const auto any = [&](const auto& list) { return list[random() % list.size()]; };
    const auto bytes = [](const std::string& text) { return std::as_bytes(std::span(text)); };
    const auto alphabet = "ab\r\n\0\xff\x0b\x8a"s; // some differ by a bit
    const std::vector<std::string> patterns{
        "", "a", "\n", "\r\n", "aab", "abab", "\xff\x61", "\0"s, std::string(70, 'a')};
    const std::vector<std::string> sets{"", "\n", "b\xff", "b\0"s, "\n\r\xff", "zzz"};
    for (int seed = 0; seed < 3000; ++seed) {
        ByteScanner scanner;
        Model model;
        const auto densest = 1 + random() % 6; // few delimiters, or many
        for (int step = 0; step < 60; ++step) {
            const bool consume = random() % 2, view = random() % 2;
            const std::string pattern = any(patterns), set = any(sets);
            const auto what = random() % 6;
            if (what == 0) {
                std::string chunk(random() % (random() % 4 ? 8 : 200), 'a');
                for (char& byte : chunk)
                    if (random() % 8 < densest) byte = any(alphabet);
                scanner.append(chunk);
                model.data += chunk;
            } else if (what == 1) {
                ASSERT_EQ(view ? Piece(scanner.viewTo(pattern, consume))
                               : scanner.scanTo(bytes(pattern), consume),
                          model.to(pattern, consume));
            } else if (what == 2) {
                ASSERT_EQ(view ? Piece(scanner.viewToAnyOf(set, consume))
                               : scanner.scanToAnyOf(bytes(set), consume),
                          model.toAnyOf(set, consume));
            } else if (what == 3) {
                ASSERT_EQ(view ? Piece(scanner.viewToEndOfLine(consume))
                               : scanner.scanToEndOfLine(consume),
                          model.toAnyOf("\r\n", consume));
            } else if (what == 4) {
                ASSERT_EQ(scanner.trim(), model.trim());
            } else if (random() % 4 == 0) {
                ASSERT_EQ(view ? Piece(scanner.viewRest()) : scanner.finish(), model.finish());
            }
            ASSERT_EQ(scanner.data().view(), model.data) << "seed " << seed;
            ASSERT_EQ(scanner.offset(), model.offset) << "seed " << seed;
        }
        ASSERT_EQ(scanner.count(), model.data.size());
        ByteScanner copy = scanner, moved = std::move(scanner);
        copy.append("x");
        ASSERT_EQ(moved.data().view(), model.data);
        ASSERT_EQ(moved.offset(), model.offset);
        ASSERT_EQ(scanner.finish(), std::nullopt); // NOLINT: what a moved-from one is, is promised
        ASSERT_EQ(scanner.trim(), 0U);
    }
}

} // namespace Platform
