#include "platform/host/user_folders.h"

#include <string_view>

#include <unistd.h>

#include "platform/host/environment.h"
#include "platform/host/home_folder.h"
#include "platform/host/host_root.h"

namespace ksw::host {

namespace {

std::optional<std::string> folderNamed(const char* variable, std::string_view inHome) {
    const std::optional<std::string> named = environmentVariable(variable);
    if (named && named->starts_with('/')) {
        return hostPathOfNamed(*named);
    }
    std::optional<std::string> home = homeFolder(::geteuid());
    return home ? std::optional(home->append(inHome)) : std::nullopt;
}

}  // namespace

std::optional<std::string> userDataFolder() {
    return folderNamed("XDG_DATA_HOME", "/.local/share");
}

std::optional<std::string> userStateFolder() {
    return folderNamed("XDG_STATE_HOME", "/.local/state");
}

std::optional<std::string> userConfigFolder() {
    return folderNamed("XDG_CONFIG_HOME", "/.config");
}

}  // namespace ksw::host
