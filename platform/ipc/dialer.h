// dialer.h: from a service's name to a connected socket whose peer is the right user.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/audit_token.h>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"
#include "platform/ipc/connection.h"

namespace ksw::ipc {

/// Where a service is, and who must be behind it.
struct ServicePlace {
    std::string path;
    Uid owner = kNoUser;
};

/// The place of a service in its domain: the system's belongs to uid 0 (to the host root's owner when one is set),
/// a session's to its user. `targetUid` absent: the caller's own session. Error: Unreachable for what is no name.
Result<ServicePlace> servicePlace(std::string_view name, Domain domain, std::optional<Uid> targetUid);

/// Connects to the place and looks who listens there; no byte has been sent when this returns. Follows no link.
/// Blocks for at most limits::kDialSeconds. Error: Unreachable or WrongPeer.
Result<UniqueFd> dial(const ServicePlace& place);

}  // namespace ksw::ipc
