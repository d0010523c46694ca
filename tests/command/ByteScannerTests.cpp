#include <support/Testing.h>

namespace Platform {
namespace {

using Piece = std::optional<std::string>;

Piece textOf(const std::optional<Data>& piece) {
    return piece ? Piece(piece->view()) : std::nullopt;
}
Piece textOf(std::optional<std::string_view> piece) {
    return piece ? Piece(*piece) : std::nullopt;
}

/// The scanner, byte by byte.
struct Model {
    std::string data;
    std::size_t offset = 0;

    template <class Matches>
    Piece scan(std::size_t length, bool consume, Matches matches) {
        for (std::size_t at = offset; at + length <= data.size() && length > 0; ++at) {
            if (!matches(at)) continue;
            Piece piece = data.substr(offset, at - offset);
            offset = at + (consume ? length : 0);
            return piece;
        }
        return std::nullopt;
    }
    Piece to(const std::string& pattern, bool consume) {
        return scan(pattern.size(), consume,
                    [&](auto at) { return data.compare(at, pattern.size(), pattern) == 0; });
    }
    Piece toAnyOf(const std::string& set, bool consume) {
        return scan(set.empty() ? 0 : 1, consume,
                    [&](auto at) { return set.find(data[at]) != set.npos; });
    }
    Piece finish() {
        if (offset >= data.size()) return std::nullopt;
        return data.substr(std::exchange(offset, data.size()));
    }
    std::size_t trim() {
        data.erase(0, offset);
        return std::exchange(offset, 0);
    }
};

} // namespace

TEST(ByteScanner, ScansLikeTheModel) {
    std::minstd_rand random(1);
    const std::string alphabet("ab\r\n\0\xff\x0b\x8a", 8); // some differ by a bit
    const std::vector<std::string> patterns{"",
                                            "a",
                                            "\n",
                                            "\r\n",
                                            "aab",
                                            "abab",
                                            "\xff"
                                            "a",
                                            std::string("\0", 1),
                                            std::string(70, 'a')};
    const std::vector<std::string> sets{"",         "\n", "b\xff", std::string("b\0", 2),
                                        "\n\r\xff", "zzz"};
    for (int seed = 0; seed < 3000; ++seed) {
        ByteScanner scanner;
        Model model;
        const auto densest = 1 + random() % 6; // few delimiters, or many
        for (int step = 0; step < 60; ++step) {
            const bool consume = random() % 2, view = random() % 2;
            const std::string& pattern = patterns[random() % patterns.size()];
            const std::string& set = sets[random() % sets.size()];
            switch (random() % 6) {
            case 0: {
                std::string chunk(random() % (random() % 4 ? 8 : 200), 'a');
                for (char& byte : chunk)
                    if (random() % 8 < densest) byte = alphabet[random() % alphabet.size()];
                scanner.append(chunk);
                model.data += chunk;
                break;
            }
            case 1:
                ASSERT_EQ(view ? textOf(scanner.viewTo(pattern, consume))
                               : textOf(scanner.scanTo(std::as_bytes(std::span(pattern)), consume)),
                          model.to(pattern, consume));
                break;
            case 2:
                ASSERT_EQ(view
                              ? textOf(scanner.viewToAnyOf(set, consume))
                              : textOf(scanner.scanToAnyOf(std::as_bytes(std::span(set)), consume)),
                          model.toAnyOf(set, consume));
                break;
            case 3:
                ASSERT_EQ(view ? textOf(scanner.viewToEndOfLine(consume))
                               : textOf(scanner.scanToEndOfLine(consume)),
                          model.toAnyOf("\r\n", consume));
                break;
            case 4:
                if (random() % 4) break;
                ASSERT_EQ(view ? textOf(scanner.viewRest()) : textOf(scanner.finish()),
                          model.finish());
                break;
            default:
                ASSERT_EQ(scanner.trim(), model.trim());
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
