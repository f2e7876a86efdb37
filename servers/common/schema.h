// schema.h: which tables a store has, and how a database file becomes one that has them.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "servers/common/sqlite.h"

namespace ksw::servers {

/// The tables of one program's store.
struct Schema {
    std::int64_t applicationId;          ///< Tells this store from other programs' databases.
    std::span<const char* const> steps;  ///< What leads from each version to the next; the first makes the tables.

    std::int64_t version() const { return static_cast<std::int64_t>(steps.size()); }
};

/// How long the journal grows before it is moved into the file, in pages of 4 KiB. One change may make it longer.
inline constexpr std::int64_t kJournalPages = 250;
inline constexpr std::int64_t kPageSize = 4'096;

/// What is kept of the journal's file, in bytes: those pages and some more, since the change that makes it too long
/// is still in it; 24 bytes stand before each page and 32 before the first (sqlite.org/fileformat2.html, section
/// 4).
inline constexpr std::int64_t kJournalLength = 32 + (kJournalPages + 6) * (kPageSize + 24);

/// Opens the database, checks it, and brings it to this schema; makes it when there is none. The error names the
/// file, and the file is the same bytes afterwards: one of a newer schema, one that is another program's, one that
/// is damaged (`saysDamaged`), and one that the disk cannot give now. `pagesMax`: what the database may take of the
/// disk, in pages of 4 KiB; beyond it the disk counts as full.
Result<Database> openWithSchema(const std::string& path, const Schema& schema, std::int64_t pagesMax);

/// After a change that failed and left open how much of it has come to the disk (`saysUnsettled`): nothing of it
/// may be there at the next start. When this fails too, the next change does, and settles it.
void settle(Database& database, const Schema& schema);

}  // namespace ksw::servers
