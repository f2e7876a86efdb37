#include "platform/facts/developer_name.h"

#include <algorithm>
#include <utility>

#include "platform/base/utf8.h"

namespace ksw::facts {

namespace {

constexpr bool isWhiteSpace(char32_t character) {
    return (character >= 0x09 && character <= 0x0D) || character == 0x20 || character == 0x85 ||
           character == 0xA0 || character == 0x1680 || (character >= 0x2000 && character <= 0x200A) ||
           character == 0x2028 || character == 0x2029 || character == 0x202F || character == 0x205F ||
           character == 0x3000;
}

/// Bytes that are no character count as ink.
std::string_view trimmed(std::string_view text) {
    std::size_t begin = text.size();
    std::size_t end = text.size();
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t start = position;
        const std::optional<char32_t> character = decodeUtf8(text, position);
        position += character ? 0 : 1;
        if (!character || !isWhiteSpace(*character)) {
            begin = std::min(begin, start);
            end = position;
        }
    }
    return text.substr(begin, end - begin);
}

}  // namespace

std::optional<std::string> leafOrganization(const CodeFacts& facts) {
    if (facts.chain.empty() || facts.chain.front().organizations.empty()) {
        return std::nullopt;
    }
    const std::string_view name = trimmed(facts.chain.front().organizations.front());
    return name.empty() ? std::nullopt : std::optional(std::string(name));
}

std::optional<std::string> withoutMaker(std::optional<std::string> name) {
    return name == kMakerName ? std::nullopt : std::move(name);
}

}  // namespace ksw::facts
