// notification_service.h: kestrelwoodd as a user runs it: it tells that user of background items.
#pragma once

#include <kestrelwood/values/audit_token.h>

#include "platform/base/result.h"
#include "platform/ipc/dispatcher.h"
#include "servers/kestrelwoodd/notices.h"

namespace ksw::daemon {

/// What serves "com.velmont.kestrelwood.notifications" for `user`. `notices` is borrowed and outlives the server.
/// Whom the rule does not let is answered false, and nothing is told.
ipc::Dispatcher notificationService(Notices& notices, Uid user);

/// Serves it for the calling user until a signal asks for the end. Error: why it cannot.
Status serveNotifications();

}  // namespace ksw::daemon
