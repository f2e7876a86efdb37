// agent.h: the agent put together: its services, its hub, and what it hears from the management daemon.
#pragma once

#include "platform/base/result.h"
#include "platform/ipc/notification_center.h"
#include "platform/ipc/notification_hub.h"
#include "platform/ipc/server.h"
#include "servers/kestrelwoodagent/background_items.h"
#include "servers/kestrelwoodagent/login_items.h"

namespace ksw::agentserver {

/// Serves one user from `start` on. `start` and the destructor: one thread.
class Agent {
public:
    /// Borrows the items, and the centre of the notifications by which the management daemon tells of changes.
    Agent(LoginItems& loginItems, ipc::NotificationCenter& ofDaemon, Uid user);
    /// Ends it: what is being asked ends first, observers last.
    ~Agent();
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    /// Listens in the calling user's session. Error: why it cannot.
    Status start();

private:
    void announceChange(const Notification& ofDaemon);

    const Uid user_;
    ipc::NotificationHub hub_;
    ipc::Server hubServer_;
    LoginItems& loginItems_;
    ipc::NotificationCenter& ofDaemon_;
    BackgroundItems backgroundItems_;
    ipc::Server server_;
    ipc::NotificationCenter::Observation changes_;
};

}  // namespace ksw::agentserver
