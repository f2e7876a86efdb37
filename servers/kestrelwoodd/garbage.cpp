#include "servers/kestrelwoodd/garbage.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "platform/facts/bookmark.h"
#include "platform/host/sys_files.h"
#include "servers/kestrelwoodd/reading_as.h"

namespace ksw::daemon {

namespace {

/// Of a user's rights without any group's.
Caller readerFor(Uid uid) {
    constexpr gid_t kNoGroup = 65534;
    return uid == kEveryUser ? Caller{0, 0} : Caller{uid, kNoGroup};
}

bool isAbsent(const Error& error) {
    return error.domain() == kPosixErrorDomain && (error.code() == ENOENT || error.code() == ENOTDIR);
}

bool isNowhere(const std::string& path) {
    const Result<struct ::statx> status = host::sys::statx(path, AT_SYMLINK_NOFOLLOW, STATX_TYPE);
    return !status && isAbsent(status.error());
}

/// A bookmark that leads to its file wherever that is, the trash included, or nobody can tell.
bool leadsNowhere(const Data& bookmark) {
    const Result<facts::ResolvedBookmark> resolved = facts::resolveBookmark(bookmark, 0);
    return !resolved && (resolved.error() == Error(ObjectError::NoSuchFile, "") || isAbsent(resolved.error()) ||
                         resolved.error().code() == static_cast<std::int64_t>(ObjectError::NoSuchFile));
}

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

}  // namespace

std::optional<std::string> placeOf(const KSWItem& record) {
    if (record.intersectsType(KSWItemTypeDeveloper) || !record.url() || !record.url()->isFileURL()) {
        return std::nullopt;
    }
    std::string path = record.url()->path();
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    return path.starts_with('/') ? std::optional(std::move(path)) : std::nullopt;
}

bool isGone(Uid uid, const KSWItem& record) {
    const std::optional<std::string> path = placeOf(record);
    if (!path) {
        return false;
    }
    const ReadingAs rights(readerFor(uid));
    return rights.ok() && isNowhere(*path) && (!record.bookmark() || leadsNowhere(*record.bookmark()));
}

std::vector<std::pair<Uid, ItemPointer>> goneRecords(const RecordIndex& records,
                                                     const std::vector<std::string>& foldersLeftAlone) {
    std::vector<std::pair<Uid, ItemPointer>> gone;
    for (const auto& [uid, name] : records.users()) {
        for (ItemPointer& record : records.own(uid)) {
            const std::optional<std::string> path = placeOf(*record);
            const bool isLeftAlone = path && std::find(foldersLeftAlone.begin(), foldersLeftAlone.end(),
                                                       folderOf(*path)) != foldersLeftAlone.end();
            if (!isLeftAlone && isGone(uid, *record)) {
                gone.emplace_back(uid, std::move(record));
            }
        }
    }
    return gone;
}

std::vector<std::pair<Uid, ItemPointer>> goneJobsIn(const RecordIndex& records, const std::string& folder) {
    std::vector<std::pair<Uid, ItemPointer>> gone;
    for (const auto& [uid, name] : records.users()) {
        for (ItemPointer& record : records.own(uid)) {
            const std::optional<std::string> path = placeOf(*record);
            if (path && isJob(record->type()) && folderOf(*path) == folder && isGone(uid, *record)) {
                gone.emplace_back(uid, std::move(record));
            }
        }
    }
    return gone;
}

}  // namespace ksw::daemon
