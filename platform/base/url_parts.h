// url_parts.h: a URL reference taken apart and put together again (RFC 3986), on text alone.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ksw {

/// The five components of a URL reference, borrowed from its text and still percent-encoded. A component
/// that is absent differs from one that is empty; a path is always there.
struct UrlParts {
    std::optional<std::string_view> scheme;
    std::optional<std::string_view> authority;
    std::string_view path;
    std::optional<std::string_view> query;
    std::optional<std::string_view> fragment;
};

/// Whether the text may stand as a URL reference: RFC 3986's characters only, each percent sign followed by
/// two hex digits, and no colon in the first segment but behind a scheme.
bool isUrlReference(std::string_view text);

/// The text's scheme, which ends before the first colon; absent when it has none.
std::optional<std::string_view> schemeOf(std::string_view text);

/// Takes a text apart. Any text has parts; whether they are well-formed is `isUrlReference`'s to say.
UrlParts splitUrl(std::string_view text);

/// The text of the parts. A path that would read as an authority or a scheme gets "/." or "./" in front.
std::string composeUrl(const UrlParts& parts);

/// The reference resolved against the base (RFC 3986, section 5.2.2, strict).
std::string resolveUrl(std::string_view base, std::string_view reference);

/// The path without "." and ".." segments (RFC 3986, section 5.2.4).
std::string removeDotSegments(std::string_view path);

/// The path's bytes as a URL's path: all but unreserved characters, sub-delimiters, ":", "@" and "/" becomes %XX.
std::string percentEncodePath(std::string_view path);

/// The bytes that a percent-encoded text stands for. A percent sign without two hex digits stands for itself.
std::string percentDecode(std::string_view text);

}  // namespace ksw
