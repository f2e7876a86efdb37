// bundle_of_process.h: the application that a process belongs to.
#pragma once

#include <optional>

#include <kestrelwood/values.h>

#include "platform/base/result.h"
#include "servers/kestrelwoodd/caller.h"

namespace ksw::daemon {

/// The application of the process that a token names, absent when it belongs to none. The token is a claim of the
/// caller's: it must name a process that runs, and one of the caller's own unless he is uid 0. Error: -97 in
/// KSWErrorDomain.
Result<std::optional<URL>> bundleOfProcess(const AuditToken& token, const Caller& caller);

}  // namespace ksw::daemon
