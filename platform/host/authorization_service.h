// authorization_service.h: asks the host's authorisation service, on the system's bus, what a process may do.
#pragma once

#include <chrono>
#include <string_view>

#include <kestrelwood/values/audit_token.h>

#include "platform/base/result.h"

namespace ksw::host {

/// Whether the service lets a process do something now, without asking anybody for a password. Blocks until it has
/// answered, for `patience` at most. Any thread. Error: ESRCH when the process has ended; as BusConnection's
/// without bus, service or answer.
Result<bool> isAuthorized(const AuditToken& process, std::string_view action, std::chrono::milliseconds patience);

}  // namespace ksw::host
