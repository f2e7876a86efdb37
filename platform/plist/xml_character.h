// xml_character.h: what an XML document can hold.
#pragma once

#include "platform/base/utf8.h"

namespace ksw::plist {

/// Whether XML 1.0 (section 2.2) can hold the character.
constexpr bool isXmlCharacter(char32_t character) {
    if (character < 0x20) {
        return character == '\t' || character == '\n' || character == '\r';
    }
    return !isSurrogate(character) && character != 0xFFFE && character != 0xFFFF && character <= kCharacterMax;
}

}  // namespace ksw::plist
