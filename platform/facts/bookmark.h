// bookmark.h: byte strings that find their files again. Making and resolving one looks at the file system and
// blocks as long as it does. Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <kestrelwood/resource_keys.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/url.h>

#include "platform/base/result.h"

namespace ksw::facts {

// Options of a making, bits.

/// The bookmark gives nobody the right to its file. None ever does here; the bit is what callers pass.
inline constexpr std::uint64_t kBookmarkWithoutImplicitScope = 0x2000'0000;
/// A path where there is no file yet gets a bookmark as well.
inline constexpr std::uint64_t kBookmarkOfMissingFile = 0x1000'0000;

/// What the bookmarks of items record beside what every bookmark does.
inline constexpr std::array<std::string_view, 6> kItemBookmarkKeys{
    kResourceKeyLocalizedName, kResourceKeyIsPackage,    kResourceKeyIsDirectory,
    kResourceKeyIsApplication, kResourceKeyIsExecutable, kResourceKeyIsVolume};

/// A bookmark of the URL that records, beside the file's name and kind, the values of `keys` (resource_keys.h).
/// With `relativeTo`, a file URL, a path below its folder is recorded relative to that. A URL of another scheme
/// than "file" is recorded as it is. Error: `ObjectError::NoSuchFile`; status -50 for a URL without scheme or path;
/// POSIX when the file cannot be examined.
Result<Data> makeBookmark(const URL& url, std::uint64_t options, std::span<const std::string_view> keys = {},
                          const URL* relativeTo = nullptr);

struct ResolvedBookmark {
    URL url;           ///< Ends in a slash for a directory.
    std::string path;  ///< Of the file; empty for a URL of another scheme.
    /// The file was moved or replaced, or was not there yet when the bookmark was made.
    bool isStale = false;
    bool isWithoutLinks = false;  ///< As in `host::Sighting`.
};

/// The file of a bookmark: the one at its path, whichever that is now; else the one that it was made of, by the
/// handle where the process may use it, or by a search (moved_file.h). `options` are those of KSWAdditions.h.
/// `relativeTo` is for a bookmark whose path is relative. Error: `ObjectError::NoSuchFile`, `FormatError` for bytes
/// that are no bookmark, status -50 for a relative path without a base, POSIX when the path may not be looked at.
Result<ResolvedBookmark> resolveBookmark(Bytes bookmark, std::uint64_t options, const URL* relativeTo = nullptr);

}  // namespace ksw::facts
