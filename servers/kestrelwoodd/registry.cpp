#include "servers/kestrelwoodd/registry.h"

#include <algorithm>
#include <iterator>

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

bool Registry::isUpToDate(const KSWItem& record, const KSWItem& facts, const ItemPointer& application) {
    return haveSameFacts(record, facts) && isInItsPlace(record, facts, application);
}

Outcome Registry::after(Outcome told, Outcome outcome) {
    std::move(outcome.changes.begin(), outcome.changes.end(), std::back_inserter(told.changes));
    std::move(outcome.replaced.begin(), outcome.replaced.end(), std::back_inserter(told.replaced));
    told.code = outcome.code;
    told.item = std::move(outcome.item);
    return told;
}

Status Registry::settle(Uid uid, const ItemPointer& application, Outcome& told) {
    const Found found = application == nullptr ? Found() : index_.find(uid, *application->identifier());
    if (found.item == nullptr || !isOfKind(*found.item, *application) ||
        isUpToDate(*found.item, *application, nullptr)) {
        return {};
    }
    Edit edit;
    told = after(std::move(told), takeFactsAnew(edit, uid, found.item, application, nullptr));
    return told.code == KSWErrorNone ? Status() : Status(KSWErrorWithCode(told.code));
}

Outcome Registry::enter(Uid uid, const ItemPointer& item, const ItemPointer& application) {
    const std::lock_guard one(writing_);
    keepManagedType(uid, *item);
    Edit edit;
    Outcome told;
    if (const Status settled = settle(uid, application, told); !settled) {
        return {settled.error().code()};
    }
    const Found current = index_.find(uid, *item->identifier());
    if (current.isDamaged) {
        return after(std::move(told), {KSWErrorGeneric});
    }
    if (current.item == nullptr) {
        const Result<Place> place = placeFor(uid, *item, application);
        if (!place) {
            return after(std::move(told), {place.error().code()});
        }
        item->setUuid(UUID::random());
        item->setDisposition(initialDisposition(item->type(), place->voucherFor(*item), history_));
        return after(std::move(told), add(edit, uid, item, *place));
    }
    if (!isOfKind(*current.item, *item)) {
        return after(std::move(told), {KSWErrorInvalidParameter});
    }
    if (isUpToDate(*current.item, *item, application)) {
        return after(std::move(told), {KSWErrorRecordExists, current.item});
    }
    Outcome updated = takeFactsAnew(edit, uid, current.item, item, application);
    updated.code = updated.code == KSWErrorNone ? KSWErrorRecordUpdated : updated.code;
    return after(std::move(told), std::move(updated));
}

Outcome Registry::refresh(Uid uid, const ItemPointer& item, const ItemPointer& application) {
    const std::lock_guard one(writing_);
    keepManagedType(uid, *item);
    Edit edit;
    Found current = index_.find(uid, *item->identifier());
    if (current.isDamaged) {
        return {KSWErrorGeneric};
    }
    if (current.item == nullptr || !isOfKind(*current.item, *item)) {
        return {KSWErrorRecordNotFound};
    }
    Outcome told;
    if (const Status settled = settle(uid, application, told); !settled) {
        return {settled.error().code()};
    }
    // It may stand in another family by now.
    current = index_.find(uid, *item->identifier());
    if (isUpToDate(*current.item, *item, application)) {
        return after(std::move(told), {KSWErrorNone, current.item});
    }
    return after(std::move(told), takeFactsAnew(edit, uid, current.item, item, application));
}

Outcome Registry::insert(Uid uid, const ItemPointer& item, Reach reach, const ItemPointer& application) {
    const std::lock_guard one(writing_);
    const Found current = index_.find(uid, *item->identifier());
    if (current.isDamaged) {
        return {KSWErrorGeneric};
    }
    if (current.item != nullptr) {
        return nameExisting(uid, current.item, *item);
    }
    if (index_.hasRecord(*item->uuid())) {
        return {KSWErrorInvalidParameter};
    }
    Outcome told;
    if (const Status settled = settle(uid, application, told); !settled) {
        return {settled.error().code()};
    }
    const Result<Place> place = placeFor(uid, *item, application);
    if (!place) {
        return after(std::move(told), {place.error().code()});
    }
    holdBack(*item, nullptr, reach);
    Edit edit;
    return after(std::move(told), add(edit, uid, item, *place));
}

Outcome Registry::nameExisting(Uid uid, const ItemPointer& record, const KSWItem& given) {
    Outcome outcome{KSWErrorRecordExists, record};
    if ((record->flags() & kContainsOnly) == 0 || !isOfKind(*record, given)) {
        return outcome;
    }
    const ItemPointer named = copyOfRecord(*record);
    restoreChoice(uid, *named);
    named->setFlags(named->flags() & ~kContainsOnly);
    named->setGeneration(nextGeneration(record->generation()));
    Edit edit;
    Outcome replaced = replace(edit, {{uid, record, named}});
    if (replaced.code == KSWErrorNone) {
        replaced.code = KSWErrorRecordExists;
        replaced.item = index_.find(uid, *named->identifier()).item;
    }
    return replaced;
}

void Registry::holdBack(KSWItem& item, const KSWItem* former, Reach reach) const {
    const bool wasAllowed = former != nullptr && former->isAllowed();
    if (history_ == History::Lost && reach == Reach::Own && !wasAllowed) {
        item.setDisposition(item.disposition() & ~KSWDispositionAllowed);
    }
}

Outcome Registry::add(Edit& edit, Uid uid, const ItemPointer& item, const Place& place) {
    item->setGeneration(0);
    forbidWith(uid, place.developer.get(), *item);
    nameUser(edit, uid);
    if (!hang(edit, uid, item, place)) {
        return {KSWErrorInvalidParameter};
    }
    Outcome outcome = commit(edit);
    if (outcome.code == KSWErrorNone) {
        outcome.item = index_.find(uid, *item->identifier()).item;
    }
    return outcome;
}

Outcome Registry::takeFactsAnew(Edit& edit, Uid uid, const ItemPointer& current, const ItemPointer& item,
                                const ItemPointer& application) {
    const ItemPointer updated = copyOfRecord(*current);
    restoreChoice(uid, *updated);
    takeFacts(*updated, *item);
    updated->setGeneration(nextGeneration(current->generation()));
    Outcome outcome = change(edit, uid, current, updated, application);
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
