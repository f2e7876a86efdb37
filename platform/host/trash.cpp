#include "platform/host/trash.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <unistd.h>

#include "platform/host/environment.h"
#include "platform/host/file_facts.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

constexpr std::string_view kTrashName = "Trash";
constexpr std::string_view kHomeTrash = "/.local/share/Trash";
/// What was thrown away lies in it.
constexpr std::string_view kFilesFolder = "/files";

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

bool isSameFolder(const std::string& left, const std::string& right) {
    const Result<FileFacts> first = fileFacts(left);
    const Result<FileFacts> second = fileFacts(right);
    return first && second && first->isDirectory && first->identifier == second->identifier;
}

/// The home trash of the process's user; empty without a home.
std::string ownHomeTrash() {
    const std::optional<std::string> dataHome = environmentVariable("XDG_DATA_HOME");
    if (dataHome && dataHome->starts_with('/')) {
        return *dataHome + "/Trash";
    }
    const std::optional<std::string> home = environmentVariable("HOME");
    return home && home->starts_with('/') ? std::string(*home).append(kHomeTrash) : std::string();
}

bool isOwnHomeTrash(const std::string& path) {
    const std::string own = ownHomeTrash();
    return !own.empty() && isSameFolder(path, own);
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
        return isTopOfVolume(std::string(top->empty() ? "/" : *top));
    }
    if (nameOf(path) != kTrashName) {
        return false;
    }
    const std::string folder(path);
    return isOwnHomeTrash(folder) || isSomeonesHomeTrash(folder);
}

/// Whether one of the folders on the way to the canonical `path`, or that itself, is the `files` of a trash.
bool leadsThroughTrash(std::string_view path) {
    for (std::size_t at = path.find(kFilesFolder); at != std::string_view::npos;
         at = path.find(kFilesFolder, at + 1)) {
        const std::size_t end = at + kFilesFolder.size();
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
    return namesTrash(*canonical) && leadsThroughTrash(*canonical) ? Relationship::Contains : Relationship::Other;
}

bool namesTrash(std::string_view path) {
    return path.find(kTrashName) != std::string_view::npos;
}

std::vector<std::string> ownTrashFolders(const std::string& folder) {
    std::vector<std::string> folders;
    if (std::string home = ownHomeTrash(); !home.empty()) {
        folders.push_back(std::move(home));
    }
    if (Result<std::string> top = canonicalPath(folder)) {
        while (top->size() > 1 && !isTopOfVolume(*top)) {
            top->resize(std::max<std::size_t>(top->rfind('/'), 1));
        }
        const std::string above = *top == "/" ? std::string() : *top;
        const std::string uid = std::to_string(::geteuid());
        folders.push_back(above + "/.Trash/" + uid);
        folders.push_back(above + "/.Trash-" + uid);
    }
    for (std::string& trash : folders) {
        trash += kFilesFolder;
    }
    return folders;
}

}  // namespace ksw::host
