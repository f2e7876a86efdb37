#include "tools/common/text.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace tools {
namespace {

/// One character of UTF-8: its value and its length in bytes; length 0 when the bytes are not UTF-8.
struct Character {
    std::uint32_t value = 0;
    std::size_t length = 0;
};

struct Lead {
    std::uint8_t mask;
    std::uint8_t bits;
    std::size_t length;
    std::uint32_t least;  // a smaller value in this length is an overlong form
};

constexpr std::array<Lead, 4> kLeads{{
    {0x80, 0x00, 1, 0x0},
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
}};

bool isScalar(std::uint32_t value) {
    return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

Character characterAt(std::string_view text, const Lead& lead) {
    if (text.size() < lead.length) {
        return {};
    }
    std::uint32_t value = static_cast<std::uint8_t>(text[0]) & static_cast<std::uint8_t>(~lead.mask);
    for (std::size_t index = 1; index < lead.length; ++index) {
        const auto byte = static_cast<std::uint8_t>(text[index]);
        if ((byte & 0xC0U) != 0x80U) {
            return {};
        }
        value = (value << 6U) | (byte & 0x3FU);
    }
    return value >= lead.least && isScalar(value) ? Character{value, lead.length} : Character{};
}

Character firstCharacter(std::string_view text) {
    for (const Lead& lead : kLeads) {
        if ((static_cast<std::uint8_t>(text[0]) & lead.mask) == lead.bits) {
            return characterAt(text, lead);
        }
    }
    return {};
}

bool within(std::uint32_t value, std::uint32_t first, std::uint32_t last) {
    return value >= first && value <= last;
}

bool mayMislead(std::uint32_t value) {
    return value < 0x20 || within(value, 0x7F, 0x9F) || value == 0x61C || within(value, 0x200E, 0x200F) ||
           within(value, 0x2028, 0x202E) || within(value, 0x2066, 0x2069) || value == 0xFEFF;
}

void appendEscape(std::string& out, std::uint32_t value) {
    std::array<char, 16> buffer{};
    std::snprintf(buffer.data(), buffer.size(), value < 0x80 ? "\\x%02x" : "\\u%04x", value);
    out += buffer.data();
}

}  // namespace

std::string printable(std::string_view text, Backslash backslash) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const Character next = firstCharacter(text);
        if (next.length == 0) {
            std::array<char, 8> buffer{};
            std::snprintf(buffer.data(), buffer.size(), "\\x%02x", static_cast<unsigned>(text[0]) & 0xFFU);
            out += buffer.data();
        } else if (next.value == '\\' && backslash == Backslash::Doubled) {
            out += "\\\\";
        } else if (mayMislead(next.value)) {
            appendEscape(out, next.value);
        } else {
            out += text.substr(0, next.length);
        }
        text.remove_prefix(next.length == 0 ? 1 : next.length);
    }
    return out;
}

}  // namespace tools
