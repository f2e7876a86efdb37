#include "platform/host/trash.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string_view>

#include <sys/sysmacros.h>

#include "platform/host/file_facts.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

constexpr std::string_view kHomeTrash = "/.local/share/Trash";

bool isUid(std::string_view text) {
    return !text.empty() && text.size() <= 10 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string_view nameOf(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// The folder that holds the file at `path`; empty for one in the root.
std::string_view folderOf(std::string_view path) {
    return path.substr(0, path.rfind('/'));
}

/// The volume's top folder that would have to hold the trash folder at `path`, by its name alone.
std::optional<std::string_view> topFolderOfTrash(std::string_view path) {
    constexpr std::string_view prefix = ".Trash-";
    const std::string_view name = nameOf(path);
    if (name.starts_with(prefix) && isUid(name.substr(prefix.size()))) {
        return folderOf(path);
    }
    const std::string_view folder = folderOf(path);
    if (isUid(name) && nameOf(folder) == ".Trash") {
        return folderOf(folder);
    }
    return std::nullopt;
}

bool isTopOfVolume(std::string_view path) {
    const std::string folder(path.empty() ? "/" : path);
    const Result<struct ::statx> facts = sys::statx(folder, 0, STATX_INO);
    if (!facts) {
        return false;
    }
    if ((facts->stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
        return (facts->stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    }
    // Before Linux 5.8: another device above, or nothing above.
    const Result<struct ::statx> above = sys::statx(folder + "/..", 0, STATX_INO);
    return above && (above->stx_dev_major != facts->stx_dev_major || above->stx_dev_minor != facts->stx_dev_minor ||
                     above->stx_ino == facts->stx_ino);
}

bool isSameFolder(const std::string& left, const std::string& right) {
    const Result<FileFacts> first = fileFacts(left);
    const Result<FileFacts> second = fileFacts(right);
    return first && second && first->isDirectory && first->identifier == second->identifier;
}

bool isOwnHomeTrash(const std::string& path) {
    const char* dataHome = ::secure_getenv("XDG_DATA_HOME");
    if (dataHome != nullptr && *dataHome == '/') {
        return isSameFolder(path, std::string(dataHome) + "/Trash");
    }
    const char* home = ::secure_getenv("HOME");
    return home != nullptr && *home == '/' && isSameFolder(path, std::string(home).append(kHomeTrash));
}

/// Another user's home trash: in its usual place below a folder that the same user owns.
bool isSomeonesHomeTrash(const std::string& path) {
    if (!path.ends_with(kHomeTrash) || path.size() == kHomeTrash.size()) {
        return false;
    }
    const Result<struct ::statx> trash = sys::statx(path, 0, STATX_UID);
    const Result<struct ::statx> home = sys::statx(path.substr(0, path.size() - kHomeTrash.size()), 0, STATX_UID);
    return trash && home && trash->stx_uid == home->stx_uid;
}

bool isTrashFolder(std::string_view path) {
    if (const std::optional<std::string_view> top = topFolderOfTrash(path)) {
        return isTopOfVolume(*top);
    }
    if (nameOf(path) != "Trash") {
        return false;
    }
    const std::string folder(path);
    return isOwnHomeTrash(folder) || isSomeonesHomeTrash(folder);
}

/// Whether one of the folders on the way to the canonical `path`, or that itself, is the `files` of a trash.
bool leadsThroughTrash(std::string_view path) {
    constexpr std::string_view files = "/files";
    for (std::size_t at = path.find(files); at != std::string_view::npos; at = path.find(files, at + 1)) {
        const std::size_t end = at + files.size();
        if ((end == path.size() || path[end] == '/') && isTrashFolder(path.substr(0, at))) {
            return true;
        }
    }
    return false;
}

}  // namespace

Result<Relationship> relationshipOfTrash(const std::string& path) {
    const Result<std::string> canonical = canonicalPath(path);
    if (!canonical) {
        return canonical.error();
    }
    const bool namesTrash = canonical->find("Trash") != std::string::npos;
    return namesTrash && leadsThroughTrash(*canonical) ? Relationship::Contains : Relationship::Other;
}

}  // namespace ksw::host
