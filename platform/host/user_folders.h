// user_folders.h: where the calling user's programs keep what is theirs. Each is what the environment names, when
// that is an absolute path, else a folder of the user's home; below the host root. Absent for a user without a
// home. The folder need not exist. Any thread; may block for the database of users.
#pragma once

#include <optional>
#include <string>

namespace ksw::host {

/// `$XDG_DATA_HOME`, else `~/.local/share`.
std::optional<std::string> userDataFolder();
/// `$XDG_STATE_HOME`, else `~/.local/state`.
std::optional<std::string> userStateFolder();
/// `$XDG_CONFIG_HOME`, else `~/.config`.
std::optional<std::string> userConfigFolder();

}  // namespace ksw::host
