// log.h: what the agent itself writes to the log.
#pragma once

#include <string_view>

namespace ksw::agentserver {

/// Logs an error of the agent; `what` is written as public. Any thread.
void logError(std::string_view what);

}  // namespace ksw::agentserver
