#include "platform/host/printable.h"

#include <algorithm>

#include "platform/base/hex.h"

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
    const unsigned first = byteAt(text, 0);
    const unsigned second = byteAt(text, 1);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    if (!isContinuation(second)) {
        return 0;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return first == 0xC2 && second < 0xA0 ? 0 : 2;  // U+0080 to U+009F are C1 controls
    }
    if (!isContinuation(byteAt(text, 2))) {
        return 0;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        const bool isOverlong = first == 0xE0 && second < 0xA0;
        const bool isSurrogate = first == 0xED && second >= 0xA0;
        return isOverlong || isSurrogate ? 0 : 3;
    }
    const bool isInRange =
        (first == 0xF0 && second >= 0x90) || (first >= 0xF1 && first <= 0xF3) || (first == 0xF4 && second < 0x90);
    return isInRange && isContinuation(byteAt(text, 3)) ? 4 : 0;
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
