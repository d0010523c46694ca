#pragma once

#include <Platform/base/Data.h>
#include <Platform/base/Export.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace Platform {

/// The bytes as valid UTF-8. Each invalid sequence is replaced by U+FFFD in the way that Unicode
/// recommends: one for each longest start of a sequence that could have become valid, else one for
/// the byte. Surrogates, overlong forms and values above U+10FFFF are invalid.
///
/// Valid bytes, zeros and a byte order mark included, are copied as they are. Pure; throws
/// `std::bad_alloc`.
PLATFORM_EXPORT std::string decodeUTF8(std::span<const std::byte> bytes);
/// The same, appended to `result`: for a secret, which would leave traces in a growing string.
PLATFORM_EXPORT void appendDecodedUTF8(Data& result, std::string_view bytes);
PLATFORM_EXPORT std::string decodeUTF8(std::string_view bytes);

/// The text, valid UTF-8, without the spaces (those of all scripts) and tabs at both ends. What is
/// returned is a part of what was given. Pure.
PLATFORM_EXPORT std::string_view trimWhiteSpace(std::string_view text) noexcept;
/// The same; line ends of all kinds are dropped too.
PLATFORM_EXPORT std::string_view trimWhiteSpaceAndLineEnds(std::string_view text) noexcept;

/// The first line of a text, valid UTF-8, which is taken away from it with its end: a line feed, a
/// carriage return, the two together, or Unicode's line and paragraph separators and next line.
/// Parts of what was given. Pure.
PLATFORM_EXPORT std::string_view takeLine(std::string_view& text) noexcept;

/// The text as a single line: every control character (C0, DEL, C1 in UTF-8) and the line and
/// paragraph separators become one space each; the rest, invalid bytes included, stays.
/// Pure; throws `std::bad_alloc`.
PLATFORM_EXPORT std::string singleLine(std::string_view text);

/// The text as one word of a POSIX shell's command line: as it is where no byte of it means
/// anything to the shell, else in single quotes. A shell cannot take a NUL. Pure; throws
/// `std::bad_alloc`.
PLATFORM_EXPORT std::string quotedForShell(std::string_view text);

} // namespace Platform
