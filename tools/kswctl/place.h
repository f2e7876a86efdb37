// place.h: what the command line's paths and URLs mean.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include <kestrelwood/values.h>

namespace tools::kswctl {

/// The absolute path without links in the folders above it. The last component stays as it is, so that an item
/// keeps its place when its file is a link, and when the file is gone.
std::filesystem::path settled(const std::string& path);

bool isDirectory(const std::string& path);

/// A text that begins with a scheme and a colon is a URL, any other a path. Absent when the text is no URL then.
std::optional<ksw::URL> urlOf(const std::string& text);

}  // namespace tools::kswctl
