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

/// How long the journal grows before it is moved into the file, in pages of 4 KiB. One change may make it longer.
inline constexpr std::int64_t kJournalPages = 250;
inline constexpr std::int64_t kPageSize = 4'096;

/// What is kept of the journal's file, in bytes: those pages and some more, since the change that makes it too long
/// is still in it; 24 bytes stand before each page and 32 before the first (sqlite.org/fileformat2.html, section
/// 4).
inline constexpr std::int64_t kJournalLength = 32 + (kJournalPages + 6) * (kPageSize + 24);

/// Opens the database, checks it, and brings it to this schema; makes it when there is none. The error names the
/// file, and the file is the same bytes afterwards: one of a newer schema, one that is another program's, one that
/// is damaged (`saysDamaged`), and one that the disk cannot give now.
Result<Database> openWithSchema(const std::string& path, std::int64_t pagesMax);

}  // namespace ksw::daemon
