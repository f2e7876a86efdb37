// url.h: uniform resource locators (RFC 3986), absolute or relative to a base, and file URLs (RFC 8089).
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/export.h>

namespace ksw {

/// Whether a path names a directory: then its URL ends in a slash, and relative URLs resolve below it.
enum class PathKind { File, Directory };

/// A URL as text, with the base that it is relative to, if any. A value: copies are independent, and a
/// constant one may be read from many threads. The text is kept as given; paths are bytes, so a path that is
/// not UTF-8 survives percent-encoded. Two URLs are equal when text and base are.
class KSW_EXPORT URL {
public:
    /// Reads a URL reference. Absent when the text is not one: a control character or blank, a percent sign
    /// without two hex digits, bytes beyond ASCII or one of "<>\^`{|} (they must be percent-encoded), a second
    /// "#", or a colon in the first segment of a text without scheme.
    static std::optional<URL> fromString(std::string_view text);
    /// The same, relative to `base`. An absolute text keeps no base. A base with a base of its own is kept in
    /// its absolute form.
    static std::optional<URL> fromString(std::string_view text, const URL& base);

    /// The file URL of a path; bytes that a URL cannot hold are percent-encoded. A path that does not begin
    /// with "/" gives a relative URL without base.
    static URL fileURL(std::string_view path, PathKind kind = PathKind::File);
    /// The file URL of a path relative to `base`; an absolute path keeps no base.
    static URL fileURL(std::string_view path, const URL& base, PathKind kind = PathKind::File);

    /// The text as given, without the base.
    const std::string& relativeString() const { return relative_; }
    /// The path of the text as given, percent-decoded, without a trailing slash (but "/" stays).
    std::string relativePath() const;
    /// The text resolved against the base (RFC 3986, section 5.2), dot segments removed when there is a base.
    std::string absoluteString() const;
    /// The same as a URL without a base.
    URL absoluteURL() const;
    /// The path of the absolute form, percent-decoded, without a trailing slash (but "/" stays).
    std::string path() const;
    /// The base; null when the URL has none.
    const URL* baseURL() const { return base_.get(); }

    /// The scheme of the absolute form in lower case; empty when there is none.
    std::string scheme() const;
    /// Whether the absolute form's scheme is "file".
    bool isFileURL() const;
    /// Whether the path of the text as given ends in a slash.
    bool hasDirectoryPath() const;

    /// The last component of the path, percent-decoded; "/" for the root, empty for an empty path.
    std::string lastPathComponent() const;
    /// The URL with a component appended to its path, percent-encoded; slashes in it separate components. Base,
    /// query and fragment stay.
    URL appendingPathComponent(std::string_view component, PathKind kind = PathKind::File) const;
    /// The URL without its last path component, query and fragment, ending in a slash. The root stays; below a
    /// path of ".." or an empty one the parent is named with "../".
    URL deletingLastPathComponent() const;

    /// Whether both are written alike, relative to equal bases.
    KSW_EXPORT friend bool operator==(const URL& left, const URL& right);

private:
    URL(std::string relative, std::shared_ptr<const URL> base)
        : relative_(std::move(relative)), base_(std::move(base)) {}

    std::string relative_;
    std::shared_ptr<const URL> base_;
};

/// The components of a path: "/" first when it is absolute, then each name; repeated slashes count once.
KSW_EXPORT std::vector<std::string> pathComponents(std::string_view path);

}  // namespace ksw

template <>
struct std::hash<ksw::URL> {
    std::size_t operator()(const ksw::URL& url) const noexcept {
        return std::hash<std::string>{}(url.relativeString());
    }
};
