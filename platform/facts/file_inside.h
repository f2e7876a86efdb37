// file_inside.h: which files lie in a bundle. Paths come from whoever wrote a job: what a path leads to counts, by
// ".." and by links, not what it looks like. Any thread; blocks for the file system.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/url.h>

#include "platform/base/unique_fd.h"

namespace ksw::facts {

/// A file as it was found. Whoever reads it by `readingURL`, as long as this lives, reads that file and no other,
/// whatever takes its name or that of a folder on the way meanwhile.
struct FoundFile {
    URL url;         ///< Where it was found; for showing, and for its name.
    URL readingURL;  ///< Leads to nothing when the file was not there.
    UniqueFd fd;     ///< Holds the file; none when it was not there, or is in no container.
};

/// The file at a relative path in a bundle, whether or not it is there. Absent when the path leads out of the
/// bundle or nowhere, or elsewhere than it does with its ".." taken away, when it is longer than any path (4,095
/// bytes), and when the bundle's URL names no place. A link by an absolute path leads out.
std::optional<FoundFile> findInside(const URL& bundle, std::string_view relativePath);
/// Where that is, for who does not read it.
std::optional<URL> fileInside(const URL& bundle, std::string_view relativePath);

/// The file that an item's URL names: in the container when there is one and the URL's path is relative, as above.
std::optional<FoundFile> findOfItem(const URL& url, const std::optional<URL>& container);
std::optional<URL> fileOfItem(const URL& url, const std::optional<URL>& container);

/// The outermost application that the path leads into, or is. Absent when it leads into none or out of it again.
std::optional<URL> applicationAround(const std::string& path);

}  // namespace ksw::facts
