// services.h: the daemon's services, built from the table of served methods.
#pragma once

#include <functional>

#include "platform/ipc/dispatcher.h"
#include "platform/ipc/notification_hub.h"
#include "servers/kestrelwoodd/operations.h"

namespace ksw::daemon {

/// Tells whom it may concern that records have changed, and which process has changed them. Called when the change
/// is on disk, on the thread that answers it: for all others before the answer, for that process after it. Must not
/// block; throws when there is no memory only.
using Announce = std::function<void(const protocol::UserDataChange& change, pid_t cause, ipc::Audience audience)>;

/// What serves "com.velmont.kestrelwood". `operations` is borrowed and outlives the server.
ipc::Dispatcher managerService(Operations& operations, const Announce& announce);

/// What serves "com.velmont.kestrelwood.registrar"; the same operations under the narrower contract.
ipc::Dispatcher registrarService(Operations& operations, const Announce& announce);

}  // namespace ksw::daemon
