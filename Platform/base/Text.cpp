#include <Platform/base/Text.h>

#include <cstdint>
#include <cstring>
#include <utility>

namespace Platform {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

unsigned char byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

/// The number of ASCII bytes from `start` on.
std::size_t asciiLength(std::string_view text, std::size_t start) {
    std::size_t index = start;
    while (text.size() - index >= 8) {
        std::uint64_t word;
        std::memcpy(&word, text.data() + index, 8);
        if (word & 0x8080808080808080U) {
            break;
        }
        index += 8;
    }
    while (index < text.size() && byteAt(text, index) < 0x80) {
        ++index;
    }
    return index - start;
}

struct Sequence {
    std::size_t length;
    bool valid;
};

/// The sequence that the lead byte at `start`, not ASCII, begins: the whole of it when valid, else
/// its longest start that could have become valid, at least the one byte.
Sequence sequenceAt(std::string_view text, std::size_t start) {
    const unsigned char lead = byteAt(text, start);
    if (lead < 0xC2 || lead > 0xF4) {
        return {1, false};
    }
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    // Only the second byte is restricted further: against overlong forms, surrogates, too much.
    unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (std::size_t index = 1; index < length; ++index) {
        if (start + index == text.size() || byteAt(text, start + index) < low ||
            byteAt(text, start + index) > high) {
            return {index, false};
        }
        low = 0x80;
        high = 0xBF;
    }
    return {length, true};
}

/// Calls `append` with pieces of valid UTF-8, one after the other.
template <class Append>
void decode(std::string_view bytes, Append append) {
    std::size_t copied = 0; // what lies before was appended
    std::size_t index = 0;
    for (;;) {
        index += asciiLength(bytes, index);
        if (index == bytes.size()) {
            break;
        }
        const Sequence sequence = sequenceAt(bytes, index);
        if (!sequence.valid) {
            append(bytes.substr(copied, index - copied));
            append(replacement);
            copied = index + sequence.length;
        }
        index += sequence.length;
    }
    append(bytes.substr(copied));
}

constexpr std::string_view whiteSpace[] = {
    "\t",           " ",
    "\xC2\xA0",     "\xE1\x9A\x80",
    "\xE2\x80\x80", "\xE2\x80\x81",
    "\xE2\x80\x82", "\xE2\x80\x83",
    "\xE2\x80\x84", "\xE2\x80\x85",
    "\xE2\x80\x86", "\xE2\x80\x87",
    "\xE2\x80\x88", "\xE2\x80\x89",
    "\xE2\x80\x8A", "\xE2\x80\x8B",
    "\xE2\x80\xAF", "\xE2\x81\x9F",
    "\xE3\x80\x80",
};
constexpr std::string_view lineEnds[] = {
    "\r\n", "\n", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9",
};
constexpr std::string_view otherLineEnds[] = {"\v", "\f"}; // which end no line

bool takeFirst(std::string_view& text, std::span<const std::string_view> set) noexcept {
    for (const std::string_view one : set) {
        if (!text.starts_with(one)) continue;
        text.remove_prefix(one.size());
        return true;
    }
    return false;
}

bool takeLast(std::string_view& text, std::span<const std::string_view> set) noexcept {
    for (const std::string_view one : set) {
        if (!text.ends_with(one)) continue;
        text.remove_suffix(one.size());
        return true;
    }
    return false;
}

} // namespace

std::string_view trimWhiteSpace(std::string_view text) noexcept {
    while (takeFirst(text, whiteSpace)) {
    }
    while (takeLast(text, whiteSpace)) {
    }
    return text;
}

std::string_view trimWhiteSpaceAndLineEnds(std::string_view text) noexcept {
    while (takeFirst(text, whiteSpace) || takeFirst(text, lineEnds) ||
           takeFirst(text, otherLineEnds)) {
    }
    while (takeLast(text, whiteSpace) || takeLast(text, lineEnds) ||
           takeLast(text, otherLineEnds)) {
    }
    return text;
}

std::string_view takeLine(std::string_view& text) noexcept {
    for (std::size_t index = 0; index < text.size(); ++index) {
        std::string_view rest = text.substr(index);
        if (!takeFirst(rest, lineEnds)) continue;
        return std::exchange(text, rest).substr(0, index);
    }
    return std::exchange(text, {});
}

std::string decodeUTF8(std::string_view bytes) {
    std::string result;
    decode(bytes, [&](std::string_view valid) { result.append(valid); });
    return result;
}

void appendDecodedUTF8(Data& result, std::string_view bytes) {
    decode(bytes, [&](std::string_view valid) { result.append(valid); });
}

std::string decodeUTF8(std::span<const std::byte> bytes) {
    return decodeUTF8(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string singleLine(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t index = 0; index < text.size();) {
        const unsigned char byte = byteAt(text, index);
        const std::string_view rest = text.substr(index);
        if (byte < 0x20 || byte == 0x7F) {
            result += ' ';
            index += 1;
        } else if (byte == 0xC2 && rest.size() > 1 && byteAt(rest, 1) < 0xA0) {
            result += ' ';
            index += 2;
        } else if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) {
            result += ' ';
            index += 3;
        } else {
            result += text[index];
            index += 1;
        }
    }
    return result;
}

std::string quotedForShell(std::string_view text) {
    constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789%+,-./:@_";
    if (!text.empty() && text.find_first_not_of(plain) == text.npos) return std::string(text);
    std::string quoted = "'";
    for (const char byte : text) {
        if (byte == '\'') {
            quoted += "'\\''";
        } else {
            quoted += byte;
        }
    }
    return quoted + "'";
}

} // namespace Platform
