#include "platform/base/url_parts.h"

#include <array>

#include "platform/base/hex.h"

namespace ksw {

namespace {

constexpr bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool isUnreserved(char c) {
    return isLetter(c) || isDigit(c) || std::string_view("-._~").find(c) != std::string_view::npos;
}
constexpr bool isSubDelimiter(char c) {
    return std::string_view("!$&'()*+,;=").find(c) != std::string_view::npos;
}
constexpr bool isPathCharacter(char c) {
    return isUnreserved(c) || isSubDelimiter(c) || c == ':' || c == '@' || c == '/';
}
/// A set of characters as a table, since every URL that comes over a socket is looked at byte by byte.
using CharacterSet = std::array<bool, 256>;

/// Every character that a URL may hold somewhere, the percent sign aside.
constexpr CharacterSet kUrlCharacters = [] {
    CharacterSet set{};
    for (std::size_t byte = 0; byte < set.size(); ++byte) {
        const auto c = static_cast<char>(byte);
        set[byte] = isPathCharacter(c) || c == '?' || c == '#' || c == '[' || c == ']';
    }
    return set;
}();
constexpr bool isUrlCharacter(char c) {
    return kUrlCharacters[static_cast<unsigned char>(c)];
}

/// Where the first of a few delimiters stands, or npos.
std::size_t findDelimiter(std::string_view text, std::string_view delimiters) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        for (const char delimiter : delimiters) {
            if (text[i] == delimiter) {
                return i;
            }
        }
    }
    return std::string_view::npos;
}

bool isScheme(std::string_view text) {
    if (text.empty() || !isLetter(text.front())) {
        return false;
    }
    for (char c : text) {
        if (!isLetter(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') {
            return false;
        }
    }
    return true;
}

/// Cuts what stands before the first of `delimiters` off the front of `text`.
std::string_view takeUntil(std::string_view& text, std::string_view delimiters) {
    const std::string_view taken = text.substr(0, findDelimiter(text, delimiters));
    text.remove_prefix(taken.size());
    return taken;
}

/// The reference's path put in the place of the last segment of the base's (RFC 3986, section 5.2.3).
std::string mergePaths(const UrlParts& base, std::string_view path) {
    std::string merged;
    if (base.authority && base.path.empty()) {
        merged = "/";
    } else {
        merged = base.path.substr(0, base.path.rfind('/') + 1);
    }
    merged += path;
    return merged;
}

}  // namespace

bool isUrlReference(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            if (text.size() - i < 3 || hexDigitValue(text[i + 1]) < 0 || hexDigitValue(text[i + 2]) < 0) {
                return false;
            }
        } else if (!isUrlCharacter(text[i])) {
            return false;
        }
    }
    const std::size_t firstDelimiter = findDelimiter(text, ":/?#");
    if (firstDelimiter != std::string_view::npos && text[firstDelimiter] == ':' &&
        !isScheme(text.substr(0, firstDelimiter))) {
        return false;
    }
    const std::size_t hash = text.find('#');
    return hash == std::string_view::npos || text.find('#', hash + 1) == std::string_view::npos;
}

std::optional<std::string_view> schemeOf(std::string_view text) {
    const std::size_t end = findDelimiter(text, ":/?#");
    if (end == std::string_view::npos || text[end] != ':' || !isScheme(text.substr(0, end))) {
        return std::nullopt;
    }
    return text.substr(0, end);
}

UrlParts splitUrl(std::string_view text) {
    UrlParts parts;
    parts.scheme = schemeOf(text);
    if (parts.scheme) {
        text.remove_prefix(parts.scheme->size() + 1);
    }
    if (text.starts_with("//")) {
        text.remove_prefix(2);
        parts.authority = takeUntil(text, "/?#");
    }
    parts.path = takeUntil(text, "?#");
    if (text.starts_with('?')) {
        text.remove_prefix(1);
        parts.query = takeUntil(text, "#");
    }
    if (text.starts_with('#')) {
        text.remove_prefix(1);
        parts.fragment = text;
    }
    return parts;
}

std::string composeUrl(const UrlParts& parts) {
    std::string text;
    if (parts.scheme) {
        text += *parts.scheme;
        text += ':';
    }
    if (parts.authority) {
        text += "//";
        text += *parts.authority;
    } else if (parts.path.starts_with("//")) {
        text += "/.";
    } else if (!parts.scheme && parts.path.substr(0, parts.path.find('/')).find(':') != std::string_view::npos) {
        text += "./";
    }
    text += parts.path;
    if (parts.query) {
        text += '?';
        text += *parts.query;
    }
    if (parts.fragment) {
        text += '#';
        text += *parts.fragment;
    }
    return text;
}

std::string resolveUrl(std::string_view base, std::string_view reference) {
    const UrlParts from = splitUrl(base);
    UrlParts target = splitUrl(reference);
    std::string path;
    if (target.scheme || target.authority) {
        path = removeDotSegments(target.path);
        target.scheme = target.scheme ? target.scheme : from.scheme;
    } else {
        target.scheme = from.scheme;
        target.authority = from.authority;
        if (target.path.empty()) {
            path = from.path;
            target.query = target.query ? target.query : from.query;
        } else {
            path = removeDotSegments(target.path.starts_with('/') ? std::string(target.path)
                                                                  : mergePaths(from, target.path));
        }
    }
    target.path = path;
    return composeUrl(target);
}

std::string removeDotSegments(std::string_view path) {
    const bool isAbsolute = path.starts_with('/');
    std::string output;
    output.reserve(path.size());
    std::string_view rest = path;
    // Each round takes one segment with its slash in front; the first one of a relative path has none.
    while (!rest.empty()) {
        const std::string_view slash = rest.substr(0, rest.starts_with('/') ? 1 : 0);
        rest.remove_prefix(slash.size());
        const std::string_view segment = takeUntil(rest, "/");
        if (segment != "." && segment != "..") {
            output += slash;
            output += segment;
            continue;
        }
        if (segment == "..") {
            const std::size_t last = output.rfind('/');
            output.resize(last == std::string::npos ? 0 : last);
        }
        if (rest.empty() && (isAbsolute || !output.empty())) {
            output += '/';
        }
    }
    if (!isAbsolute) {
        output.erase(0, output.find_first_not_of('/'));
    }
    return output;
}

std::string percentEncodePath(std::string_view path) {
    std::string encoded;
    encoded.reserve(path.size());
    for (char c : path) {
        if (isPathCharacter(c)) {
            encoded += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded += '%';
        encoded += kUpperHexDigits[byte >> 4U];
        encoded += kUpperHexDigits[byte & 0xFU];
    }
    return encoded;
}

std::string percentDecode(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool hasTwoMore = text[i] == '%' && text.size() - i >= 3;
        const int high = hasTwoMore ? hexDigitValue(text[i + 1]) : -1;
        const int low = hasTwoMore ? hexDigitValue(text[i + 2]) : -1;
        if (high < 0 || low < 0) {
            decoded += text[i];
            continue;
        }
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return decoded;
}

}  // namespace ksw
