// base64.h: base64 (RFC 4648, section 4) with its padding, as it is written. Reading: platform/plist/xml_scalars.h.
#pragma once

#include <string>
#include <string_view>

#include <kestrelwood/values/data.h>

namespace ksw {

/// Appends up to three bytes as four characters.
inline void appendBase64Group(std::string& out, Bytes bytes) {
    constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto byte = [&](std::size_t index) -> unsigned { return index < bytes.size() ? bytes[index] : 0U; };
    const unsigned group = (byte(0) << 16U) | (byte(1) << 8U) | byte(2);
    for (unsigned index = 0; index < 4; ++index) {
        out.push_back(index <= bytes.size() ? kAlphabet[(group >> (18U - 6U * index)) & 0x3FU] : '=');
    }
}

/// How many characters so many bytes become.
constexpr std::size_t base64Size(std::size_t bytes) {
    return (bytes + 2) / 3 * 4;
}

/// Appends bytes as one run of characters.
inline void appendBase64(std::string& out, Bytes bytes) {
    out.reserve(out.size() + base64Size(bytes.size()));
    for (; bytes.size() > 3; bytes = bytes.subspan(3)) {
        appendBase64Group(out, bytes.first(3));
    }
    if (!bytes.empty()) {
        appendBase64Group(out, bytes);
    }
}

}  // namespace ksw
