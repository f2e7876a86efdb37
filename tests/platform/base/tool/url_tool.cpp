// url_tool: resolves URLs, for tests in other languages. Answers each line of standard input with one line. A
// request is "r", a base and a reference, or "f" and a path in hexadecimal, with tabs between them. The reply is
// the absolute text of the resolved URL, or of the path's file URL, and its path in hexadecimal; "-" when the base
// or the reference is no URL.
#include <algorithm>
#include <cstddef>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/url.h>

#include "platform/base/hex.h"

namespace {

std::string hex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += ksw::kUpperHexDigits[static_cast<unsigned char>(byte) >> 4U];
        text += ksw::kUpperHexDigits[static_cast<unsigned char>(byte) & 0xFU];
    }
    return text;
}

std::string bytes(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        result += static_cast<char>(ksw::hexDigitValue(text[i]) * 16 + ksw::hexDigitValue(text[i + 1]));
    }
    return result;
}

std::string_view takeField(std::string_view& line) {
    const std::string_view field = line.substr(0, line.find('\t'));
    line.remove_prefix(std::min(field.size() + 1, line.size()));
    return field;
}

std::optional<ksw::URL> answer(std::string_view line) {
    if (takeField(line) == "f") {
        return ksw::URL::fileURL(bytes(line));
    }
    const std::optional<ksw::URL> base = ksw::URL::fromString(takeField(line));
    return base ? ksw::URL::fromString(line, *base) : std::nullopt;
}

}  // namespace

int main() {
    for (std::string line; std::getline(std::cin, line);) {
        const std::optional<ksw::URL> url = answer(line);
        std::cout << (url ? url->absoluteString() + "\t" + hex(url->path()) : "-") << '\n';
    }
    return 0;
}
