#include "servers/common/hub_server.h"

#include "platform/base/limits.h"
#include "platform/ipc/notifications.h"

namespace ksw::servers {

ipc::ServerOptions hubServerOptions() {
    ipc::ServerOptions options;
    options.limits.connectionsPerUid = limits::kHubConnectionsPerUidMax;
    options.workers = 1;
    return options;
}

Status startHubServer(ipc::Server& server, ipc::NotificationHub& hub, ipc::Domain domain) {
    Status listening = server.listen(ipc::kNotifyService, domain, hub.service());
    return listening ? server.start() : listening;
}

}  // namespace ksw::servers
