// tables.h: the tables of the daemon's store, and their version.
#pragma once

#include <cstdint>

#include "servers/common/schema.h"

namespace ksw::daemon {

/// The schema that this daemon reads and writes.
inline constexpr std::int64_t kSchemaVersion = 2;

extern const servers::Schema kTables;

/// What the store may take of the disk, in pages of 4 KiB; the default is 4 GiB. Beyond it the disk counts as full.
inline constexpr std::int64_t kStorePagesMax = 1'048'576;

}  // namespace ksw::daemon
