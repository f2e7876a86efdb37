// login_item_store.h: the user's login items on disk: one database file, one writer. Knows rows, not items.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <kestrelwood/values/data.h>
#include <kestrelwood/values/uuid.h>

#include "servers/common/schema.h"
#include "servers/common/sqlite.h"

namespace ksw::agentserver {

/// What the store may take of the disk, in pages of 4 KiB: 128 MiB, four times what a user's items may come to.
inline constexpr std::int64_t kStorePagesMax = 32'768;

/// The store's file in the folder of the agent's state.
inline constexpr std::string_view kStoreFile = "loginitems.db";

/// One login item.
struct LoginItemRow {
    std::int64_t position = 0;  ///< Items are listed by ascending positions; each has its own.
    UUID identifier{};
    Data record;  ///< The item's archive.
};

/// What one transaction does: items are removed first, then put.
struct LoginItemChange {
    std::vector<UUID> removed;
    std::vector<LoginItemRow> put;

    bool isEmpty() const { return removed.empty() && put.empty(); }
};

/// The open store. Not for several threads at once. Every operation may block on the disk.
class LoginItemStore {
public:
    /// Opens the store in the file at `path`, makes it when there is none. Error: as `servers::openWithSchema`.
    static Result<LoginItemStore> open(const std::string& path, std::int64_t pagesMax = kStorePagesMax);

    /// Hands out every row by ascending position; absent stands for one that cannot be read.
    Status read(const std::function<void(std::int64_t position, std::optional<LoginItemRow>)>& row);

    /// Carries out a change: when it answers success it is on disk, else nothing of it is, and a later change may
    /// succeed.
    Status apply(const LoginItemChange& change);

    /// Moves the journal into the database file.
    Status checkpoint() { return database_.checkpoint(); }

private:
    LoginItemStore(servers::Database database, servers::Statement put, servers::Statement remove)
        : database_(std::move(database)), put_(std::move(put)), remove_(std::move(remove)) {}
    Status carryOut(const LoginItemChange& change);

    servers::Database database_;
    servers::Statement put_;
    servers::Statement remove_;
};

}  // namespace ksw::agentserver
