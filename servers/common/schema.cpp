#include "servers/common/schema.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>

#include "platform/host/sys_files.h"
#include "servers/common/store_file.h"

namespace ksw::servers {

namespace {

/// What the database says of itself, its journal included.
Result<std::int64_t> checkVersion(Database& database, const std::string& path, const Schema& schema) {
    Result<std::int64_t> version = database.number("PRAGMA user_version");
    Result<std::int64_t> tables = database.number("SELECT count(*) FROM sqlite_schema");
    Result<std::int64_t> application = database.number("PRAGMA application_id");
    for (const auto* answer : {&version, &tables, &application}) {
        if (!answer->ok()) {
            return answer->error();
        }
    }
    if (*version < 0 || *version > schema.version()) {
        return newerSchemaError(path, *version, schema.version());
    }
    if (*application != schema.applicationId) {
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

Status bringUp(Database& database, const Schema& schema, std::int64_t version) {
    if (version == schema.version()) {
        return {};
    }
    Result<Transaction> transaction = Transaction::begin(database);
    if (!transaction) {
        return transaction.error();
    }
    for (auto step = static_cast<std::size_t>(version); step < schema.steps.size(); ++step) {
        if (Status done = database.execute(schema.steps[step]); !done) {
            return done;
        }
    }
    if (Status marked = database.execute("PRAGMA application_id = " + std::to_string(schema.applicationId) +
                                         "; PRAGMA user_version = " + std::to_string(schema.version()));
        !marked) {
        return marked;
    }
    return transaction->commit();
}

/// Opens a database that is there and checks it; nothing is written to it.
Result<Database> openChecked(const std::string& path, const Schema& schema, std::int64_t& version) {
    Result<Database> database = Database::open(path);
    if (!database) {
        return database;
    }
    const Result<std::int64_t> found = checkVersion(*database, path, schema);
    if (Status ready = found.ok() ? checkPages(*database, path) : Status(found.error()); !ready) {
        database->leaveUntouched();
        return ready.error();
    }
    version = *found;
    return database;
}

/// Makes a database with the tables of this schema; all of it is on disk, and nothing in its journal, afterwards.
Status makeDatabase(const std::string& path, const Schema& schema, std::int64_t pagesMax) {
    Result<Database> database = Database::open(path);
    if (!database) {
        return database.error();
    }
    if (Status configured = configure(*database, path, pagesMax); !configured) {
        return configured;
    }
    if (Status made = bringUp(*database, schema, 0); !made) {
        return made;
    }
    return database->checkpoint();
}

}  // namespace

Result<Database> openWithSchema(const std::string& path, const Schema& schema, std::int64_t pagesMax) {
    const Result<StoreFile> file = checkStoreFile(path, schema.version());
    if (!file) {
        return file.error();
    }
    if (*file == StoreFile::Missing) {
        const auto make = [&schema, pagesMax](const std::string& place) {
            return makeDatabase(place, schema, pagesMax);
        };
        if (Status made = makeStoreFile(path, make); !made) {
            return made.error();
        }
    }
    std::int64_t version = 0;
    Result<Database> database = openChecked(path, schema, version);
    if (!database && saysDamaged(database.error())) {
        // To the check a page that the disk does not give now looks like a damaged one. It is looked at again.
        if (Status readable = readStoreFile(path); !readable) {
            return readable.error();
        }
        database = openChecked(path, schema, version);
    }
    if (!database) {
        return database;
    }
    if (Status configured = configure(*database, path, pagesMax); !configured) {
        return configured.error();
    }
    if (Status current = bringUp(*database, schema, version); !current) {
        return current.error();
    }
    return database;
}

void settle(Database& database, const Schema& schema) {
    // The commit may stand whole in the journal, and only its synchronisation have failed: whoever read the journal
    // after a crash would carry it out after all. A commit that changes nothing takes its place there.
    static_cast<void>(database.execute("PRAGMA user_version = " + std::to_string(schema.version())));
}

}  // namespace ksw::servers
