#include "servers/kestrelwoodd/schema.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>

#include "platform/host/sys_files.h"
#include "servers/kestrelwoodd/store_file.h"

namespace ksw::daemon {

namespace {

/// "KSWD": tells this store from other programs' databases.
constexpr std::int64_t kApplicationId = 0x4B535744;

/// What leads from each version to the next; the first entry makes the tables. An item's row has a column for
/// what it is found by and judged by; `record` is its archive, which has all of it.
constexpr std::array<const char*, kSchemaVersion> kSteps = {R"(
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
)"};

/// What the database says of itself, its journal included.
Result<std::int64_t> checkVersion(Database& database, const std::string& path) {
    Result<std::int64_t> version = database.number("PRAGMA user_version");
    Result<std::int64_t> tables = database.number("SELECT count(*) FROM sqlite_schema");
    Result<std::int64_t> application = database.number("PRAGMA application_id");
    for (const auto* answer : {&version, &tables, &application}) {
        if (!answer->ok()) {
            return answer->error();
        }
    }
    if (*version < 0 || *version > kSchemaVersion) {
        return newerSchemaError(path, *version, kSchemaVersion);
    }
    if (*application != kApplicationId) {
        return databaseError(path, SQLITE_MISMATCH, "is another program's database; it is left as it is");
    }
    if (*version == 0) {
        // A new store takes its name with its tables in it.
        return databaseError(path, SQLITE_CORRUPT, "has lost its schema");
    }
    return version;
}

/// The library passes over settings that it cannot follow, on a file system without shared memory for one.
Status checkJournal(Database& database, const std::string& path) {
    constexpr std::int64_t kFull = 2;
    const Result<std::int64_t> synchronous = database.number("PRAGMA synchronous");
    Result<Statement> mode = database.prepare("PRAGMA journal_mode");
    const Result<bool> row = mode ? mode->step() : Result<bool>(mode.error());
    if (!synchronous) {
        return synchronous.error();
    }
    if (!row) {
        return row.error();
    }
    if (*synchronous != kFull || mode->text(0, 16) != "wal") {
        return databaseError(path, SQLITE_MISUSE, "cannot be kept with a journal that is synchronised");
    }
    return {};
}

/// Every commit is synchronised before it counts. The journal is moved into the file when it has come to
/// `kJournalPages`, and is cut to `kJournalLength` when a large change has made it longer than that.
Status configure(Database& database, const std::string& path, std::int64_t pagesMax) {
    Status done = database.execute(
        "PRAGMA busy_timeout = 2000; PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
        "PRAGMA foreign_keys = ON; PRAGMA wal_autocheckpoint = " +
        std::to_string(kJournalPages) + "; PRAGMA journal_size_limit = " + std::to_string(kJournalLength) +
        "; PRAGMA max_page_count = " + std::to_string(pagesMax) + ";");
    if (!done) {
        return done;
    }
    return checkJournal(database, path);
}

Status checkPages(Database& database, const std::string& path) {
    Result<Statement> check = database.prepare("PRAGMA quick_check(1)");
    if (!check) {
        return check.error();
    }
    Result<bool> row = check->step();
    if (!row) {
        return row.error();
    }
    const std::optional<std::string_view> finding = *row ? check->text(0, 4096) : std::nullopt;
    if (finding != "ok") {
        return databaseError(path, SQLITE_CORRUPT, "is damaged: " + std::string(finding.value_or("no finding")));
    }
    return {};
}

Status bringUp(Database& database, std::int64_t version) {
    if (version == kSchemaVersion) {
        return {};
    }
    Result<Transaction> transaction = Transaction::begin(database);
    if (!transaction) {
        return transaction.error();
    }
    for (auto step = static_cast<std::size_t>(version); step < kSteps.size(); ++step) {
        if (Status done = database.execute(kSteps[step]); !done) {
            return done;
        }
    }
    if (Status marked = database.execute("PRAGMA application_id = " + std::to_string(kApplicationId) +
                                         "; PRAGMA user_version = " + std::to_string(kSchemaVersion));
        !marked) {
        return marked;
    }
    return transaction->commit();
}

/// Opens a database that is there and checks it; nothing is written to it.
Result<Database> openChecked(const std::string& path, std::int64_t& version) {
    Result<Database> database = Database::open(path);
    if (!database) {
        return database;
    }
    const Result<std::int64_t> found = checkVersion(*database, path);
    if (Status ready = found.ok() ? checkPages(*database, path) : Status(found.error()); !ready) {
        database->leaveUntouched();
        return ready.error();
    }
    version = *found;
    return database;
}

/// Makes a database with the tables of this schema; all of it is on disk, and nothing in its journal, afterwards.
Status makeDatabase(const std::string& path, std::int64_t pagesMax) {
    Result<Database> database = Database::open(path);
    if (!database) {
        return database.error();
    }
    if (Status configured = configure(*database, path, pagesMax); !configured) {
        return configured;
    }
    if (Status made = bringUp(*database, 0); !made) {
        return made;
    }
    return database->checkpoint();
}

}  // namespace

Result<Database> openWithSchema(const std::string& path, std::int64_t pagesMax) {
    const Result<StoreFile> file = checkStoreFile(path, kSchemaVersion);
    if (!file) {
        return file.error();
    }
    if (*file == StoreFile::Missing) {
        const auto make = [pagesMax](const std::string& place) { return makeDatabase(place, pagesMax); };
        if (Status made = makeStoreFile(path, make); !made) {
            return made.error();
        }
    }
    std::int64_t version = 0;
    Result<Database> database = openChecked(path, version);
    if (!database && saysDamaged(database.error())) {
        // To the check a page that the disk does not give now looks like a damaged one. It is looked at again.
        if (Status readable = readStoreFile(path); !readable) {
            return readable.error();
        }
        database = openChecked(path, version);
    }
    if (!database) {
        return database;
    }
    if (Status configured = configure(*database, path, pagesMax); !configured) {
        return configured.error();
    }
    if (Status current = bringUp(*database, version); !current) {
        return current.error();
    }
    return database;
}

}  // namespace ksw::daemon
