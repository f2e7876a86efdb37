// utf8.h: characters as UTF-8 bytes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ksw::plist {

/// The character at `position`, which moves behind it. Absent, and the position stays, when the bytes there are
/// not one: cut off, overlong, a surrogate or beyond U+10FFFF.
std::optional<char32_t> decodeUtf8(std::string_view text, std::size_t& position);

/// Appends a character that is no surrogate and not beyond U+10FFFF.
void appendUtf8(std::string& text, char32_t character);

/// Whether all of the text is UTF-8.
bool isUtf8(std::string_view text);

/// Whether XML 1.0 can hold the character.
bool isXmlCharacter(char32_t character);

}  // namespace ksw::plist
