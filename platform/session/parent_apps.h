// parent_apps.h: tells the notification service of a user which parent applications the user has.
#pragma once

#include <optional>
#include <string>

#include <kestrelwood/values/audit_token.h>

#include "platform/session/user_requests.h"

namespace ksw::session {

/// `RegisterParentApps` with requests of the caller's own.
void registerParentApps(const std::optional<std::string>& apps, Uid uid, UserRequests& requests);

}  // namespace ksw::session
