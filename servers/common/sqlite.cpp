#include "servers/common/sqlite.h"

#include <sqlite3.h>

#include <algorithm>
#include <vector>

namespace ksw::servers {

namespace {

Error errorOf(sqlite3* connection) {
    const char* name = sqlite3_db_filename(connection, "main");
    std::string text = name == nullptr ? "" : name;
    text.append(": ").append(sqlite3_errmsg(connection));
    return Error(kStoreErrorDomain, sqlite3_extended_errcode(connection), text);
}

/// The result code without what it says in particular.
int primaryCode(const Error& error) {
    return static_cast<int>(error.code() & 0xFF);
}

/// A length as the library takes it; what is longer than its bound fails there by name.
sqlite3_uint64 lengthOf(std::size_t size) {
    return size;
}

}  // namespace

Error databaseError(const std::string& path, int code, std::string_view why) {
    return Error(kStoreErrorDomain, code, path + ": " + std::string(why));
}

bool saysDamaged(const Error& error) {
    return error.domain() == kStoreErrorDomain &&
           (primaryCode(error) == SQLITE_CORRUPT || primaryCode(error) == SQLITE_NOTADB);
}

bool saysUnsettled(const Error& error) {
    return error.domain() == kStoreErrorDomain && primaryCode(error) != SQLITE_CONSTRAINT && !saysDamaged(error);
}

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

Statement& Statement::bind(int parameter, std::int64_t number) {
    failedBind_ |= sqlite3_bind_int64(statement_.get(), parameter, number);
    return *this;
}

Statement& Statement::bind(int parameter, std::string_view text) {
    failedBind_ |= sqlite3_bind_text64(statement_.get(), parameter, text.data(), lengthOf(text.size()),
                                       SQLITE_TRANSIENT, SQLITE_UTF8);
    return *this;
}

Statement& Statement::bind(int parameter, Bytes bytes) {
    // A null pointer would bind NULL, and no bytes are still bytes.
    const void* data = bytes.empty() ? "" : static_cast<const void*>(bytes.data());
    failedBind_ |= sqlite3_bind_blob64(statement_.get(), parameter, data, lengthOf(bytes.size()), SQLITE_TRANSIENT);
    return *this;
}

Statement& Statement::bindNull(int parameter) {
    failedBind_ |= sqlite3_bind_null(statement_.get(), parameter);
    return *this;
}

Error Statement::error() const {
    return errorOf(sqlite3_db_handle(statement_.get()));
}

Result<bool> Statement::step() {
    if (failedBind_ != 0) {
        return error();
    }
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW) {
        return true;
    }
    if (code == SQLITE_DONE) {
        return false;
    }
    return error();
}

Status Statement::run() {
    Result<bool> row = step();
    while (row.ok() && *row) {
        row = step();
    }
    sqlite3_reset(statement_.get());
    failedBind_ = 0;
    return row.ok() ? Status() : Status(row.error());
}

std::int64_t Statement::changes() const {
    return sqlite3_changes(sqlite3_db_handle(statement_.get()));
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::optional<std::string_view> Statement::text(int column, std::size_t lengthMax) const {
    if (sqlite3_column_type(statement_.get(), column) != SQLITE_TEXT) {
        return std::nullopt;
    }
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    if (data == nullptr || size > lengthMax) {
        return std::nullopt;
    }
    return std::string_view(data, size);
}

std::optional<Bytes> Statement::bytes(int column, std::size_t lengthMax) const {
    if (sqlite3_column_type(statement_.get(), column) != SQLITE_BLOB) {
        return std::nullopt;
    }
    const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    if (size > lengthMax || (data == nullptr && size != 0)) {
        return std::nullopt;
    }
    return Bytes(data, size);
}

bool Statement::isNull(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

void Database::Closer::operator()(sqlite3* connection) const {
    sqlite3_close_v2(connection);
}

Result<Database> Database::open(const std::string& path) {
    sqlite3* connection = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int code = sqlite3_open_v2(path.c_str(), &connection, flags, nullptr);
    Database database(connection);
    if (code != SQLITE_OK) {
        return databaseError(path, code, sqlite3_errstr(code));
    }
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    return database;
}

Status Database::execute(const std::string& statements) {
    if (sqlite3_exec(connection_.get(), statements.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        return errorOf(connection_.get());
    }
    return {};
}

Result<Statement> Database::prepare(std::string_view statement) {
    sqlite3_stmt* prepared = nullptr;
    const int code = sqlite3_prepare_v3(connection_.get(), statement.data(), static_cast<int>(statement.size()),
                                        SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
    if (code != SQLITE_OK) {
        return errorOf(connection_.get());
    }
    return Statement(prepared);
}

Result<std::int64_t> Database::number(std::string_view statement) {
    Result<Statement> prepared = prepare(statement);
    if (!prepared) {
        return prepared.error();
    }
    Result<bool> row = prepared->step();
    if (!row) {
        return row.error();
    }
    return *row ? prepared->integer(0) : 0;
}

Status Database::checkpoint() {
    const Result<std::int64_t> isBusy = number("PRAGMA wal_checkpoint(TRUNCATE)");
    if (!isBusy) {
        return isBusy.error();
    }
    return *isBusy == 0 ? Status() : Status(Error(kStoreErrorDomain, SQLITE_BUSY, "the journal is being read"));
}

Status Database::makeRoomInJournal(std::int64_t length) {
    // Nobody else writes to the journal while the transaction is open; it changes nothing itself.
    const Result<Transaction> alone = Transaction::begin(*this);
    if (!alone) {
        return alone.error();
    }
    sqlite3_file* journal = nullptr;
    sqlite3_file_control(connection_.get(), "main", SQLITE_FCNTL_JOURNAL_POINTER, static_cast<void*>(&journal));
    if (journal == nullptr || journal->pMethods == nullptr) {
        return errorOf(connection_.get());
    }
    const std::vector<std::uint8_t> zeros(std::size_t{64} << 10);
    sqlite3_int64 end = 0;
    int code = journal->pMethods->xFileSize(journal, &end);
    while (code == SQLITE_OK && end < length) {
        const auto piece = static_cast<int>(std::min<std::int64_t>(length - end, std::ssize(zeros)));
        code = journal->pMethods->xWrite(journal, zeros.data(), piece, end);
        end += piece;
    }
    return code == SQLITE_OK ? Status() : Status(Error(kStoreErrorDomain, code, sqlite3_errstr(code)));
}

void Database::leaveUntouched() {
    sqlite3_db_config(connection_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

/// Runs a statement that is kept, and prepares it when it is not there yet.
Status Database::run(std::optional<Statement>& kept, std::string_view statement) {
    if (!kept) {
        Result<Statement> prepared = prepare(statement);
        if (!prepared) {
            return prepared.error();
        }
        kept = *std::move(prepared);
    }
    return kept->run();
}

Result<Transaction> Transaction::begin(Database& database) {
    if (Status begun = database.run(database.begin_, "BEGIN IMMEDIATE"); !begun) {
        return begun.error();
    }
    return Transaction(database);
}

Status Transaction::commit() {
    Status done = database_->run(database_->commit_, "COMMIT");
    if (done) {
        database_ = nullptr;
    }
    return done;
}

Transaction::~Transaction() {
    if (database_ != nullptr) {
        // After some failures the library has rolled back by itself, and this is an error that says nothing new.
        static_cast<void>(database_->execute("ROLLBACK"));
    }
}

}  // namespace ksw::servers
