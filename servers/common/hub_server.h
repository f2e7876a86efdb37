// hub_server.h: how a server offers a domain's notifications to whoever observes them.
#pragma once

#include "platform/base/result.h"
#include "platform/ipc/notification_hub.h"
#include "platform/ipc/server.h"

namespace ksw::servers {

/// Observers have a server of their own: the connection that each process keeps takes none away from its user's
/// requests, and no request waits for them.
ipc::ServerOptions hubServerOptions();

/// Serves the hub, which is borrowed and outlives the server, in its domain.
Status startHubServer(ipc::Server& server, ipc::NotificationHub& hub, ipc::Domain domain);

}  // namespace ksw::servers
