// user_names.h: by which name a user is known.
#pragma once

#include <string>

#include <kestrelwood/values/audit_token.h>

namespace ksw::daemon {

/// The user's name in the host's user database; "uid-N" for one that has none there, or a name that would read
/// like another user's here; "system" for what belongs to no single user. May block on the host's database.
std::string userNameOf(Uid uid);

/// "uid-N".
std::string numberedUserName(Uid uid);

}  // namespace ksw::daemon
