#include "servers/kestrelwoodd/registry.h"

#include "platform/base/limits.h"
#include "servers/kestrelwoodd/item_facts.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/user_names.h"

#include <kestrelwood/KSWErrors.h>

namespace ksw::daemon {

namespace {

bool isOfKind(const KSWItem& item, const KSWItem& other) {
    return ((item.type() ^ other.type()) & KSWItemTypeAll) == 0;
}

}  // namespace

ItemPointer newUnknownDeveloper(const UUID& uuid) {
    ItemPointer developer = bareItem(KSWItemTypeDeveloper, std::string(kUnknownDeveloper));
    developer->setUuid(uuid);
    developer->setDisposition(KSWDispositionAllowed);
    developer->setGeneration(1);
    return developer;
}

ItemPointer asIfEntered(const ItemPointer& item) {
    const ItemPointer developer = newUnknownDeveloper(UUID{});
    item->setDisposition(initialDisposition(item->type(), developer.get()));
    item->setContainer(developer);
    return ItemPointer(developer, item.get());
}

KSWDisposition initialDisposition(KSWItemType type, const KSWItem* container) {
    constexpr KSWDisposition kBoth = KSWDispositionEnabled | KSWDispositionAllowed;
    if ((type & KSWItemTypeDaemon) == 0) {
        return kBoth;
    }
    const bool isVouchedFor = container != nullptr && !container->isUnknownDeveloperRecord() &&
                              container->containsDaemon() && container->isAggregateAllowed();
    return isVouchedFor ? kBoth : KSWDispositionEnabled;
}

Outcome Registry::enter(Uid uid, const ItemPointer& item) {
    const std::lock_guard one(writing_);
    const Found current = index_.find(uid, *item->identifier());
    if (current.isDamaged) {
        return {KSWErrorGeneric, nullptr};
    }
    if (current.item != nullptr && !isOfKind(*current.item, *item)) {
        return {KSWErrorInvalidParameter, nullptr};
    }
    if (current.item != nullptr && haveSameFacts(*current.item, *item)) {
        return {KSWErrorRecordExists, current.item};
    }
    const bool isNew = current.item == nullptr;
    const std::int64_t code = isNew ? add(uid, item) : update(uid, current.item, item);
    if (code != KSWErrorNone) {
        return {code, nullptr};
    }
    return {isNew ? KSWErrorNone : KSWErrorRecordUpdated, index_.find(uid, *item->identifier()).item};
}

Outcome Registry::refresh(Uid uid, const ItemPointer& item) {
    const std::lock_guard one(writing_);
    const Found current = index_.find(uid, *item->identifier());
    if (current.isDamaged) {
        return {KSWErrorGeneric, nullptr};
    }
    if (current.item == nullptr || !isOfKind(*current.item, *item)) {
        return {KSWErrorRecordNotFound, nullptr};
    }
    if (haveSameFacts(*current.item, *item)) {
        return {KSWErrorNone, current.item};
    }
    const std::int64_t code = update(uid, current.item, item);
    return {code, code == KSWErrorNone ? index_.find(uid, *item->identifier()).item : nullptr};
}

std::int64_t Registry::add(Uid uid, const ItemPointer& item) {
    const ItemPointer former = index_.find(uid, kUnknownDeveloper).item;
    const ItemPointer developer = former == nullptr ? newUnknownDeveloper(UUID::random()) : former;
    item->setUuid(UUID::random());
    item->setDisposition(initialDisposition(item->type(), developer.get()));
    item->setGeneration(1);
    const ItemPointer root = rebuilt(*developer, {*item->identifier(), item});
    Change change;
    if (!index_.userIdentifier(uid)) {
        change.users.push_back({uid, userIdentifierFor(uid)});
    }
    for (const ItemPointer& changed : {root, item}) {
        if (changed == root && former != nullptr) {
            continue;
        }
        Result<ItemRow> row = rowOf(uid, *changed);
        if (!row) {
            return KSWErrorInvalidParameter;
        }
        change.put.push_back(*std::move(row));
    }
    return commit(change, {uid, root, {}});
}

std::int64_t Registry::update(Uid uid, const ItemPointer& current, const ItemPointer& item) {
    const ItemPointer updated = copyOfRecord(*current);
    takeFacts(*updated, *item);
    updated->setGeneration(current->generation() + 1);
    const ItemPointer root = rebuilt(*rootOf(current), {*updated->identifier(), updated});
    Result<ItemRow> row = rowOf(uid, *updated);
    if (!row) {
        return KSWErrorInvalidParameter;
    }
    Change change;
    change.put.push_back(*std::move(row));
    return commit(change, {uid, root, {}});
}

std::int64_t Registry::remove(Uid uid, const std::string& identifier) {
    const std::lock_guard one(writing_);
    const Found current = index_.find(uid, identifier);
    if (current.item == nullptr && !current.isDamaged) {
        return KSWErrorRecordNotFound;
    }
    Change change;
    change.removed.push_back({uid, identifier});
    RecordIndex::Publication publication{uid, nullptr, {}};
    if (current.item != nullptr) {
        publication.dropped.emplace_back(identifier, *current.item->uuid());
        const ItemPointer root = rootOf(current.item);
        // The parent that stands for the unknown developer goes with the last of its items.
        if (root->isUnknownDeveloperRecord() && root->countOfEmbeddedItems() == 1) {
            change.removed.push_back({uid, *root->identifier()});
            publication.dropped.emplace_back(*root->identifier(), *root->uuid());
        } else if (root->uuid() != current.item->uuid()) {
            publication.root = rebuilt(*root, {identifier, nullptr});
        }
    }
    const std::int64_t code = commit(change, publication);
    if (code == KSWErrorNone) {
        index_.forgetDamaged(uid, identifier);
    }
    return code;
}

bool Registry::fits(const Change& change, Uid uid) {
    const Share& share = shares_[uid];
    std::size_t records = share.sizes.size();
    std::size_t bytes = share.bytes;
    for (const ItemRow& row : change.put) {
        const auto former = share.sizes.find(row.identifier);
        records += former == share.sizes.end() ? 1 : 0;
        bytes += row.record.size() - (former == share.sizes.end() ? 0 : former->second);
    }
    return records <= limits::kRecordsPerUidMax && bytes <= limits::kRecordBytesPerUidMax;
}

void Registry::account(const Change& change, Uid uid) {
    Share& share = shares_[uid];
    for (const ItemRow& row : change.put) {
        std::size_t& size = share.sizes[row.identifier];
        share.bytes += row.record.size() - size;
        size = row.record.size();
    }
    for (const Change::Removal& removal : change.removed) {
        if (const auto former = share.sizes.find(removal.identifier); former != share.sizes.end()) {
            share.bytes -= former->second;
            share.sizes.erase(former);
        }
    }
}

std::int64_t Registry::commit(const Change& change, const RecordIndex::Publication& publication) {
    if (!change.put.empty() && !fits(change, publication.uid)) {
        logError("user " + std::to_string(publication.uid) + " has as many records as a user may have");
        return KSWErrorGeneric;
    }
    if (Status done = store_.apply(change); !done) {
        logError(done.error().localizedDescription());
        return KSWErrorGeneric;
    }
    account(change, publication.uid);
    for (const Change::User& user : change.users) {
        index_.nameUser(user.uid, user.identifier);
    }
    index_.publish(publication);
    return KSWErrorNone;
}

std::string Registry::userIdentifierFor(Uid uid) const {
    std::string name = userNameOf(uid);
    return index_.isTaken(name) ? numberedUserName(uid) : name;
}

Status Registry::checkpoint() {
    const std::lock_guard one(writing_);
    return store_.checkpoint();
}

}  // namespace ksw::daemon
