#include "servers/kestrelwoodd/registry.h"

#include "servers/kestrelwoodd/item_facts.h"
#include "servers/kestrelwoodd/user_names.h"

#include <kestrelwood/KSWErrors.h>

namespace ksw::daemon {

namespace {

bool isOfKind(const KSWItem& item, const KSWItem& other) {
    return ((item.type() ^ other.type()) & KSWItemTypeAll) == 0;
}

}  // namespace

KSWDisposition initialDisposition(KSWItemType type, const KSWItem* container, History history) {
    constexpr KSWDisposition kBoth = KSWDispositionEnabled | KSWDispositionAllowed;
    if (history == History::Lost) {
        return KSWDispositionEnabled;
    }
    if ((type & KSWItemTypeDaemon) == 0) {
        return kBoth;
    }
    const bool isVouchedFor = container != nullptr && !container->isUnknownDeveloperRecord() &&
                              container->containsDaemon() && container->isAggregateAllowed();
    return isVouchedFor ? kBoth : KSWDispositionEnabled;
}

bool Registry::isUpToDate(const KSWItem& record, const KSWItem& facts) {
    return haveSameFacts(record, facts) && isInItsPlace(record, facts);
}

Outcome Registry::enter(Uid uid, const ItemPointer& item) {
    const std::lock_guard one(writing_);
    const Found current = index_.find(uid, *item->identifier());
    if (current.isDamaged) {
        return {KSWErrorGeneric};
    }
    if (current.item == nullptr) {
        const Result<ItemPointer> developer = developerFor(uid, *item);
        if (!developer) {
            return {developer.error().code()};
        }
        item->setUuid(UUID::random());
        item->setDisposition(initialDisposition(item->type(), developer->get(), history_));
        return add(uid, item, *developer);
    }
    if (!isOfKind(*current.item, *item)) {
        return {KSWErrorInvalidParameter};
    }
    if (isUpToDate(*current.item, *item)) {
        return {KSWErrorRecordExists, current.item};
    }
    Outcome updated = takeFactsAnew(uid, current.item, item);
    updated.code = updated.code == KSWErrorNone ? KSWErrorRecordUpdated : updated.code;
    return updated;
}

Outcome Registry::refresh(Uid uid, const ItemPointer& item) {
    const std::lock_guard one(writing_);
    const Found current = index_.find(uid, *item->identifier());
    if (current.isDamaged) {
        return {KSWErrorGeneric};
    }
    if (current.item == nullptr || !isOfKind(*current.item, *item)) {
        return {KSWErrorRecordNotFound};
    }
    if (isUpToDate(*current.item, *item)) {
        return {KSWErrorNone, current.item};
    }
    return takeFactsAnew(uid, current.item, item);
}

Outcome Registry::insert(Uid uid, const ItemPointer& item, Reach reach) {
    const std::lock_guard one(writing_);
    const Found current = index_.find(uid, *item->identifier());
    if (current.isDamaged) {
        return {KSWErrorGeneric};
    }
    if (current.item != nullptr) {
        return {KSWErrorRecordExists, current.item};
    }
    if (index_.hasRecord(*item->uuid())) {
        return {KSWErrorInvalidParameter};
    }
    const Result<ItemPointer> developer = developerFor(uid, *item);
    if (!developer) {
        return {developer.error().code()};
    }
    holdBack(*item, nullptr, reach);
    return add(uid, item, *developer);
}

void Registry::holdBack(KSWItem& item, const KSWItem* former, Reach reach) const {
    const bool wasAllowed = former != nullptr && former->isAllowed();
    if (history_ == History::Lost && reach == Reach::Own && !wasAllowed) {
        item.setDisposition(item.disposition() & ~KSWDispositionAllowed);
    }
}

Outcome Registry::add(Uid uid, const ItemPointer& item, const ItemPointer& developer) {
    item->setGeneration(0);
    Edit edit;
    nameUser(edit, uid);
    if (!hang(edit, uid, item, developer)) {
        return {KSWErrorInvalidParameter};
    }
    Outcome outcome = commit(edit);
    if (outcome.code == KSWErrorNone) {
        outcome.item = index_.find(uid, *item->identifier()).item;
    }
    return outcome;
}

Outcome Registry::takeFactsAnew(Uid uid, const ItemPointer& current, const ItemPointer& item) {
    const ItemPointer updated = copyOfRecord(*current);
    takeFacts(*updated, *item);
    updated->setGeneration(nextGeneration(current->generation()));
    Outcome outcome =
        isInItsPlace(*current, *updated) ? replace({{uid, current, updated}}) : move(uid, current, updated);
    if (outcome.code == KSWErrorNone) {
        outcome.item = index_.find(uid, *updated->identifier()).item;
    }
    return outcome;
}

void Registry::nameUser(Edit& edit, Uid uid) const {
    if (!index_.userIdentifier(uid)) {
        edit.change.users.push_back({uid, userIdentifierFor(uid)});
    }
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
