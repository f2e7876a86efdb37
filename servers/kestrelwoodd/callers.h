// callers.h: who asks, told from the connection.
#pragma once

#include "platform/host/host_root.h"
#include "platform/host/peer_identity.h"
#include "servers/kestrelwoodd/caller.h"

namespace ksw::daemon {

/// Tells callers from their connections; asks beforehand who owns the host root.
class Callers {
public:
    Caller callerOf(const host::PeerIdentity& peer) const {
        return {peer.uid(), peer.auditToken().effectiveGid(), owner_ != kNoUser && peer.uid() == owner_,
                peer.auditToken()};
    }

private:
    Uid owner_ = host::hostRootOwner();
};

}  // namespace ksw::daemon
