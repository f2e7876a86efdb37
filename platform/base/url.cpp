#include <kestrelwood/values/url.h>

#include <algorithm>

#include "platform/base/paths.h"
#include "platform/base/url_parts.h"

namespace ksw {

namespace {

constexpr std::string_view kFileScheme = "file";

/// The path percent-encoded so that it may begin a relative URL: no colon in its first segment, which would
/// read as a scheme's end, and no second slash in front, which would read as an authority's begin.
std::string encodeRelativePath(std::string_view path) {
    std::string encoded = percentEncodePath(path);
    const std::string_view first = std::string_view(encoded).substr(0, encoded.find('/'));
    for (std::size_t colon = first.size(); colon-- > 0;) {
        if (encoded[colon] == ':') {
            encoded.replace(colon, 1, "%3A");
        }
    }
    return encoded;
}

std::string encodeFilePath(std::string_view path, PathKind kind) {
    const bool isAbsolute = path.starts_with('/');
    std::string text = isAbsolute ? "file://" + percentEncodePath(path) : encodeRelativePath(path);
    if (kind == PathKind::Directory && !text.ends_with('/')) {
        text += text.empty() ? "./" : "/";
    }
    return text;
}

/// A base that stands alone, so that no chain of bases can grow.
std::shared_ptr<const URL> ownBase(const URL& base) {
    return std::make_shared<const URL>(base.absoluteURL());
}

}  // namespace

std::optional<URL> URL::fromString(std::string_view text) {
    if (!isUrlReference(text)) {
        return std::nullopt;
    }
    return URL(std::string(text), nullptr);
}

std::optional<URL> URL::fromString(std::string_view text, const URL& base) {
    if (!isUrlReference(text)) {
        return std::nullopt;
    }
    return URL(std::string(text), schemeOf(text) ? nullptr : ownBase(base));
}

URL URL::fileURL(std::string_view path, PathKind kind) {
    return URL(encodeFilePath(path, kind), nullptr);
}

URL URL::fileURL(std::string_view path, const URL& base, PathKind kind) {
    return URL(encodeFilePath(path, kind), path.starts_with('/') ? nullptr : ownBase(base));
}

std::string URL::relativePath() const {
    return percentDecode(withoutEndSlashes(splitUrl(relative_).path));
}

std::string URL::absoluteString() const {
    return base_ == nullptr ? relative_ : resolveUrl(base_->relative_, relative_);
}

URL URL::absoluteURL() const {
    return URL(absoluteString(), nullptr);
}

std::string URL::path() const {
    const std::string absolute = absoluteString();
    return percentDecode(withoutEndSlashes(splitUrl(absolute).path));
}

std::string URL::scheme() const {
    const std::string absolute = absoluteString();
    std::string scheme(splitUrl(absolute).scheme.value_or(std::string_view()));
    for (char& c : scheme) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return scheme;
}

bool URL::isFileURL() const {
    return scheme() == kFileScheme;
}

bool URL::hasDirectoryPath() const {
    return splitUrl(relative_).path.ends_with('/');
}

std::string URL::lastPathComponent() const {
    const std::string absolute = absoluteString();
    return percentDecode(lastComponent(splitUrl(absolute).path));
}

URL URL::appendingPathComponent(std::string_view component, PathKind kind) const {
    UrlParts parts = splitUrl(relative_);
    if (parts.path.empty() && base_ != nullptr) {
        return absoluteURL().appendingPathComponent(component, kind);
    }
    component.remove_prefix(std::min(component.find_first_not_of('/'), component.size()));
    std::string path(parts.path);
    if (!path.ends_with('/') && (!path.empty() || parts.authority)) {
        path += '/';
    }
    path += path.empty() ? encodeRelativePath(component) : percentEncodePath(component);
    if (kind == PathKind::Directory && !path.ends_with('/')) {
        path += '/';
    }
    parts.path = path;
    return URL(composeUrl(parts), base_);
}

URL URL::deletingLastPathComponent() const {
    UrlParts parts = splitUrl(relative_);
    const std::string_view path = withoutEndSlashes(parts.path);
    const std::string_view last = lastComponent(path);
    std::string shortened;
    if (path == "/" || (path.empty() && parts.authority)) {
        shortened = "/";
    } else if (path.empty() || last == "." || last == "..") {
        shortened = std::string(path) + (path.empty() ? "../" : "/../");
    } else {
        shortened = path.substr(0, path.size() - last.size());
        shortened = shortened.empty() ? "./" : shortened;
    }
    parts.path = shortened;
    parts.query = parts.fragment = std::nullopt;
    return URL(composeUrl(parts), base_);
}

bool operator==(const URL& left, const URL& right) {
    if (left.relative_ != right.relative_ || (left.base_ == nullptr) != (right.base_ == nullptr)) {
        return false;
    }
    return left.base_ == nullptr || left.base_->relative_ == right.base_->relative_;
}

std::vector<std::string> pathComponents(std::string_view path) {
    std::vector<std::string> components;
    if (path.starts_with('/')) {
        components.emplace_back("/");
    }
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        if (!name.empty()) {
            components.emplace_back(name);
        }
        path.remove_prefix(std::min(name.size() + 1, path.size()));
    }
    return components;
}

}  // namespace ksw
