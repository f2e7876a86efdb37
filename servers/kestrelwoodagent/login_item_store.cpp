#include "servers/kestrelwoodagent/login_item_store.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>

#include "platform/base/limits.h"

namespace ksw::agentserver {

using namespace servers;

namespace {

/// "KSWA": tells this store from other programs' databases.
constexpr std::int64_t kApplicationId = 0x4B535741;

constexpr std::array<const char*, 1> kSteps = {R"(
CREATE TABLE login_items (
    position INTEGER PRIMARY KEY,
    identifier BLOB NOT NULL UNIQUE CHECK (length(identifier) = 16),
    record BLOB NOT NULL
) STRICT;
)"};

constexpr Schema kSchema{kApplicationId, kSteps};

constexpr std::string_view kRead = "SELECT position, identifier, record FROM login_items ORDER BY position";
constexpr std::string_view kPut =
    "INSERT OR REPLACE INTO login_items (position, identifier, record) VALUES (?1, ?2, ?3)";
constexpr std::string_view kRemove = "DELETE FROM login_items WHERE identifier = ?1";

std::optional<LoginItemRow> rowOf(const Statement& statement) {
    const std::optional<Bytes> identifier = statement.bytes(1, sizeof(UUID::bytes));
    const std::optional<Bytes> record = statement.bytes(2, limits::kRecordMax);
    LoginItemRow row;
    if (!identifier || identifier->size() != row.identifier.bytes.size() || !record) {
        return std::nullopt;
    }
    row.position = statement.integer(0);
    std::copy(identifier->begin(), identifier->end(), row.identifier.bytes.begin());
    row.record.assign(record->begin(), record->end());
    return row;
}

/// A database of this schema without its table has lost it.
Error lackOfTables(const std::string& path, const Error& error) {
    return error.code() == SQLITE_ERROR
               ? databaseError(path, SQLITE_CORRUPT, "is damaged: " + std::string(error.localizedDescription()))
               : error;
}

}  // namespace

Result<LoginItemStore> LoginItemStore::open(const std::string& path, std::int64_t pagesMax) {
    Result<Database> database = openWithSchema(path, kSchema, pagesMax);
    if (!database) {
        return database.error();
    }
    Result<Statement> put = database->prepare(kPut);
    Result<Statement> remove = database->prepare(kRemove);
    for (const auto* prepared : {&put, &remove}) {
        if (!prepared->ok()) {
            database->leaveUntouched();
            return lackOfTables(path, prepared->error());
        }
    }
    return LoginItemStore(*std::move(database), *std::move(put), *std::move(remove));
}

Status LoginItemStore::read(const std::function<void(std::int64_t, std::optional<LoginItemRow>)>& row) {
    Result<Statement> rows = database_.prepare(kRead);
    if (!rows) {
        return rows.error();
    }
    Result<bool> next = rows->step();
    for (; next && *next; next = rows->step()) {
        row(rows->integer(0), rowOf(*rows));
    }
    if (!next && saysDamaged(next.error())) {
        database_.leaveUntouched();
    }
    return next ? Status() : Status(next.error());
}

Status LoginItemStore::apply(const LoginItemChange& change) {
    Status done = carryOut(change);
    if (!done && saysUnsettled(done.error())) {
        settle(database_, kSchema);
    }
    return done;
}

Status LoginItemStore::carryOut(const LoginItemChange& change) {
    Result<Transaction> transaction = Transaction::begin(database_);
    if (!transaction) {
        return transaction.error();
    }
    for (const UUID& identifier : change.removed) {
        if (Status done = remove_.bind(1, Bytes(identifier.bytes)).run(); !done) {
            return done;
        }
    }
    for (const LoginItemRow& row : change.put) {
        if (Status done =
                put_.bind(1, row.position).bind(2, Bytes(row.identifier.bytes)).bind(3, Bytes(row.record)).run();
            !done) {
            return done;
        }
    }
    return transaction->commit();
}

}  // namespace ksw::agentserver
