// caller.h: who asks, as far as the daemon's rules go.
#pragma once

#include <sys/types.h>

#include <kestrelwood/values/audit_token.h>

namespace ksw::daemon {

/// The user of the connection, by the kernel's word. Whatever else a request says of its sender is a claim.
struct Caller {
    Uid uid = kNoUser;
    gid_t gid = static_cast<gid_t>(-1);
    /// Whether the daemon's host root is this user's own folder: what is the system's there is this user's.
    bool ownsHostRoot = false;
    /// The process that connected.
    AuditToken process{};

    bool isRoot() const { return uid == 0; }
    bool isAdministrator() const { return isRoot() || ownsHostRoot; }
};

}  // namespace ksw::daemon
