// file_inside.h: which files lie in a bundle. Paths come from whoever wrote a job: what a path leads to counts, by
// ".." and by links, not what it looks like. Any thread; blocks for the file system.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/url.h>

namespace ksw::facts {

/// The file at a relative path in a bundle, whether or not it is there. Absent when the path leads out of the
/// bundle or nowhere, or elsewhere than it does with its ".." taken away, and when the bundle's URL names no place.
std::optional<URL> fileInside(const URL& bundle, std::string_view relativePath);

/// The file that an item's URL names: in the container when there is one and the URL's path is relative, as above.
std::optional<URL> fileOfItem(const URL& url, const std::optional<URL>& container);

/// The outermost application that the path leads into, or is. Absent when it leads into none or out of it again.
std::optional<URL> applicationAround(const std::string& path);

}  // namespace ksw::facts
