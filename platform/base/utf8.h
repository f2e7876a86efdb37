// utf8.h: characters as UTF-8 bytes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ksw {

/// The character at `position`, which moves behind it. Absent, and the position stays, when the bytes there are
/// not one: cut off, overlong, a surrogate or beyond U+10FFFF.
std::optional<char32_t> decodeUtf8(std::string_view text, std::size_t& position);

/// Appends a character that is no surrogate and not beyond U+10FFFF.
void appendUtf8(std::string& text, char32_t character);

/// Whether all of the text is UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing beyond U+10FFFF.
bool isUtf8(std::string_view text);

/// Whether the character is one half of a pair in UTF-16, which is no character of its own.
constexpr bool isSurrogate(char32_t character) {
    return character >= 0xD800 && character <= 0xDFFF;
}

inline constexpr char32_t kCharacterMax = 0x10FFFF;

}  // namespace ksw
