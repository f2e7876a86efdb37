// Under whom items hang: the record of each developer, and how items come under it and away from it.
#include <algorithm>
#include <iterator>

#include <kestrelwood/KSWErrors.h>

#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

namespace {

bool isDeveloper(const KSWItem& item) {
    return item.intersectsType(KSWItemTypeDeveloper);
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
    ItemPointer developer = KSWItem::developerItemForItem(item);
    developer->setUuid(uuid);
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

bool Registry::isKept(Uid uid, const KSWItem& container, const std::string& identifier) const {
    if (!isDeveloper(container) && (container.flags() & kContainsOnly) == 0) {
        return true;
    }
    // A damaged record may hang under the unknown developer. Who is forbidden stays so for what comes later.
    return container.isUnknownDeveloperRecord()
               ? index_.hasDamagedBeside(uid, identifier)
               : (choiceOf(uid, container).disposition & KSWDispositionAllowed) == 0;
}

bool Registry::goesWith(Uid uid, const KSWItem& container, const std::string& taken,
                        const std::string& identifier) const {
    const ItemSet& items = *container.embeddedItems();
    return !isKept(uid, container, identifier) && identifier != container.identifier() &&
           std::all_of(items.begin(), items.end(),
                       [&taken](const ItemPointer& item) { return item->identifier() == taken; });
}

std::vector<Registry::Replacement> Registry::withApplications(std::vector<Replacement> replacements) const {
    const auto isAmongThem = [&replacements](const KSWItem& item) {
        return std::any_of(replacements.begin(), replacements.end(), [&item](const Replacement& replacement) {
            return replacement.record->uuid() == item.uuid();
        });
    };
    const auto isAllowedByUser = [this](Uid uid, const KSWItem& item) {
        return (choiceOf(uid, item).disposition & KSWDispositionAllowed) != 0;
    };
    std::vector<Replacement> applications;
    for (const Replacement& replacement : replacements) {
        const KSWItem& developer = *replacement.record;
        const bool allowed = replacement.item->isAllowed();
        if (!isDeveloper(developer) || developer.isUnknownDeveloperRecord() ||
            isAllowedByUser(replacement.uid, developer) == allowed) {
            continue;
        }
        for (const ItemPointer& item : *developer.embeddedItems()) {
            if (item->intersectsType(KSWItemTypeApp) && isAllowedByUser(replacement.uid, *item) != allowed &&
                !isAmongThem(*item)) {
                const ItemPointer updated = copyOfRecord(*item);
                restoreChoice(replacement.uid, *updated);
                updated->setAllowed(allowed);
                updated->setGeneration(nextGeneration(item->generation()));
                applications.push_back({replacement.uid, item, updated});
            }
        }
    }
    std::move(applications.begin(), applications.end(), std::back_inserter(replacements));
    return replacements;
}

}  // namespace ksw::daemon
