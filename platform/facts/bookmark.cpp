#include "platform/facts/bookmark.h"

#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include <kestrelwood/KSWAdditions.h>

#include "platform/facts/bookmark_blob.h"
#include "platform/facts/moved_file.h"
#include "platform/facts/resource_values.h"
#include "platform/host/file_facts.h"
#include "platform/host/quiet_lookup.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

constexpr std::int64_t kWrongParameter = -50;

/// What every bookmark records of its file.
constexpr std::string_view kOwnKeys[] = {kResourceKeyName, kResourceKeyIsDirectory, kResourceKeyIsRegularFile};

Error wrongParameter(std::string_view text) {
    return {kStatusErrorDomain, kWrongParameter, text};
}

Error noSuchFile(std::string_view path) {
    return {ObjectError::NoSuchFile, "\"" + std::string(path) + "\" does not exist"};
}

bool isMissing(const Error& error) {
    return host::sys::isErrno(error, ENOENT) || host::sys::isErrno(error, ENOTDIR);
}

/// Whether a lookup failed because the file is not there now; it may be elsewhere.
bool isGone(const Error& error) {
    return isMissing(error) || host::sys::isErrno(error, ELOOP) || host::sys::isErrno(error, ENOMEDIUM);
}

/// The folder that URLs relative to this one are resolved in, with a slash at its end.
std::string baseFolder(const URL& base) {
    std::string folder = base.hasDirectoryPath() ? base.path() : base.deletingLastPathComponent().path();
    return folder.ends_with('/') ? folder : folder + "/";
}

/// The path as it is recorded: below the folder of the base by its relative one.
std::string_view recordedPath(std::string_view path, const URL* relativeTo) {
    if (relativeTo == nullptr || !relativeTo->isFileURL()) {
        return path;
    }
    const std::string folder = baseFolder(*relativeTo);
    return path.size() > folder.size() && path.starts_with(folder) ? path.substr(folder.size()) : path;
}

Result<Data> makeFileBookmark(const std::string& path, std::uint64_t options,
                              std::span<const std::string_view> keys, const URL* relativeTo) {
    BookmarkContent content;
    content.path = recordedPath(path, relativeTo);
    const Result<host::FileFacts> facts = host::fileFacts(path);
    if (!facts) {
        if (!isMissing(facts.error())) {
            return facts.error();
        }
        return (options & kBookmarkOfMissingFile) != 0 ? writeBookmark(content, {}) : noSuchFile(path);
    }
    const Result<host::Volume> volume = host::volumeOf(path);
    content.file = FileRecord{volume ? volume->identifier : 0, facts->identifier};
    const Result<host::sys::FileHandle> handle = host::sys::fileHandle(path);
    if (handle) {
        content.handleType = handle->type;
        content.handle = handle->bytes;
    }
    std::vector<std::string_view> all(std::begin(kOwnKeys), std::end(kOwnKeys));
    all.insert(all.end(), keys.begin(), keys.end());
    return writeBookmark(content, resourceValues(path, all));
}

/// Where the bookmark's file was; an error when that is relative to nothing.
Result<std::string> absolutePath(std::string_view path, const URL* relativeTo) {
    if (path.starts_with('/')) {
        return std::string(path);
    }
    if (relativeTo == nullptr || !relativeTo->isFileURL()) {
        return wrongParameter("the bookmark is relative to a file URL that is not given");
    }
    return baseFolder(*relativeTo).append(path);
}

Result<host::Sighting> look(const std::string& path, std::uint64_t options) {
    if ((options & kBookmarkResolutionWithoutMounting) != 0) {
        return host::lookQuietly(path);
    }
    const Result<host::FileFacts> facts = host::fileFacts(path);
    return facts ? Result(host::Sighting{*facts, false}) : facts.error();
}

ResolvedBookmark resolved(std::string path, const host::Sighting& seen, bool isStale) {
    const PathKind kind = seen.facts.isDirectory ? PathKind::Directory : PathKind::File;
    URL url = URL::fileURL(path, kind);
    return {std::move(url), std::move(path), isStale, seen.isWithoutLinks};
}

/// Whether the path ends where an automounter would mount something: what is there is not the file.
bool isUnmounted(const std::string& path) {
    const Result<host::Volume> volume = host::volumeOf(path);
    return volume && volume->isUnmounted;
}

}  // namespace

Result<Data> makeBookmark(const URL& url, std::uint64_t options, std::span<const std::string_view> keys,
                          const URL* relativeTo) {
    if (url.isFileURL()) {
        const std::string path = url.path();
        return path.starts_with('/') ? makeFileBookmark(path, options, keys, relativeTo)
                                     : wrongParameter("a file URL without an absolute path");
    }
    if (url.scheme().empty()) {
        return wrongParameter("a URL without a scheme");
    }
    const std::string text = url.absoluteString();
    BookmarkContent content;
    content.url = text;
    return writeBookmark(content, {});
}

Result<ResolvedBookmark> resolveBookmark(Bytes bookmark, std::uint64_t options, const URL* relativeTo) {
    const Result<BookmarkContent> content = readBookmark(bookmark);
    if (!content) {
        return content.error();
    }
    if (!content->url.empty()) {
        return ResolvedBookmark{*URL::fromString(content->url), {}};
    }
    Result<std::string> path = absolutePath(content->path, relativeTo);
    if (!path) {
        return path.error();
    }
    const Result<host::Sighting> seen = look(*path, options);
    if (seen && content->file && isRecordedFile(*content->file, seen->facts.identifier, *path)) {
        return resolved(std::move(*path), *seen, false);
    }
    if (seen && !isUnmounted(*path)) {
        return resolved(std::move(*path), *seen, true);
    }
    if (!seen && !isGone(seen.error())) {
        return seen.error();
    }
    std::optional<std::string> found = findMovedFile(*path, *content);
    const Result<host::Sighting> there = found ? host::lookQuietly(*found) : noSuchFile(*path);
    return there ? resolved(std::move(*found), *there, true) : Result<ResolvedBookmark>(noSuchFile(*path));
}

}  // namespace ksw::facts
