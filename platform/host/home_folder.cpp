#include "platform/host/home_folder.h"

#include <utility>

#include <unistd.h>

#include "platform/host/environment.h"
#include "platform/host/host_root.h"
#include "platform/host/user_database.h"

namespace ksw::host {

std::optional<std::string> homeFolder(Uid uid) {
    std::optional<std::string> home = uid == ::geteuid() ? environmentVariable("HOME") : std::nullopt;
    if (!home || !home->starts_with('/')) {
        std::optional<UserEntry> entry = userEntry(uid);
        home = entry ? std::optional(std::move(entry->home)) : std::nullopt;
    }
    if (!home || !home->starts_with('/')) {
        return std::nullopt;
    }
    return hostPathOfNamed(*home);
}

}  // namespace ksw::host
