#include "platform/host/printable.h"

#include "platform/base/hex.h"
#include "platform/base/utf8.h"

namespace ksw::host {

namespace {

unsigned byteAt(std::string_view text, std::size_t position) {
    return position < text.size() ? static_cast<unsigned char>(text[position]) : 0U;
}

constexpr bool isContinuation(unsigned byte) {
    return (byte & 0xC0U) == 0x80U;
}

/// The bytes of the printable character that `text` begins with; 0 when it begins with none.
std::size_t printableLength(std::string_view text) {
    std::size_t length = 0;
    const std::optional<char32_t> character = decodeUtf8(text, length);
    const bool isControl = character < U' ' || (character >= U'\x7F' && character < U'\xA0');
    return character && !isControl ? length : 0;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string output;
    output.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = printableLength(text);
        if (length > 0) {
            output += text.substr(0, length);
            text.remove_prefix(length);
            continue;
        }
        const auto byte = static_cast<unsigned char>(text.front());
        if (byte == '\n' || byte == '\t') {
            output += byte == '\n' ? "\\n" : "\\t";
        } else {
            output += "\\x";
            output += kLowerHexDigits[byte >> 4U];
            output += kLowerHexDigits[byte & 0xFU];
        }
        text.remove_prefix(1);
    }
    return output;
}

std::string_view cutText(std::string_view text, std::size_t sizeMax) {
    if (text.size() <= sizeMax) {
        return text;
    }
    std::size_t end = sizeMax;
    // A character has three continuation bytes at most; more of them are not UTF-8 and may be cut anywhere.
    while (end > 0 && sizeMax - end < 3 && isContinuation(byteAt(text, end))) {
        --end;
    }
    return text.substr(0, isContinuation(byteAt(text, end)) ? sizeMax : end);
}

}  // namespace ksw::host
