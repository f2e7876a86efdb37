#include "platform/ipc/dialer.h"

#include <chrono>

#include <unistd.h>

#include "platform/base/limits.h"
#include "platform/base/text.h"
#include "platform/host/host_root.h"
#include "platform/host/peer_identity.h"
#include "platform/host/sys.h"

namespace ksw::ipc {

namespace {

Error unreachable(const Error& cause) {
    return Error(ConnectionError::Unreachable, cause.localizedDescription());
}

}  // namespace

Result<ServicePlace> servicePlace(std::string_view name, Domain domain, std::optional<Uid> targetUid) {
    if (!host::isServiceName(name)) {
        return Error(ConnectionError::Unreachable, format("\"%@\" is not a service's name", name));
    }
    if (domain == Domain::System) {
        return ServicePlace{host::systemServicePath(name), host::hostRootOwner()};
    }
    if (targetUid) {
        return ServicePlace{host::userServicePath(*targetUid, name), *targetUid};
    }
    return ServicePlace{host::sessionServicePath(name), ::geteuid()};
}

Result<UniqueFd> dial(const ServicePlace& place) {
    Result<UniqueFd> socket = host::sys::socket(AF_UNIX, SOCK_STREAM);
    if (!socket) {
        return unreachable(socket.error());
    }
    const auto timeout = std::chrono::seconds(limits::kDialSeconds);
    if (Status status = host::sys::connectUnix(socket->get(), place.path, timeout); !status) {
        return unreachable(status.error());
    }
    Result<host::PeerIdentity> peer = host::PeerIdentity::ofListener(socket->get(), place.path);
    if (!peer) {
        return Error(ConnectionError::WrongPeer, peer.error().localizedDescription());
    }
    if (peer->uid() != place.owner || place.owner == kNoUser) {
        return Error(ConnectionError::WrongPeer, format("\"%@\": who listens there is user %ld, not %ld",
                                                        place.path, peer->uid(), place.owner));
    }
    return std::move(*socket);
}

}  // namespace ksw::ipc
