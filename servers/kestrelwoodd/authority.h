// authority.h: asks the host whether somebody may manage the daemon's database.
#pragma once

#include "servers/kestrelwoodd/housekeeping.h"

namespace ksw::daemon {

/// Asks the host's authorisation service for com.velmont.kestrelwood.manage-database, on the system's bus; the
/// answer is no when there is none, and when it is late. One process at a time: whoever asks meanwhile is denied,
/// so that nobody keeps the daemon's threads waiting.
Authority hostAuthority();

}  // namespace ksw::daemon
