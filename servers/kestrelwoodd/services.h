// services.h: the daemon's services, built from the table of served methods.
#pragma once

#include "platform/ipc/dispatcher.h"
#include "servers/kestrelwoodd/operations.h"

namespace ksw::daemon {

/// What serves "com.velmont.kestrelwood". `operations` is borrowed and outlives the server.
ipc::Dispatcher managerService(Operations& operations);

/// What serves "com.velmont.kestrelwood.registrar"; the same operations under the narrower contract.
ipc::Dispatcher registrarService(Operations& operations);

}  // namespace ksw::daemon
