#include "platform/facts/moved_file.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/base/limits.h"
#include "platform/base/paths.h"
#include "platform/host/descriptor_path.h"
#include "platform/host/sys.h"
#include "platform/host/trash.h"

namespace ksw::facts {

namespace {

bool isOnVolume(const FileRecord& record, std::uint64_t device, const std::string& path) {
    if (device == record.identifier.device) {
        return true;
    }
    if (record.volume == 0) {
        return false;
    }
    const Result<host::Volume> volume = host::volumeOf(path);
    return volume && volume->identifier == record.volume;
}

/// A folder above the path that lies on the record's volume.
struct VolumeFolder {
    std::string path;
    std::uint64_t device = 0;  ///< The number that the volume has now.
};

std::optional<VolumeFolder> findVolume(const FileRecord& record, const std::string& path) {
    for (std::string folder(folderOf(path)); !folder.empty(); folder = std::string(folderOf(folder))) {
        const Result<host::Sighting> seen = host::lookQuietly(folder);
        if (seen && seen->facts.isDirectory && isOnVolume(record, seen->facts.identifier.device, folder)) {
            return VolumeFolder{folder, seen->facts.identifier.device};
        }
    }
    return std::nullopt;
}

class Search {
public:
    /// `wanted`: the file, with the number that its volume has now.
    explicit Search(const host::FileIdentifier& wanted) : wanted_(wanted) {}

    std::optional<std::string> around(const std::string& path, const std::string& volumeFolder) {
        const std::string folder(folderOf(path));
        if (auto found = scan(folder, nullptr)) {
            return found;
        }
        std::vector<std::string> siblings;
        const std::string parent(folderOf(folder));
        if (auto found = parent.empty() ? std::nullopt : scan(parent, &siblings)) {
            return found;
        }
        // By its old name first: the trash may hold more than there is time for.
        const std::vector<std::string> trashes = host::ownTrashFolders(volumeFolder);
        for (const std::string& trash : trashes) {
            if (std::string inTrash = pathBelow(trash, lastComponent(path)); isIt(inTrash)) {
                return inTrash;
            }
        }
        if (auto found = scanAll(siblings)) {
            return found;
        }
        return scanAll(trashes);
    }

    /// Whether the path leads to the file.
    bool isIt(const std::string& path) const {
        const Result<host::Sighting> seen = host::lookQuietly(path);
        return seen && seen->facts.identifier == wanted_;
    }

private:
    std::optional<std::string> scanAll(const std::vector<std::string>& folders) {
        for (const std::string& folder : folders) {
            if (auto found = scan(folder, nullptr)) {
                return found;
            }
        }
        return std::nullopt;
    }

    /// Looks at each entry of a folder, and gathers the folders among them.
    std::optional<std::string> scan(const std::string& folder, std::vector<std::string>* folders) {
        const Result<host::Sighting> seen = host::lookQuietly(folder);
        if (!seen || !seen->facts.isDirectory || seen->facts.identifier.device != wanted_.device) {
            return std::nullopt;
        }
        Result<host::sys::FolderEntries> entries = host::sys::FolderEntries::open(folder);
        while (entries && entriesLeft_ > 0) {
            const Result<std::optional<std::string>> name = entries->next();
            if (!name || !*name) {
                break;
            }
            --entriesLeft_;
            const auto answer = host::sys::statxAt(entries->fd(), **name, host::kFactsMask);
            const host::FileFacts facts = answer ? host::factsIn(*answer, {}) : host::FileFacts{};
            if (facts.identifier.device != wanted_.device) {
                continue;
            }
            std::string path = pathBelow(folder, **name);
            if (facts.identifier == wanted_ && isIt(path)) {
                return path;
            }
            if (folders != nullptr && facts.isDirectory) {
                folders->push_back(std::move(path));
            }
        }
        return std::nullopt;
    }

    host::FileIdentifier wanted_;
    std::size_t entriesLeft_ = limits::kBookmarkSearchEntriesMax;
};

/// The path that the kernel knows for the file of the handle.
std::optional<std::string> pathByHandle(const BookmarkContent& bookmark, const std::string& volumeFolder) {
    if (bookmark.handle.empty()) {
        return std::nullopt;
    }
    const Result<UniqueFd> folder = host::sys::open(volumeFolder, O_RDONLY | O_DIRECTORY | O_NONBLOCK);
    const Result<UniqueFd> file =
        folder ? host::sys::openByHandle(folder->get(), bookmark.handleType, bookmark.handle) : folder.error();
    Result<std::string> path = file ? host::sys::readLink(host::descriptorPath(file->get())) : file.error();
    return path && path->starts_with('/') ? std::optional(std::move(*path)) : std::nullopt;
}

}  // namespace

bool isRecordedFile(const FileRecord& record, const host::FileIdentifier& identifier, const std::string& path) {
    host::FileIdentifier expected = record.identifier;
    expected.device = identifier.device;
    if (identifier != expected) {
        return false;
    }
    const bool hasBirth = identifier.birthSeconds != 0 || identifier.birthNanoseconds != 0;
    if (identifier.device == record.identifier.device && (hasBirth || record.volume == 0)) {
        return true;
    }
    const Result<host::Volume> volume = host::volumeOf(path);
    return volume && volume->identifier != 0 && volume->identifier == record.volume;
}

std::optional<std::string> findMovedFile(const std::string& path, const BookmarkContent& bookmark) {
    if (!bookmark.file) {
        return std::nullopt;
    }
    const std::optional<VolumeFolder> volume = findVolume(*bookmark.file, path);
    if (!volume) {
        return std::nullopt;
    }
    host::FileIdentifier wanted = bookmark.file->identifier;
    wanted.device = volume->device;
    Search search(wanted);
    std::optional<std::string> found = pathByHandle(bookmark, volume->path);
    return found && search.isIt(*found) ? found : search.around(path, volume->path);
}

}  // namespace ksw::facts
