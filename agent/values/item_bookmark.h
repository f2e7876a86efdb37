// item_bookmark.h: the bookmarks that login items and background items make of the files they are made for.
#pragma once

#include <optional>

#include <kestrelwood/values/data.h>
#include <kestrelwood/values/url.h>

namespace ksw::agent {

/// A bookmark of the file at the URL; absent, with a word in the log, when none can be made. Unlike
/// __ksw_bookmarkDataWithURL, a file that does not exist has none. Blocks for looking at the file.
std::optional<Data> bookmarkForItem(const std::optional<URL>& url);

}  // namespace ksw::agent
