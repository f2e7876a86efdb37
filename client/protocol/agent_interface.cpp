// agent_interface.cpp: the agent's interface, collected from its methods.

#include "client/protocol/agent_service.h"

ksw::ipc::ServiceInterface __ksw_serviceInterface() {
    using namespace ksw::protocol::agent;
    return ksw::ipc::makeInterface("KSWManagerServiceProtocol", kGetLoginItems, kAddLoginItem, kRemoveLoginItem,
                                   kGetBackgroundItems, kSetElectionForURL, kSetElectionForIdentifier,
                                   kOpenLoginItems, kImportRosterLoginItems);
}
