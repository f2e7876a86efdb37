// sqlite.h: the database library, as far as the servers' stores need it: a connection, statements, transactions.
// Owns connection and statements; knows no table.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/data.h>

#include "platform/base/result.h"

struct sqlite3;
struct sqlite3_stmt;

namespace ksw::servers {

/// The domain of the database's errors; the codes are the library's extended result codes.
inline constexpr std::string_view kStoreErrorDomain = "KSWStoreErrorDomain";

/// An error about the database at `path`; `code` is one of the library's.
Error databaseError(const std::string& path, int code, std::string_view why);

/// Whether the error says that the file is damaged, or no database at all: what it says cannot be relied on. A disk
/// that answers errors, or is full, says nothing about the file.
bool saysDamaged(const Error& error);

/// Whether the error leaves open how much of a commit has come to the disk.
bool saysUnsettled(const Error& error);

/// A prepared statement. Not for several threads at once. What is bound is copied; parameters and columns
/// count from 1 and 0, as the library has it.
class Statement {
public:
    Statement& bind(int parameter, std::int64_t number);
    Statement& bind(int parameter, std::string_view text);
    Statement& bind(int parameter, Bytes bytes);
    Statement& bindNull(int parameter);

    /// Goes to the next row: true when there is one. Error: what a bind or the database met.
    Result<bool> step();
    /// Runs to the end, rows unread, and makes the statement ready for other parameters.
    Status run();
    /// How many rows the last run has changed; asked before anything else is run.
    std::int64_t changes() const;

    std::int64_t integer(int column) const;
    /// Absent when the column is not of the type, or longer than `lengthMax` bytes. Borrowed until the next step.
    std::optional<std::string_view> text(int column, std::size_t lengthMax) const;
    std::optional<Bytes> bytes(int column, std::size_t lengthMax) const;
    bool isNull(int column) const;

private:
    friend class Database;
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const;
    };
    explicit Statement(sqlite3_stmt* statement) : statement_(statement) {}
    Error error() const;

    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
    int failedBind_ = 0;
};

/// One connection to a database file. Not for several threads at once.
class Database {
public:
    /// Opens the file, makes it (mode by the umask) when there is none. Nothing is read before the first statement.
    static Result<Database> open(const std::string& path);

    /// Runs statements that take no parameters and whose rows do not matter.
    Status execute(const std::string& statements);
    Result<Statement> prepare(std::string_view statement);
    /// The single number that a statement answers with.
    Result<std::int64_t> number(std::string_view statement);
    /// Moves all of the journal into the file, which is synchronised, and empties the journal. Error: also when
    /// somebody reads the database meanwhile.
    Status checkpoint();
    /// Makes the journal at least this long, in bytes, with zeros behind what stands in it: they are no record of
    /// anything, and a commit that overwrites them needs not wait until the file system has recorded that the
    /// journal has grown. Error: the disk does not take it; commits make the journal longer as they need it then.
    Status makeRoomInJournal(std::int64_t length);
    /// Lets the file stand as it is when the connection closes: nothing is moved out of the journal.
    void leaveUntouched();

private:
    friend class Transaction;
    struct Closer {
        void operator()(sqlite3* connection) const;
    };
    explicit Database(sqlite3* connection) : connection_(connection) {}
    Status run(std::optional<Statement>& kept, std::string_view statement);

    std::unique_ptr<sqlite3, Closer> connection_;
    // What every transaction begins and ends with, prepared by the first one.
    std::optional<Statement> begin_;
    std::optional<Statement> commit_;
};

/// Begins a transaction and rolls it back when it is destroyed without a `commit` that succeeded.
class Transaction {
public:
    static Result<Transaction> begin(Database& database);
    /// After success everything since `begin` is on disk.
    Status commit();

    Transaction(Transaction&& other) noexcept : database_(std::exchange(other.database_, nullptr)) {}
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    Transaction& operator=(Transaction&&) = delete;
    ~Transaction();

private:
    explicit Transaction(Database& database) : database_(&database) {}

    Database* database_;
};

}  // namespace ksw::servers
