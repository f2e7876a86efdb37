// schema.h: the tables of the store, their version, and how a database file becomes one that has them.
#pragma once

#include <cstdint>
#include <string>

#include "servers/kestrelwoodd/sqlite.h"

namespace ksw::daemon {

/// The schema that this daemon reads and writes.
inline constexpr std::int64_t kSchemaVersion = 1;

/// What the store may take of the disk, in pages of 4 KiB; the default is 4 GiB. Beyond it the disk counts as full.
inline constexpr std::int64_t kStorePagesMax = 1'048'576;

/// Opens the database, checks it, and brings it to this schema. A file of a newer schema, one that is damaged
/// and one that is something else are refused, and are the same bytes afterwards. The error names the file.
Result<Database> openWithSchema(const std::string& path, std::int64_t pagesMax);

}  // namespace ksw::daemon
