// store.h: what the daemon keeps on disk: one database file, one writer.
// Knows rows, not items: what a record's bytes mean is decided above.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/values.h>

#include "servers/common/sqlite.h"
#include "servers/kestrelwoodd/tables.h"

namespace ksw::daemon {

/// What an item's user chose before a managed rule stood above it.
struct OwnChoice {
    std::uint64_t disposition = 0;
    std::uint64_t flags = 0;

    friend bool operator==(const OwnChoice&, const OwnChoice&) = default;
};

/// One item of one user.
struct ItemRow {
    Uid uid = 0;
    UUID uuid{};
    std::string identifier;
    std::uint64_t type = 0;
    std::uint64_t flags = 0;
    std::uint64_t disposition = 0;
    std::int64_t generation = 0;
    std::optional<UUID> container;
    Data record;                        ///< The item's archive, at most `limits::kRecordMax` bytes.
    std::optional<OwnChoice> choice{};  ///< Absent: no rule stands above it.
};

/// A row as it was found: never trusted.
struct StoredItem {
    ItemRow row;  ///< Of a row that is not readable, as much as could be read.
    bool readable = true;
};

/// A job that is managed.
struct JobRow {
    std::string path;
    std::string label;
    Data job;  ///< What the daemon has to know of it.
};

/// What one transaction does: all that was there goes first, when that is wanted; then users come, items are put,
/// items are removed, and the rest is done.
struct Change {
    struct User {
        Uid uid = 0;
        std::string identifier;
    };
    struct Removal {
        Uid uid = 0;
        std::string identifier;
    };
    std::vector<User> users;
    std::vector<ItemRow> put;  ///< New, or in place of the row with the same uid and UUID.
    std::vector<Removal> removed;

    struct Settings {
        Uid uid = 0;
        Data record;
    };
    struct Payload {
        std::string identifier;
        std::optional<Data> payload;  ///< Absent: it is removed.
    };
    std::vector<Settings> settings{};
    std::vector<Payload> payloads{};
    std::vector<JobRow> jobs{};              ///< New, or in place of the one with the same path.
    std::vector<std::string> removedJobs{};  ///< By path.
    std::optional<bool> alwaysPosts{};
    bool erasesAll = false;
};

/// The open store. Not for several threads at once: the one writer calls it. Every operation may block on the disk.
class Store {
public:
    /// Opens the store in the file at `path`, makes it when there is none. Refused: what `openWithSchema` refuses.
    static Result<Store> open(const std::string& path, std::int64_t pagesMax = kStorePagesMax);

    /// Hands out every user, then every item, in the order in which they were first put.
    Status readUsers(const std::function<void(Uid, std::string_view)>& user);
    Status readItems(const std::function<void(StoredItem)>& item);

    // What is kept beside items, row by row; what cannot be read is handed out empty.
    Status readSettings(const std::function<void(Uid, Bytes)>& settings);
    Status readPayloads(const std::function<void(std::string_view, Bytes)>& payload);
    Status readJobs(const std::function<void(JobRow)>& job);
    Result<bool> readAlwaysPosts();

    /// Carries out a change: when it answers success it is on disk, else nothing of it is, and a later change may
    /// succeed. Only if the disk takes nothing any more may a change that failed be there at the next start.
    Status apply(const Change& change);

    /// Moves the journal into the database file.
    Status checkpoint();

    /// Makes the journal as long as it grows between two times that it is moved into the file, so that no commit
    /// has to wait for its growing. Error: the disk does not take it, and commits make it longer as they need it.
    Status makeRoomInJournal();

private:
    Store(servers::Database database, servers::Statement putUser, servers::Statement changeItem,
          servers::Statement putItem, servers::Statement removeItem)
        : database_(std::move(database)),
          putUser_(std::move(putUser)),
          changeItem_(std::move(changeItem)),
          putItem_(std::move(putItem)),
          removeItem_(std::move(removeItem)) {}

    Status carryOut(const Change& change);
    Status put(const ItemRow& row);
    Status run(std::string_view statement, const std::function<void(servers::Statement&)>& bind);
    Status erase();
    Status keep(const Change& change);
    Status readRows(std::string_view statement, const std::function<void(const servers::Statement&)>& row);
    Status checked(const Result<bool>& end);

    servers::Database database_;
    servers::Statement putUser_;
    servers::Statement changeItem_;
    servers::Statement putItem_;
    servers::Statement removeItem_;
};

/// Where the store's file is under the host root's folder of state.
inline constexpr std::string_view kStoreFile = "kestrelwood.db";

}  // namespace ksw::daemon
