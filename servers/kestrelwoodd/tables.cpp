#include "servers/kestrelwoodd/tables.h"

#include <array>

namespace ksw::daemon {

namespace {

/// "KSWD": tells this store from other programs' databases.
constexpr std::int64_t kApplicationId = 0x4B535744;

/// An item's row has a column for what it is found by and judged by; `record` is its archive, which has all of it.
constexpr const char* kFirst = R"(
CREATE TABLE users (
    uid INTEGER PRIMARY KEY CHECK (uid BETWEEN 0 AND 4294967294),
    identifier TEXT NOT NULL UNIQUE
) STRICT;
CREATE TABLE items (
    uid INTEGER NOT NULL REFERENCES users (uid),
    uuid BLOB NOT NULL CHECK (length(uuid) = 16),
    identifier TEXT NOT NULL CHECK (length(identifier) > 0),
    type INTEGER NOT NULL,
    flags INTEGER NOT NULL,
    disposition INTEGER NOT NULL,
    generation INTEGER NOT NULL,
    container BLOB CHECK (container <> uuid),
    record BLOB NOT NULL,
    PRIMARY KEY (uid, uuid),
    UNIQUE (uid, identifier),
    FOREIGN KEY (uid, container) REFERENCES items (uid, uuid) DEFERRABLE INITIALLY DEFERRED
) STRICT;
CREATE INDEX items_by_container ON items (uid, container);
CREATE TABLE settings (
    uid INTEGER PRIMARY KEY REFERENCES users (uid),
    record BLOB NOT NULL
) STRICT;
CREATE TABLE payloads (
    identifier TEXT PRIMARY KEY NOT NULL,
    payload BLOB NOT NULL
) STRICT;
CREATE TABLE jobs (
    path TEXT PRIMARY KEY NOT NULL,
    label TEXT NOT NULL UNIQUE,
    job BLOB NOT NULL
) STRICT;
CREATE TABLE enablement (
    subsystem TEXT NOT NULL,
    uid INTEGER NOT NULL CHECK (uid BETWEEN 0 AND 4294967294),
    enabled INTEGER NOT NULL CHECK (enabled IN (0, 1)),
    PRIMARY KEY (subsystem, uid)
) STRICT;
)";

/// A user's choice beneath a managed rule. The subsystems' switches stand in the users' settings.
constexpr const char* kChoicesAndSwitches = R"(
ALTER TABLE items ADD COLUMN own_disposition INTEGER;
ALTER TABLE items ADD COLUMN own_flags INTEGER;
DROP TABLE enablement;
CREATE TABLE switches (
    name TEXT PRIMARY KEY NOT NULL,
    value INTEGER NOT NULL
) STRICT;
)";

/// What leads from each version to the next; the first entry makes the tables.
constexpr std::array<const char*, kSchemaVersion> kSteps = {kFirst, kChoicesAndSwitches};

}  // namespace

const servers::Schema kTables{kApplicationId, kSteps};

}  // namespace ksw::daemon
