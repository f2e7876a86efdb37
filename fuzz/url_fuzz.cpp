// url_fuzz.cpp: any bytes as a URL, as a reference against a base, and as a path. The first line is the base, the
// rest the reference.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <kestrelwood/values/url.h>

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// Whatever a URL answers must itself be a URL, and mean the same.
void check(const ksw::URL& url) {
    const std::string absolute = url.absoluteString();
    const auto again = ksw::URL::fromString(absolute);
    require(again.has_value());
    require(again->path() == url.path());
    require(again->scheme() == url.scheme());
    require(again->lastPathComponent() == url.lastPathComponent());
    require(url.absoluteURL() == *again);
    static_cast<void>(url.relativePath());
    for (const ksw::URL& made : {url.deletingLastPathComponent(), url.appendingPathComponent("a:b c")}) {
        require(ksw::URL::fromString(made.relativeString()).has_value());
        require(ksw::URL::fromString(made.absoluteString()).has_value());
    }
}

void checkPath(std::string_view path) {
    const ksw::URL url = ksw::URL::fileURL(path);
    check(url);
    std::string_view expected = path;
    while (expected.size() > 1 && expected.ends_with('/')) {
        expected.remove_suffix(1);
    }
    require(url.path() == expected);
    check(ksw::URL::fileURL(path, ksw::PathKind::Directory));
    check(ksw::URL::fileURL(path, ksw::URL::fileURL("/base/folder/"), ksw::PathKind::Directory));
    static_cast<void>(ksw::pathComponents(path));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::size_t lineEnd = std::min(text.find('\n'), text.size());
    const std::string_view first = text.substr(0, lineEnd);
    const std::string_view rest = text.substr(std::min(lineEnd + 1, text.size()));
    if (const auto base = ksw::URL::fromString(first)) {
        check(*base);
        if (const auto url = ksw::URL::fromString(rest, *base)) {
            check(*url);
        }
    }
    checkPath(text);
    return 0;
}
