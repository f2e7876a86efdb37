#include "servers/kestrelwoodagent/agent.h"

#include <string>

#include "client/protocol/services.h"
#include "client/protocol/user_data_change.h"
#include "platform/host/host_root.h"
#include "servers/common/hub_server.h"
#include "servers/kestrelwoodagent/services.h"

namespace ksw::agentserver {

Agent::Agent(LoginItems& loginItems, ipc::NotificationCenter& ofDaemon, Uid user)
    : user_(user),
      hub_(ipc::Domain::Session),
      hubServer_(servers::hubServerOptions()),
      loginItems_(loginItems),
      ofDaemon_(ofDaemon),
      backgroundItems_(user) {}

Agent::~Agent() {
    changes_ = {};
    server_.stop();
    hubServer_.stop();
}

Status Agent::start() {
    if (Status started = servers::startHubServer(hubServer_, hub_, ipc::Domain::Session); !started) {
        return started;
    }
    const Announce announce = [this](pid_t cause, ipc::Audience audience) {
        hub_.post(changeOfItems(), cause, audience);
    };
    ipc::Dispatcher service = agentService(loginItems_, backgroundItems_, announce, {user_, host::hostRootOwner()});
    if (Status listening = server_.listen(kAgentService, ipc::Domain::Session, std::move(service)); !listening) {
        return listening;
    }
    if (Status started = server_.start(); !started) {
        return started;
    }
    changes_ = ofDaemon_.observe(
        std::string(protocol::kUserDataDidChange), [this](const Notification& change) { announceChange(change); },
        protocol::coalesced);
    return {};
}

void Agent::announceChange(const Notification& ofDaemon) {
    const Uid uid = protocol::userDataChangeOf(ofDaemon).uid;
    if (uid == user_ || uid == kEveryUser) {
        hub_.post(changeOfItems());
    }
}

}  // namespace ksw::agentserver
