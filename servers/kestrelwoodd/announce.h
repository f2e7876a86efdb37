// announce.h: how the daemon tells of changes, whatever carries the word.
#pragma once

#include <sys/types.h>

#include <functional>

#include "client/protocol/user_data_change.h"
#include "platform/ipc/notification_hub.h"

namespace ksw::daemon {

/// Tells whom it may concern that records have changed, and which process has changed them. Called when the change
/// is on disk, on the thread that answers it: for all others before the answer, for that process after it. Must not
/// block; throws when there is no memory only.
using Announce = std::function<void(const protocol::UserDataChange& change, pid_t cause, ipc::Audience audience)>;

}  // namespace ksw::daemon
