// attribution.h: who is named as the developer of a job, and which application vouches for it.
#pragma once

#include <optional>
#include <string>

#include <kestrelwood/KSWItem.h>

#include "model/config/configuration.h"

namespace ksw::config {

/// Stores in the item who made it, whether that was curated, and the applications that it belongs to, once the team
/// in its executable's signature is stored. `signer` is the developer that the same signature names. The result is
/// the URL of the application that vouches for the item. Blocks for signatures and for the application registry.
std::optional<URL> attribute(KSWItem& item, const Configuration& configuration, OptionalString signer);

}  // namespace ksw::config
