#include "servers/kestrelwoodagent/roster_file.h"

#include <cerrno>

#include "agent/values/login_item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "platform/host/file_facts.h"
#include "platform/host/sys_files.h"
#include "platform/host/user_folders.h"
#include "servers/common/store_file.h"

namespace ksw::agentserver {

namespace {

bool isGone(const Error& error) {
    return host::sys::isErrno(error, ENOENT) || host::sys::isErrno(error, ENOTDIR);
}

/// The items of a file; absent when there is none.
Result<std::optional<std::vector<LoginItems::Item>>> itemsIn(const std::string& path) {
    using Items = std::optional<std::vector<LoginItems::Item>>;
    const Result<Data> bytes = host::readFile(path, kRosterFileMax);
    if (!bytes) {
        return isGone(bytes.error()) ? Result<Items>(std::nullopt) : bytes.error();
    }
    archive::DecodeBudget budget(bytes->size());
    auto decoded = archive::unarchiveArray<KSWLoginItem>(*bytes, {}, budget);
    if (!decoded) {
        return Error(kFormatErrorDomain, decoded.error().code(),
                     path + ": " + std::string(decoded.error().localizedDescription()));
    }
    if (decoded->roots.size() > limits::kLoginItemsMax) {
        return Error(FormatError::LimitPassed, path + ": more than 1024 login items");
    }
    return Items(std::move(decoded->roots));
}

/// On disk, too: a file that came back after a crash would bring back what the user has removed since.
Status removeFile(const std::string& path) {
    Status removed = host::sys::unlink(path);
    if (!removed && !isGone(removed.error())) {
        return removed;
    }
    return host::sys::syncFolder(servers::folderOf(path));
}

}  // namespace

std::optional<std::string> rosterFile() {
    std::optional<std::string> folder = host::userDataFolder();
    return folder ? std::optional(folder->append("/com.velmont.kestrelwoodagent/backgrounditems.ksw"))
                  : std::nullopt;
}

Result<Outcome> importRosterFile(LoginItems& items, bool deleteWhenDone) {
    const std::optional<std::string> path = rosterFile();
    if (!path) {
        return Error(kPosixErrorDomain, ENOENT, "the user has no home");
    }
    const Result<std::optional<std::vector<LoginItems::Item>>> found = itemsIn(*path);
    if (!found) {
        return found.error();
    }
    if (!*found) {
        return Outcome::AsBefore;
    }
    Result<Outcome> imported = items.import(**found);
    if (imported && deleteWhenDone) {
        if (Status removed = removeFile(*path); !removed) {
            return removed.error();
        }
    }
    return imported;
}

}  // namespace ksw::agentserver
