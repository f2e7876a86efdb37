// file_inside.h: the files that an application carries.
#pragma once

#include <optional>
#include <string_view>

#include <kestrelwood/values/url.h>

namespace ksw::config {

/// The file at a relative path in a bundle, whether or not it is there. Absent when the path leads out of the
/// bundle, by ".." or by a link, or nowhere, and when the bundle's URL names no place. Blocks for the file system.
std::optional<URL> fileInside(const URL& bundle, std::string_view relativePath);

/// The file that an item's URL names: in the container when there is one and the URL's path is relative, as above.
std::optional<URL> fileOfItem(const URL& url, const std::optional<URL>& container);

}  // namespace ksw::config
