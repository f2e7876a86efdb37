// KSWAdditions.h: bookmarks, and what a file's URL tells about it. A bookmark is a byte string that finds its file
// again after the file was moved or replaced; its form: docs/bookmarks.md. Bookmarks may come from anybody: no
// bytes make these functions fail in another way than they say.
//
// All functions: any thread. Those that look at the file system block as long as it does. A URL of another scheme
// than "file" has none of a file's properties.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/export.h>
#include <kestrelwood/resource_keys.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/url.h>
#include <kestrelwood/values/value.h>

// Making.

/// A bookmark of the URL, with what the file system says of the file now: its localized name, and whether it is a
/// package, a directory, an application, executable, a volume. A file that does not exist yet gets one too, of its
/// path alone. Absent, with a word in the log, when none can be made.
KSW_EXPORT std::optional<ksw::Data> __ksw_bookmarkDataWithURL(const std::optional<ksw::URL>& url);
/// The same of a URL as text; a text that is no URL counts as none.
KSW_EXPORT std::optional<ksw::Data> __ksw_bookmarkDataWithURLString(const std::optional<std::string>& urlString);

// Reading what a bookmark says, without looking for its file. Bytes that are no bookmark say nothing.

/// Whether the bookmark records if it is of a regular file, whatever the record says: true for every file that was
/// there when the bookmark was made, directories included.
KSW_EXPORT bool __ksw_isFileBookmark(const ksw::Data& bookmark);
/// What the bookmark records under the key of resource_keys.h; absent when nothing.
KSW_EXPORT std::optional<ksw::Value> __ksw_resourcePropertyForKey(const ksw::Data& bookmark, std::string_view key);
/// The same for several keys; those that are not recorded are left out.
KSW_EXPORT ksw::Dictionary __ksw_resourcePropertiesForKeys(const ksw::Data& bookmark,
                                                           const std::vector<std::string>& keys);

namespace ksw {

// How much two bookmarks agree, in ascending order.
inline constexpr std::int64_t kBookmarkMatchNone = 0;
/// The same path, of different files, or of files that were not there yet.
inline constexpr std::int64_t kBookmarkMatchPath = 0x4000;
/// The same file, whatever its paths; or the same URL of another scheme than "file".
inline constexpr std::int64_t kBookmarkMatchFile = 0x8000;

// Options of a resolution, bits. Nobody is ever asked, with or without the first.
inline constexpr std::uint64_t kBookmarkResolutionWithoutUI = 0x100;
/// Nothing is mounted on the way to the file.
inline constexpr std::uint64_t kBookmarkResolutionWithoutMounting = 0x200;

}  // namespace ksw

/// Whether the two bookmarks agree at least as much as required.
KSW_EXPORT bool __ksw_matchBookmark(const ksw::Data& bookmark, const ksw::Data& otherBookmark,
                                    std::int64_t requiredMatchResult);

/// The name of the bookmark's file for people, from what the bookmark records. A bookmark of no file, and without a
/// name, is resolved, and its URL is the name. Absent when there is nothing to show.
KSW_EXPORT std::optional<std::string> __ksw_displayName(const ksw::Data& bookmark);

// Resolving. The file is looked for at its path, by the file system's own handle where the process may use one, and
// among 4,096 entries of the folders around its path and of the user's trash.

/// The URL of the bookmark's file now, found without mounting anything; absent when there is none, or it lies in a
/// trash.
KSW_EXPORT std::optional<ksw::URL> __ksw_resolveBookmark(const ksw::Data& bookmark);
/// The same, for a bookmark that was made relative to a URL, too. `bookmarkDataIsStale`: set when a URL was found,
/// to whether a new bookmark should be made, since the file was moved or replaced. `error`: set when none is
/// returned; code 260 of `ksw::kObjectErrorDomain` when the file is not found, `KSWErrorBookmarkInTrash` when it
/// lies in a trash.
KSW_EXPORT std::optional<ksw::URL> __ksw_resolveBookmarkWithOptions(const ksw::Data& bookmark,
                                                                    std::uint64_t options,
                                                                    const std::optional<ksw::URL>& relativeToURL,
                                                                    bool* bookmarkDataIsStale = nullptr,
                                                                    std::optional<ksw::Error>* error = nullptr);

// What a file's URL tells. What cannot be read counts as absent, and as false.

/// The file's name for people.
KSW_EXPORT std::optional<std::string> __ksw_localizedName(const ksw::URL& url);
/// Whether the file lies in a trash of its volume, or is its folder of what was thrown away.
KSW_EXPORT bool __ksw_isInTrash(const ksw::URL& url);
/// The outermost application that the path leads into, or is; absent without one.
KSW_EXPORT std::optional<ksw::URL> __ksw_outerAppURL(const ksw::URL& url);
/// The application three folders above, where the main executable of one lies; absent when that is none.
KSW_EXPORT std::optional<ksw::URL> __ksw_innerAppURL(const ksw::URL& url);
/// Whether the file is a directory that people take for one thing.
KSW_EXPORT bool __ksw_isBundle(const ksw::URL& url);
KSW_EXPORT bool __ksw_isApplication(const ksw::URL& url);

namespace ksw {
using ::__ksw_bookmarkDataWithURL;
using ::__ksw_bookmarkDataWithURLString;
using ::__ksw_displayName;
using ::__ksw_innerAppURL;
using ::__ksw_isApplication;
using ::__ksw_isBundle;
using ::__ksw_isFileBookmark;
using ::__ksw_isInTrash;
using ::__ksw_localizedName;
using ::__ksw_matchBookmark;
using ::__ksw_outerAppURL;
using ::__ksw_resolveBookmark;
using ::__ksw_resolveBookmarkWithOptions;
using ::__ksw_resourcePropertiesForKeys;
using ::__ksw_resourcePropertyForKey;
}  // namespace ksw
