#include "servers/kestrelwoodd/store.h"

#include <sqlite3.h>

#include <algorithm>
#include <bit>

#include "platform/base/limits.h"

namespace ksw::daemon {

using namespace servers;

namespace {

constexpr std::string_view kPutUser =
    "INSERT INTO users (uid, identifier) VALUES (?1, ?2) ON CONFLICT (uid) DO UPDATE SET identifier = ?2";
/// Most changes leave an item where it is found; this one leaves the indexes alone.
constexpr std::string_view kChangeItem =
    "UPDATE items SET type = ?4, flags = ?5, disposition = ?6, generation = ?7, record = ?9,"
    " own_disposition = ?10, own_flags = ?11"
    " WHERE uid = ?1 AND uuid = ?2 AND identifier = ?3 AND container IS ?8";
constexpr std::string_view kPutItem =
    "INSERT INTO items (uid, uuid, identifier, type, flags, disposition, generation, container, record,"
    " own_disposition, own_flags)"
    " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11) ON CONFLICT (uid, uuid) DO UPDATE SET identifier = ?3,"
    " type = ?4, flags = ?5, disposition = ?6, generation = ?7, container = ?8, record = ?9, own_disposition = ?10,"
    " own_flags = ?11";
constexpr std::string_view kRemoveItem = "DELETE FROM items WHERE uid = ?1 AND identifier = ?2";
constexpr std::string_view kReadUsers = "SELECT uid, identifier FROM users ORDER BY uid";
constexpr std::string_view kReadItems =
    "SELECT uid, uuid, identifier, type, flags, disposition, generation, container, record,"
    " own_disposition, own_flags FROM items"
    " ORDER BY rowid";

/// The database's integers are signed; bit sets keep their bits.
std::int64_t stored(std::uint64_t bits) {
    return std::bit_cast<std::int64_t>(bits);
}

std::uint64_t bitsOf(const Statement& statement, int column) {
    return std::bit_cast<std::uint64_t>(statement.integer(column));
}

std::optional<UUID> uuidOf(const Statement& statement, int column) {
    const std::optional<Bytes> bytes = statement.bytes(column, sizeof(UUID::bytes));
    UUID uuid{};
    if (!bytes || bytes->size() != uuid.bytes.size()) {
        return std::nullopt;
    }
    std::copy(bytes->begin(), bytes->end(), uuid.bytes.begin());
    return uuid;
}

std::optional<Uid> uidOf(const Statement& statement, int column) {
    const std::int64_t number = statement.integer(column);
    if (number < 0 || number > std::int64_t{kEveryUser}) {
        return std::nullopt;
    }
    return static_cast<Uid>(number);
}

StoredItem itemOf(const Statement& statement) {
    StoredItem item;
    const std::optional<Uid> uid = uidOf(statement, 0);
    const std::optional<UUID> uuid = uuidOf(statement, 1);
    const std::optional<std::string_view> identifier = statement.text(2, limits::kFieldMax);
    const std::optional<UUID> container = uuidOf(statement, 7);
    const std::optional<Bytes> record = statement.bytes(8, limits::kRecordMax);
    item.readable = uid && uuid && identifier && record && (container || statement.isNull(7));
    item.row.uid = uid.value_or(kNoUser);
    item.row.uuid = uuid.value_or(UUID{});
    item.row.identifier = identifier.value_or(std::string_view());
    item.row.type = bitsOf(statement, 3);
    item.row.flags = bitsOf(statement, 4);
    item.row.disposition = bitsOf(statement, 5);
    item.row.generation = statement.integer(6);
    item.row.container = container;
    if (!statement.isNull(9)) {
        item.row.choice = OwnChoice{bitsOf(statement, 9), bitsOf(statement, 10)};
    }
    if (record) {
        item.row.record.assign(record->begin(), record->end());
    }
    return item;
}

/// A statement that puts an item, with the row's columns as its parameters.
Statement& bound(Statement& statement, const ItemRow& row) {
    statement.bind(1, std::int64_t{row.uid})
        .bind(2, Bytes(row.uuid.bytes))
        .bind(3, std::string_view(row.identifier))
        .bind(4, stored(row.type))
        .bind(5, stored(row.flags))
        .bind(6, stored(row.disposition))
        .bind(7, row.generation)
        .bind(9, Bytes(row.record));
    if (row.choice) {
        statement.bind(10, stored(row.choice->disposition)).bind(11, stored(row.choice->flags));
    } else {
        statement.bindNull(10).bindNull(11);
    }
    return row.container ? statement.bind(8, Bytes(row.container->bytes)) : statement.bindNull(8);
}

/// A database of this schema without its tables has lost them.
Error lackOfTables(const std::string& path, const Error& error) {
    return error.code() == SQLITE_ERROR
               ? databaseError(path, SQLITE_CORRUPT, "is damaged: " + std::string(error.localizedDescription()))
               : error;
}

}  // namespace

Result<Store> Store::open(const std::string& path, std::int64_t pagesMax) {
    Result<Database> database = openWithSchema(path, kTables, pagesMax);
    if (!database) {
        return database.error();
    }
    Result<Statement> putUser = database->prepare(kPutUser);
    Result<Statement> changeItem = database->prepare(kChangeItem);
    Result<Statement> putItem = database->prepare(kPutItem);
    Result<Statement> removeItem = database->prepare(kRemoveItem);
    for (const auto* prepared : {&putUser, &changeItem, &putItem, &removeItem}) {
        if (!prepared->ok()) {
            database->leaveUntouched();
            return lackOfTables(path, prepared->error());
        }
    }
    return Store(*std::move(database), *std::move(putUser), *std::move(changeItem), *std::move(putItem),
                 *std::move(removeItem));
}

Status Store::readUsers(const std::function<void(Uid, std::string_view)>& user) {
    Result<Statement> users = database_.prepare(kReadUsers);
    if (!users) {
        return users.error();
    }
    Result<bool> row = users->step();
    for (; row.ok() && *row; row = users->step()) {
        const std::optional<Uid> uid = uidOf(*users, 0);
        const std::optional<std::string_view> identifier = users->text(1, limits::kFieldMax);
        if (uid && identifier) {
            user(*uid, *identifier);
        }
    }
    return checked(row);
}

Status Store::readItems(const std::function<void(StoredItem)>& item) {
    Result<Statement> items = database_.prepare(kReadItems);
    if (!items) {
        return items.error();
    }
    Result<bool> row = items->step();
    for (; row.ok() && *row; row = items->step()) {
        item(itemOf(*items));
    }
    return checked(row);
}

Status Store::checked(const Result<bool>& end) {
    if (end) {
        return {};
    }
    if (saysDamaged(end.error())) {
        database_.leaveUntouched();
    }
    return end.error();
}

Status Store::put(const ItemRow& row) {
    Status changed = bound(changeItem_, row).run();
    return !changed || changeItem_.changes() != 0 ? changed : bound(putItem_, row).run();
}

Status Store::apply(const Change& change) {
    Status done = carryOut(change);
    if (!done && saysUnsettled(done.error())) {
        settle(database_, kTables);
    }
    return done;
}

Status Store::carryOut(const Change& change) {
    Result<Transaction> transaction = Transaction::begin(database_);
    if (!transaction) {
        return transaction.error();
    }
    if (Status erased = change.erasesAll ? erase() : Status(); !erased) {
        return erased;
    }
    for (const Change::User& user : change.users) {
        if (Status done = putUser_.bind(1, std::int64_t{user.uid}).bind(2, std::string_view(user.identifier)).run();
            !done) {
            return done;
        }
    }
    for (const ItemRow& row : change.put) {
        if (Status done = put(row); !done) {
            return done;
        }
    }
    for (const Change::Removal& removal : change.removed) {
        if (Status done =
                removeItem_.bind(1, std::int64_t{removal.uid}).bind(2, std::string_view(removal.identifier)).run();
            !done) {
            return done;
        }
    }
    if (Status kept = keep(change); !kept) {
        return kept;
    }
    return transaction->commit();
}

Status Store::checkpoint() {
    return database_.checkpoint();
}

Status Store::makeRoomInJournal() {
    return database_.makeRoomInJournal(kJournalLength);
}

}  // namespace ksw::daemon
