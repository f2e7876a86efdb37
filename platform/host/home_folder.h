// home_folder.h: where a user's own files are.
#pragma once

#include <optional>
#include <string>

#include <kestrelwood/values/audit_token.h>

namespace ksw::host {

/// The home folder of a user, below the host root: of the calling user what HOME says, else, and of everybody else,
/// what the database of users says. Absent for a user whom it does not know. Any thread; blocks for the database.
std::optional<std::string> homeFolder(Uid uid);

}  // namespace ksw::host
