#include "servers/kestrelwoodagent/login_items.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "agent/values/login_item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "platform/facts/bookmark_blob.h"
#include "servers/common/set_aside.h"
#include "servers/kestrelwoodagent/errors.h"
#include "servers/kestrelwoodagent/log.h"

namespace ksw::agentserver {

namespace {

using Item = LoginItems::Item;

Status check(const Item& item) {
    if (item == nullptr || !item->identifier()) {
        return wrongParameter("no login item");
    }
    if (!item->bookmark() || !facts::readBookmark(*item->bookmark())) {
        return wrongParameter("a login item without a bookmark");
    }
    const KSWLoginItem::Bookmark& installer = item->installerBookmark();
    if (item->bookmark()->size() > limits::kBookmarkMax ||
        (installer && installer->size() > limits::kBookmarkMax)) {
        return wrongParameter("a login item with a bookmark of more than 65536 bytes");
    }
    return {};
}

bool saysTheSame(const KSWLoginItem& item, const KSWLoginItem& other) {
    return item.isIdenticalToLoginItem(&other) && item.type() == other.type() &&
           item.installerBookmark() == other.installerBookmark();
}

Result<Item> itemOf(const LoginItemRow& row) {
    archive::DecodeBudget budget(row.record.size());
    auto decoded =
        archive::unarchive<KSWLoginItem>(row.record, {.coder = archive::Coder::ServiceConnection}, budget);
    if (!decoded) {
        return decoded.error();
    }
    if (Status checked = check(decoded->root); !checked) {
        return checked.error();
    }
    if (decoded->root->identifier() != row.identifier) {
        return Error(FormatError::Malformed, "another item's identifier");
    }
    return decoded->root;
}

}  // namespace

Result<std::unique_ptr<LoginItems>> LoginItems::load(LoginItemStore store) {
    std::unique_ptr<LoginItems> items(new LoginItems(std::move(store)));
    Status read = items->store_.read(
        [&](std::int64_t position, const std::optional<LoginItemRow>& row) { items->take(position, row); });
    if (!read) {
        return read.error();
    }
    return items;
}

void LoginItems::take(std::int64_t position, const std::optional<LoginItemRow>& row) {
    nextPosition_ = std::max(nextPosition_, position + 1);
    Result<Item> item = row ? itemOf(*row) : Result<Item>(Error(FormatError::Malformed, "no row of a login item"));
    if (item && entries_.size() == limits::kLoginItemsMax) {
        item = Error(FormatError::LimitPassed, "more than 1024 login items");
    }
    if (item) {
        entries_.push_back({position, row->record.size(), *std::move(item)});
    } else {
        logError("the login item at position " + std::to_string(position) +
                 " is left out: " + std::string(item.error().localizedDescription()));
    }
}

std::vector<Item> LoginItems::matching(KSWItemType mask) const {
    const std::lock_guard lock(mutex_);
    std::vector<Item> found;
    for (const Entry& entry : entries_) {
        if ((entry.item->type() & mask) != 0) {
            found.push_back(entry.item);
        }
    }
    return found;
}

/// Puts an item behind the others.
Status LoginItems::append(Entries& entries, LoginItemChange& change, std::int64_t position,
                          const Item& item) const {
    Result<Data> record = archive::archive(*item, archive::Coder::ServiceConnection);
    if (!record) {
        return record.error();
    }
    std::size_t bytes = record->size();
    for (const Entry& entry : entries) {
        bytes += entry.size;
    }
    if (entries.size() >= limits::kLoginItemsMax || bytes > limits::kRecordBytesPerUidMax) {
        return Error(kPosixErrorDomain, EDQUOT, "a user has 1024 login items of 32 MiB at most");
    }
    entries.push_back({position, record->size(), item});
    change.put.push_back({position, *item->identifier(), *std::move(record)});
    return {};
}

Result<Outcome> LoginItems::commit(Entries entries, const LoginItemChange& change) {
    if (change.isEmpty()) {
        return Outcome::AsBefore;
    }
    if (Status applied = store_.apply(change); !applied) {
        logError(applied.error().localizedDescription());
        return applied.error();
    }
    for (const LoginItemRow& row : change.put) {
        nextPosition_ = std::max(nextPosition_, row.position + 1);
    }
    entries_ = std::move(entries);
    return Outcome::Changed;
}

Result<Outcome> LoginItems::add(const Item& item) {
    if (Status checked = check(item); !checked) {
        return checked.error();
    }
    const std::lock_guard lock(mutex_);
    LoginItemChange change;
    Entries entries;
    std::optional<std::int64_t> place;
    for (const Entry& entry : entries_) {
        if (!entry.item->isEqualToLoginItem(item)) {
            entries.push_back(entry);
        } else if (saysTheSame(*entry.item, *item)) {
            return Outcome::AsBefore;
        } else {
            change.removed.push_back(*entry.item->identifier());
            place = place.value_or(entry.position);
        }
    }
    if (Status appended = append(entries, change, place.value_or(nextPosition_), item); !appended) {
        return appended.error();
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry& left, const Entry& right) { return left.position < right.position; });
    return commit(std::move(entries), change);
}

Result<Outcome> LoginItems::remove(const Item& item) {
    if (item == nullptr) {
        return wrongParameter("no login item");
    }
    const std::lock_guard lock(mutex_);
    const bool isKnown = std::any_of(entries_.begin(), entries_.end(), [&](const Entry& entry) {
        return entry.item->identifier() == item->identifier();
    });
    LoginItemChange change;
    Entries entries;
    for (const Entry& entry : entries_) {
        if (isKnown ? entry.item->identifier() == item->identifier() : entry.item->isEqualToLoginItem(item)) {
            change.removed.push_back(*entry.item->identifier());
        } else {
            entries.push_back(entry);
        }
    }
    if (change.removed.empty()) {
        return noSuchItem();
    }
    return commit(std::move(entries), change);
}

Result<Outcome> LoginItems::import(const std::vector<Item>& items) {
    const std::lock_guard lock(mutex_);
    LoginItemChange change;
    Entries entries = entries_;
    std::int64_t position = nextPosition_;
    for (const Item& item : items) {
        if (Status checked = check(item); !checked) {
            return checked.error();
        }
        const bool isThere = std::any_of(entries.begin(), entries.end(),
                                         [&](const Entry& entry) { return entry.item->isEqualToLoginItem(item); });
        if (isThere) {
            continue;
        }
        if (Status appended = append(entries, change, position++, item); !appended) {
            return appended.error();
        }
    }
    return commit(std::move(entries), change);
}

Status LoginItems::checkpoint() {
    const std::lock_guard lock(mutex_);
    return store_.checkpoint();
}

namespace {

Result<std::unique_ptr<LoginItems>> openOnce(const std::string& path) {
    Result<LoginItemStore> store = LoginItemStore::open(path);
    return store ? LoginItems::load(*std::move(store)) : store.error();
}

}  // namespace

Result<std::unique_ptr<LoginItems>> openLoginItems(const std::string& path, std::optional<std::string>& loss) {
    Result<std::unique_ptr<LoginItems>> items = openOnce(path);
    if (items || !servers::saysDamaged(items.error())) {
        return items;
    }
    const Result<std::string> folder = servers::setAside(path);
    if (!folder) {
        return folder.error();
    }
    loss = std::string(items.error().localizedDescription()) + "; it was set aside in " + *folder +
           ", and the login items in it are lost";
    logError(*loss);
    return openOnce(path);
}

}  // namespace ksw::agentserver
