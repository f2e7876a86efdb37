// user_database.h: what the host's database of users says.
#pragma once

#include <optional>
#include <string>

#include <kestrelwood/values/audit_token.h>

namespace ksw::host {

struct UserEntry {
    std::string name;
    std::string home;  ///< Of the host, as the database has it; need not be there, nor be a path.
};

/// Absent for a user whom the database does not know, or says more than 64 KiB of. Any thread; blocks for the
/// database, which may be a server elsewhere.
std::optional<UserEntry> userEntry(Uid uid);

}  // namespace ksw::host
