// services.h: the daemon's services, built from the table of served methods.
#pragma once

#include "platform/ipc/dispatcher.h"
#include "servers/kestrelwoodd/announce.h"
#include "servers/kestrelwoodd/housekeeping.h"
#include "servers/kestrelwoodd/operations.h"

namespace ksw::daemon {

/// What serves "com.velmont.kestrelwood". Both are borrowed and outlive the server.
ipc::Dispatcher managerService(Operations& operations, Housekeeping& housekeeping, const Announce& announce);

/// What serves "com.velmont.kestrelwood.registrar"; the same operations under the narrower contract.
ipc::Dispatcher registrarService(Operations& operations, const Announce& announce);

/// What serves "com.velmont.kestrelwood.roster".
ipc::Dispatcher rosterService(Housekeeping& housekeeping, const Announce& announce);

}  // namespace ksw::daemon
