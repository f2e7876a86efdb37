// caller.h: who asks, as far as the daemon's rules go.
#pragma once

#include <sys/types.h>

#include <kestrelwood/values/audit_token.h>

namespace ksw::daemon {

/// The user of the connection, by the kernel's word. Whatever else a request says of its sender is a claim.
struct Caller {
    Uid uid = kNoUser;
    gid_t gid = static_cast<gid_t>(-1);

    bool isRoot() const { return uid == 0; }
};

}  // namespace ksw::daemon
