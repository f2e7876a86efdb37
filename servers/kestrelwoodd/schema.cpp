#include "servers/kestrelwoodd/schema.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>

#include "platform/host/sys_files.h"

namespace ksw::daemon {

namespace {

/// "KSWD": tells this store from other programs' databases.
constexpr std::int64_t kApplicationId = 0x4B535744;

constexpr std::string_view kMagic{"SQLite format 3\0", 16};
constexpr std::size_t kHeaderSize = 100;
constexpr std::size_t kVersionOffset = 60;

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

Error refusal(const std::string& path, int code, const std::string& why) {
    return Error(kStoreErrorDomain, code, path + ": " + why);
}

Error newerSchema(const std::string& path, std::int64_t version) {
    return refusal(path, SQLITE_SCHEMA,
                   "has schema " + std::to_string(version) + ", and this daemon knows none above " +
                       std::to_string(kSchemaVersion) + "; it is left as it is");
}

/// Reads what the file's first bytes say, since opening it as a database may already write beside it.
/// A file that is not there, or empty, is a new store.
Status checkHeader(const std::string& path) {
    Result<UniqueFd> file = host::sys::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!file) {
        return host::sys::isErrno(file.error(), ENOENT) ? Status() : Status(file.error());
    }
    std::array<char, kHeaderSize> header{};
    Result<host::sys::Transfer> got = host::sys::read(file->get(), header.data(), header.size());
    if (!got) {
        return got.error();
    }
    if (got->bytes == 0) {
        return {};
    }
    if (got->bytes < kHeaderSize || std::string_view(header.data(), kMagic.size()) != kMagic) {
        return refusal(path, SQLITE_NOTADB, "is not a database; it is left as it is");
    }
    std::uint32_t version = 0;
    for (std::size_t index = kVersionOffset; index < kVersionOffset + 4; ++index) {
        version = (version << 8U) | static_cast<std::uint8_t>(header[index]);
    }
    return version > kSchemaVersion ? Status(newerSchema(path, version)) : Status();
}

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
        return newerSchema(path, *version);
    }
    if (*tables > 0 && *application != kApplicationId) {
        return refusal(path, SQLITE_NOTADB, "is another program's database; it is left as it is");
    }
    return version;
}

Status configure(Database& database, std::int64_t pagesMax) {
    return database.execute(
        "PRAGMA busy_timeout = 2000; PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
        "PRAGMA foreign_keys = ON; PRAGMA max_page_count = " +
        std::to_string(pagesMax) + ";");
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
        return refusal(path, SQLITE_CORRUPT, "is damaged: " + std::string(finding.value_or("no finding")));
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

}  // namespace

Result<Database> openWithSchema(const std::string& path, std::int64_t pagesMax) {
    if (Status header = checkHeader(path); !header) {
        return header.error();
    }
    Result<Database> database = Database::open(path);
    if (!database) {
        return database;
    }
    Result<std::int64_t> version = checkVersion(*database, path);
    Status ready = version.ok() ? checkPages(*database, path) : Status(version.error());
    if (!ready) {
        database->leaveUntouched();
        return ready.error();
    }
    if (Status configured = configure(*database, pagesMax); !configured) {
        return configured.error();
    }
    if (Status current = bringUp(*database, *version); !current) {
        return current.error();
    }
    return database;
}

}  // namespace ksw::daemon
