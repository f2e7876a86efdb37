#include "platform/base/utf8.h"

#include <cstdint>
#include <cstring>

namespace ksw {
namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080U;
constexpr std::size_t kWord = sizeof kHighBits;

std::uint64_t wordAt(std::string_view text, std::size_t position) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + position, kWord);
    return word;
}

/// Whether the text, unless it is short, is ASCII as almost every one is. The last word may overlap the one before.
bool isAscii(std::string_view text) {
    if (text.size() < kWord) {
        return false;
    }
    std::uint64_t bits = wordAt(text, text.size() - kWord);
    for (std::size_t position = 0; position + kWord < text.size(); position += kWord) {
        bits |= wordAt(text, position);
    }
    return (bits & kHighBits) == 0;
}

/// Where the first byte from `position` on stands that is not ASCII; the text's size when there is none.
std::size_t skipAscii(std::string_view text, std::size_t position) {
    while (text.size() - position >= kWord && (wordAt(text, position) & kHighBits) == 0) {
        position += kWord;
    }
    while (position < text.size() && static_cast<unsigned char>(text[position]) < 0x80) {
        ++position;
    }
    return position;
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
    if (isAscii(text)) {
        return true;
    }
    std::size_t position = skipAscii(text, 0);
    while (position < text.size()) {
        if (!decodeUtf8(text, position)) {
            return false;
        }
        position = skipAscii(text, position);
    }
    return true;
}

}  // namespace ksw
