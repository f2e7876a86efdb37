// bookmark_blob.h: the bytes of a bookmark, taken apart and put together. No I/O. The form: docs/bookmarks.md.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <kestrelwood/values/data.h>
#include <kestrelwood/values/value.h>

#include "platform/base/result.h"
#include "platform/host/file_facts.h"

namespace ksw::facts {

/// The file that a bookmark was made of.
struct FileRecord {
    std::uint64_t volume = 0;  ///< As in `host::Volume`: 0 when its file system has no name for itself.
    host::FileIdentifier identifier;
};

/// What stands in a bookmark. Texts and bytes are borrowed, when it was read, from the bookmark. Either `path` or
/// `url` is empty.
struct BookmarkContent {
    std::string_view path;  ///< Absolute, or relative to a URL that who resolves it must give.
    std::string_view url;   ///< An absolute URL of another scheme than "file".
    std::optional<FileRecord> file;
    int handleType = 0;
    Bytes handle;  ///< Empty when there is none.
    Bytes values;  ///< A CBOR map: the recorded values. Empty when there are none.
};

/// Reads a bookmark, which may come from anybody. Error: `FormatError`.
Result<BookmarkContent> readBookmark(Bytes bookmark);

/// The recorded values; none when they cannot be read.
Dictionary recordedValues(const BookmarkContent& content);

/// The bookmark's bytes; `content.values` is not looked at. A value that the form cannot hold (a string that is not
/// UTF-8) is left out. Error: `FormatError`, when a path is too long.
Result<Data> writeBookmark(const BookmarkContent& content, Dictionary values);

/// Whether the two records are of one file.
bool isSameFile(const FileRecord& left, const FileRecord& right);

/// How much two bookmarks agree (`kBookmarkMatchFile` and the like).
std::int64_t compareBookmarks(const BookmarkContent& left, const BookmarkContent& right);

}  // namespace ksw::facts
