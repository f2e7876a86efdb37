// Under whom items hang: the record of each developer, and how items come under it and away from it.
#include <algorithm>

#include <kestrelwood/KSWErrors.h>

#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

namespace {

bool isDeveloper(const KSWItem& item) {
    return item.intersectsType(KSWItemTypeDeveloper);
}

/// Whether it is shown as allowed, by its family alone.
bool isShownAllowed(const KSWItem& item) {
    constexpr KSWItemType kJudgedByItself = KSWItemTypeLodestar | KSWItemTypeShelfTile | KSWItemTypeInputMethod |
                                            KSWItemTypeSmartCard | KSWItemTypeColorPicker | KSWItemTypeGlimpse;
    const ItemPointer container = item.container();
    const bool isJudgedAlone =
        item.intersectsType(kJudgedByItself) || container == nullptr || container->isUnknownDeveloperRecord();
    return isJudgedAlone ? item.isAllowed() : container->isAllowed() && container->isAggregateAllowed();
}

/// What an item starts with under another developer: as a new one, but that nothing comes back that was disabled or
/// not allowed, or new code would be the way around it.
KSWDisposition dispositionUnder(const KSWItem* developer, const KSWItem& record, History history) {
    KSWDisposition disposition = initialDisposition(record.type(), developer, history);
    if (!record.isEnabled()) {
        disposition &= ~KSWDispositionEnabled;
    }
    if (!isShownAllowed(record)) {
        disposition &= ~KSWDispositionAllowed;
    }
    return disposition;
}

}  // namespace

ItemPointer newUnknownDeveloper(const UUID& uuid) {
    ItemPointer developer = bareItem(KSWItemTypeDeveloper, std::string(kUnknownDeveloper));
    developer->setUuid(uuid);
    developer->setDisposition(KSWDispositionAllowed);
    return developer;
}

std::string developerIdentifierOf(const KSWItem& item) {
    return item.isUnknownDeveloper() ? std::string(kUnknownDeveloper) : item.developerName();
}

ItemPointer newDeveloperOf(const KSWItem& item, const UUID& uuid) {
    ItemPointer developer = newUnknownDeveloper(uuid);
    developer->setFlags(item.flags() & (KSWItemFlagManaged | KSWItemFlagCurated));
    if (!item.isUnknownDeveloper()) {
        developer->setIdentifier(item.developerName());
        developer->setName(item.developerName());
        developer->setDeveloperName(item.developerName());
    }
    return developer;
}

Result<ItemPointer> Registry::developerFor(Uid uid, const KSWItem& item) const {
    Found found = index_.find(uid, developerIdentifierOf(item));
    const bool isUsable = found.item == nullptr || (isDeveloper(*found.item) && found.item->container() == nullptr);
    if (found.isDamaged || !isUsable) {
        return KSWErrorWithCode(KSWErrorGeneric);
    }
    return std::move(found.item);
}

Result<ItemPointer> Registry::asIfEntered(Uid uid, const ItemPointer& item) const {
    const Result<ItemPointer> developer = developerFor(uid, *item);
    if (!developer) {
        return developer.error();
    }
    item->setDisposition(initialDisposition(item->type(), developer->get(), history_));
    // Under the unknown developer each item is judged alone, so the others there are not wanted.
    if (*developer != nullptr && !item->isUnknownDeveloper()) {
        return ItemPointer(rebuilt(**developer, {{}, item}), item.get());
    }
    const ItemPointer newDeveloper = newDeveloperOf(*item, UUID{});
    item->setContainer(newDeveloper);
    return ItemPointer(newDeveloper, item.get());
}

bool Registry::isInItsPlace(const KSWItem& record, const KSWItem& facts) {
    const ItemPointer container = record.container();
    return container == nullptr || !isDeveloper(*container) ||
           container->identifier() == developerIdentifierOf(facts);
}

bool Registry::hang(Edit& edit, Uid uid, const ItemPointer& item, const ItemPointer& developer) {
    const ItemPointer root =
        rebuilt(developer == nullptr ? *newDeveloperOf(*item, UUID::random()) : *developer, {{}, item});
    if ((developer == nullptr && !edit.put(uid, *root)) || !edit.put(uid, *item)) {
        return false;
    }
    edit.publications.push_back({uid, root, {}});
    return true;
}

void Registry::takeOut(Edit& edit, Uid uid, const std::string& identifier, const ItemPointer& record) const {
    RecordIndex::Publication publication{uid, nullptr, {}};
    const ItemPointer emptied = emptiedDeveloper(uid, identifier, record);
    const ItemPointer root = record == nullptr ? nullptr : rootOf(record);
    if (root != nullptr && root.get() != record.get() && root.get() != emptied.get()) {
        publication.root = rebuilt(*root, {{{identifier, nullptr}}, nullptr});
    }
    if (emptied != nullptr) {
        edit.remove(uid, *emptied->identifier(), emptied->type());
        publication.dropped.emplace_back(*emptied->identifier(), *emptied->uuid());
    }
    edit.publications.push_back(std::move(publication));
}

Outcome Registry::move(Uid uid, const ItemPointer& current, const ItemPointer& updated) {
    const Result<ItemPointer> developer = developerFor(uid, *updated);
    if (!developer) {
        return {developer.error().code()};
    }
    KSWDisposition disposition = dispositionUnder(developer->get(), *current, history_);
    if (!updated->isEnabled()) {
        disposition &= ~KSWDispositionEnabled;
    }
    if (current->isAllowed() && !updated->isAllowed()) {
        disposition &= ~KSWDispositionAllowed;
    }
    updated->setDisposition(disposition);
    const std::string& identifier = *current->identifier();
    Edit edit;
    takeOut(edit, uid, identifier, current);
    // The item comes with all that hangs below it.
    if (!hang(edit, uid, rebuilt(*current, {{{identifier, updated}}, nullptr}), *developer)) {
        return {KSWErrorInvalidParameter};
    }
    return commit(edit);
}

ItemPointer Registry::emptiedDeveloper(Uid uid, const std::string& identifier, const ItemPointer& record) const {
    ItemPointer developer = record == nullptr ? index_.find(uid, kUnknownDeveloper).item : record->container();
    if (developer == nullptr || !isDeveloper(*developer) || identifier == developer->identifier()) {
        return nullptr;
    }
    // A damaged record may hang under the unknown developer. One who is forbidden stays so for what comes later.
    const bool isKept =
        developer->isUnknownDeveloperRecord() ? index_.hasDamagedBeside(uid, identifier) : !developer->isAllowed();
    const ItemSet& items = *developer->embeddedItems();
    const bool isEmptied = std::all_of(items.begin(), items.end(), [&identifier](const ItemPointer& item) {
        return item->identifier() == identifier;
    });
    return isEmptied && !isKept ? developer : nullptr;
}

}  // namespace ksw::daemon
