// log.h: what the daemon itself writes to the log.
#pragma once

#include <string_view>

namespace ksw::daemon {

/// Logs an error of the daemon; `what` names no user's secrets, since it is written as public. Any thread.
void logError(std::string_view what);
/// The same for what an administrator may want to know.
void logNotice(std::string_view what);

}  // namespace ksw::daemon
