// login_items.h: the user's login items: in memory for whoever asks, and on disk before anybody hears of a change.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <kestrelwood/KSWLoginItem.h>
#include <kestrelwood/KSWTypes.h>

#include "platform/base/result.h"
#include "servers/kestrelwoodagent/login_item_store.h"

namespace ksw::agentserver {

/// What has become of a request to change something.
enum class Outcome : std::uint8_t {
    Changed,
    AsBefore,  ///< There was nothing to do.
};

/// The user's login items, each once: no two of them are equal (`KSWLoginItem::isEqualToLoginItem`). An item that
/// was handed out never changes. Any thread; a change blocks on the disk, and others wait for it.
class LoginItems {
public:
    using Item = std::shared_ptr<KSWLoginItem>;

    /// Reads the store. What cannot be read of it is logged and left out. Error: the store's.
    static Result<std::unique_ptr<LoginItems>> load(LoginItemStore store);

    /// The items whose type has a bit of the mask, in the order in which they came.
    std::vector<Item> matching(KSWItemType mask) const;

    /// Adds an item. It takes the place of one that equals it, identifier included, unless that says the same
    /// already. Error: status -50 for what is no login item; EDQUOT when there are too many; the store's.
    Result<Outcome> add(const Item& item);
    /// Removes the item with the same identifier, else those of the same file. Error: there is none (-95); the
    /// store's.
    Result<Outcome> remove(const Item& item);
    /// Adds those that equal none, all of them or none. Errors: as for `add`.
    Result<Outcome> import(const std::vector<Item>& items);

    /// Moves the journal into the database file.
    Status checkpoint();

private:
    /// One item, with its place on disk.
    struct Entry {
        std::int64_t position = 0;
        std::size_t size = 0;  ///< Of its record, in bytes.
        Item item;
    };
    using Entries = std::vector<Entry>;

    explicit LoginItems(LoginItemStore store) : store_(std::move(store)) {}

    void take(std::int64_t position, const std::optional<LoginItemRow>& row);
    Status append(Entries& entries, LoginItemChange& change, std::int64_t position, const Item& item) const;
    Result<Outcome> commit(Entries entries, const LoginItemChange& change);

    mutable std::mutex mutex_;
    LoginItemStore store_;           // guarded by mutex_
    Entries entries_;                // guarded by mutex_
    std::int64_t nextPosition_ = 1;  // guarded by mutex_
};

/// Opens the store at `path` and reads it. A damaged one is set aside, with an error in the log and as `loss`, and
/// a new one is made. Error, and all is left as it is: as `LoginItemStore::open`; it cannot be set aside whole.
Result<std::unique_ptr<LoginItems>> openLoginItems(const std::string& path, std::optional<std::string>& loss);

}  // namespace ksw::agentserver
