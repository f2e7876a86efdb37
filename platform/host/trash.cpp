#include "platform/host/trash.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <unistd.h>

#include "platform/base/paths.h"
#include "platform/host/environment.h"
#include "platform/host/file_facts.h"
#include "platform/host/home_folder.h"
#include "platform/host/host_root.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

constexpr std::string_view kHomeTrash = ".local/share/Trash";
/// What was thrown away lies in it.
constexpr std::string_view kFiles = "/files";
/// Beside it: where each thing came from. Every trash that was ever used has it.
constexpr std::string_view kRecords = "info";

bool isUid(std::string_view text) {
    return !text.empty() && text.size() <= 10 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// The volume's top folder that would have to hold the trash folder at `path`, by its name alone.
std::optional<std::string_view> topFolderOfTrash(std::string_view path) {
    constexpr std::string_view prefix = ".Trash-";
    const std::string_view name = lastComponent(path);
    if (name.starts_with(prefix) && isUid(name.substr(prefix.size()))) {
        return folderOf(path);
    }
    const std::string_view folder = folderOf(path);
    if (isUid(name) && lastComponent(folder) == ".Trash") {
        return folderOf(folder);
    }
    return std::nullopt;
}

bool isSameFolder(const std::string& left, const std::string& right) {
    const Result<FileFacts> first = fileFacts(left);
    const Result<FileFacts> second = fileFacts(right);
    return first && second && first->isDirectory && first->identifier == second->identifier;
}

/// The home trash of a user; empty without a home.
std::string homeTrash(Uid uid) {
    const std::optional<std::string> home = homeFolder(uid);
    return home ? pathBelow(*home, kHomeTrash) : std::string();
}

/// That of the process's user.
std::string ownHomeTrash() {
    const std::optional<std::string> dataHome = environmentVariable("XDG_DATA_HOME");
    return dataHome && dataHome->starts_with('/') ? pathBelow(hostPathOfNamed(*dataHome), "Trash")
                                                  : homeTrash(::geteuid());
}

/// Whether the folder is the home trash of the user who owns it.
bool isItsOwnersHomeTrash(const std::string& folder) {
    // Most folders are ruled out by this, and their owners need not be looked up.
    if (!fileExists(pathBelow(folder, kRecords))) {
        return false;
    }
    const Result<struct ::statx> facts = sys::statx(folder, 0, STATX_UID);
    const std::string trash = facts ? homeTrash(facts->stx_uid) : std::string();
    return !trash.empty() && isSameFolder(folder, trash);
}

bool isTrash(std::string_view path) {
    const std::optional<std::string_view> top = topFolderOfTrash(path);
    return top ? isTopOfVolume(std::string(*top)) : isItsOwnersHomeTrash(std::string(path));
}

/// Where the next component `files` of the path begins, with its slash; npos when there is none.
std::size_t findFiles(std::string_view path, std::size_t from) {
    for (std::size_t at = path.find(kFiles, from); at != std::string_view::npos; at = path.find(kFiles, at + 1)) {
        const std::size_t end = at + kFiles.size();
        if (end == path.size() || path[end] == '/') {
            return at;
        }
    }
    return std::string_view::npos;
}

/// Whether one of the folders on the way to the canonical `path`, or that itself, is the `files` of a trash.
bool leadsThroughTrash(std::string_view path) {
    for (std::size_t at = findFiles(path, 0); at != std::string_view::npos; at = findFiles(path, at + 1)) {
        if (at > 0 && isTrash(path.substr(0, at))) {
            return true;
        }
    }
    return false;
}

/// Whether the canonical path lies in the home trash of the process's user, wherever links have put that.
bool liesInOwnHomeTrash(const std::string& path) {
    const std::string trash = ownHomeTrash();
    const Result<std::string> files =
        trash.empty() ? Result<std::string>(trash) : canonicalPath(trash + std::string(kFiles));
    return files && !files->empty() && isAtOrBelow(path, *files);
}

}  // namespace

Result<Relationship> relationshipOfTrash(const std::string& path) {
    const Result<std::string> canonical = canonicalPath(path);
    if (!canonical) {
        return canonical.error();
    }
    const bool isInTrash = liesInOwnHomeTrash(*canonical) || leadsThroughTrash(*canonical);
    return isInTrash ? Relationship::Contains : Relationship::Other;
}

bool mayLeadIntoTrash(std::string_view path) {
    return findFiles(path, 0) != std::string_view::npos;
}

std::vector<std::string> ownTrashFolders(const std::string& folder) {
    std::vector<std::string> folders;
    if (std::string home = ownHomeTrash(); !home.empty()) {
        folders.push_back(std::move(home));
    }
    if (Result<std::string> top = canonicalPath(folder)) {
        while (top->size() > 1 && !isTopOfVolume(*top)) {
            *top = std::string(folderOf(*top));
        }
        const std::string uid = std::to_string(::geteuid());
        folders.push_back(pathBelow(*top, ".Trash/" + uid));
        folders.push_back(pathBelow(*top, ".Trash-" + uid));
    }
    for (std::string& trash : folders) {
        trash += kFiles;
    }
    return folders;
}

}  // namespace ksw::host
