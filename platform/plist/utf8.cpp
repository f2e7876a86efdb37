#include "platform/plist/utf8.h"

namespace ksw::plist {
namespace {

constexpr char32_t kCharacterMax = 0x10FFFF;

bool isSurrogate(char32_t character) {
    return character >= 0xD800 && character <= 0xDFFF;
}

/// How a first byte begins: how many bytes follow, its own bits, and the least character of that length.
struct Lead {
    std::size_t following;
    unsigned bits;
    char32_t least;
};

std::optional<Lead> leadOf(unsigned byte) {
    if (byte < 0x80) {
        return Lead{0, byte, 0};
    }
    if (byte >= 0xC2 && byte < 0xE0) {
        return Lead{1, byte & 0x1FU, 0x80};
    }
    if (byte >= 0xE0 && byte < 0xF0) {
        return Lead{2, byte & 0x0FU, 0x800};
    }
    if (byte >= 0xF0 && byte < 0xF5) {
        return Lead{3, byte & 0x07U, 0x10000};
    }
    return std::nullopt;
}

}  // namespace

std::optional<char32_t> decodeUtf8(std::string_view text, std::size_t& position) {
    if (position >= text.size()) {
        return std::nullopt;
    }
    const auto lead = leadOf(static_cast<unsigned char>(text[position]));
    if (!lead || text.size() - position <= lead->following) {
        return std::nullopt;
    }
    char32_t character = lead->bits;
    for (std::size_t index = 1; index <= lead->following; ++index) {
        const unsigned byte = static_cast<unsigned char>(text[position + index]);
        if ((byte & 0xC0U) != 0x80U) {
            return std::nullopt;
        }
        character = (character << 6U) | (byte & 0x3FU);
    }
    if (character < lead->least || character > kCharacterMax || isSurrogate(character)) {
        return std::nullopt;
    }
    position += lead->following + 1;
    return character;
}

void appendUtf8(std::string& text, char32_t character) {
    const auto following = [&](unsigned shift) {
        text.push_back(static_cast<char>(0x80U | ((character >> shift) & 0x3FU)));
    };
    if (character < 0x80) {
        text.push_back(static_cast<char>(character));
    } else if (character < 0x800) {
        text.push_back(static_cast<char>(0xC0U | (character >> 6U)));
        following(0);
    } else if (character < 0x10000) {
        text.push_back(static_cast<char>(0xE0U | (character >> 12U)));
        following(6);
        following(0);
    } else {
        text.push_back(static_cast<char>(0xF0U | (character >> 18U)));
        following(12);
        following(6);
        following(0);
    }
}

bool isUtf8(std::string_view text) {
    std::size_t position = 0;
    while (position < text.size()) {
        if (static_cast<unsigned char>(text[position]) < 0x80) {
            ++position;
        } else if (!decodeUtf8(text, position)) {
            return false;
        }
    }
    return true;
}

bool isXmlCharacter(char32_t character) {
    if (character < 0x20) {
        return character == '\t' || character == '\n' || character == '\r';
    }
    return !isSurrogate(character) && character != 0xFFFE && character != 0xFFFF && character <= kCharacterMax;
}

}  // namespace ksw::plist
