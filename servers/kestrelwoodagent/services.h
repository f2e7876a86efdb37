// services.h: what the agent serves: the eight methods of "com.velmont.kestrelwoodagent".
#pragma once

#include <functional>

#include <sys/types.h>

#include "platform/ipc/dispatcher.h"
#include "platform/ipc/notification_hub.h"
#include "servers/kestrelwoodagent/background_items.h"
#include "servers/kestrelwoodagent/login_items.h"

namespace ksw::agentserver {

/// Tells whom it may concern that items have changed, and which process has changed them. Called when the change is
/// on disk: for all others before the answer, for that process after it. Must not block.
using Announce = std::function<void(pid_t cause, ipc::Audience audience)>;

/// The notification by which the agent tells of changed items; it says no more than that.
Notification changeOfItems();

/// Who may ask for anything: the user, uid 0, and the owner of the host root when one is set.
struct Served {
    Uid user = kNoUser;
    Uid hostRootOwner = kNoUser;

    bool includes(Uid uid) const { return uid != kNoUser && (uid == 0 || uid == user || uid == hostRootOwner); }
};

/// What serves the agent's service. What is handed in is borrowed and outlives the server. Whoever is not served is
/// answered an error, -97, whatever he asks.
ipc::Dispatcher agentService(LoginItems& loginItems, BackgroundItems& backgroundItems, const Announce& announce,
                             Served served);

}  // namespace ksw::agentserver
