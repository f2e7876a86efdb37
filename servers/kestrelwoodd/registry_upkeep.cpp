// What goes without anybody asking for the single record: what has no file any more, and everything.
#include <algorithm>
#include <map>

#include <kestrelwood/KSWErrors.h>

#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

namespace {

/// What goes of one family.
struct Loss {
    Uid uid = 0;
    ItemPointer root;
    FamilyEdit edit{};
    std::vector<std::pair<std::string, UUID>> dropped{};
};

bool isDeveloper(const KSWItem& item) {
    return item.intersectsType(KSWItemTypeDeveloper);
}

}  // namespace

Outcome Registry::removeGone(const std::vector<std::pair<Uid, ItemPointer>>& gone) {
    const std::lock_guard one(writing_);
    const Managed::Pointer managed = this->managed();
    std::map<const KSWItem*, Loss> losses;
    Edit edit;
    const auto lose = [&](Uid uid, const ItemPointer& record) {
        const ItemPointer root = rootOf(record);
        Loss& loss = losses.try_emplace(root.get(), Loss{uid, root}).first->second;
        loss.edit.replaced.emplace(*record->identifier(), nullptr);
        loss.dropped.emplace_back(*record->identifier(), *record->uuid());
        edit.remove(uid, *record->identifier(), record->type());
    };
    const auto isLost = [&losses](const ItemPointer& root, const ItemPointer& item) {
        const auto loss = losses.find(root.get());
        return loss != losses.end() && loss->second.edit.replaced.contains(*item->identifier());
    };
    const auto isLeftAlone = [&isLost](const ItemPointer& container) {
        const ItemSet::Pointer& items = container->embeddedItems();
        const ItemPointer root = rootOf(container);
        return items == nullptr || std::all_of(items->begin(), items->end(),
                                               [&](const ItemPointer& item) { return isLost(root, item); });
    };
    // An application goes after what it contains.
    for (const bool isContainerWanted : {false, true}) {
        for (const auto& [uid, record] : gone) {
            const bool isContainer = record->countOfEmbeddedItems() > 0;
            const bool isAsItWas = index_.find(uid, *record->identifier()).item.get() == record.get();
            if (isContainer == isContainerWanted && isAsItWas && isLeftAlone(record) &&
                !managed->isJob(uid, *record->identifier())) {
                lose(uid, record);
            }
        }
    }
    for (const auto& [uid, name] : index_.users()) {
        const std::vector<ItemPointer> records = index_.own(uid);
        for (const bool isDeveloperWanted : {false, true}) {
            for (const ItemPointer& container : records) {
                if (isDeveloper(*container) == isDeveloperWanted && isLeftAlone(container) &&
                    !isLost(rootOf(container), container) && !isKept(uid, *container, std::string())) {
                    lose(uid, container);
                }
            }
        }
    }
    if (losses.empty()) {
        return {KSWErrorNone};
    }
    for (auto& [root, loss] : losses) {
        const bool isRootLost = loss.edit.replaced.contains(*loss.root->identifier());
        edit.publications.push_back(
            {loss.uid, isRootLost ? nullptr : rebuilt(*loss.root, loss.edit), std::move(loss.dropped)});
    }
    return commit(edit);
}

Outcome Registry::erase() {
    const std::lock_guard one(writing_);
    Result<Managed::Pointer> nothing = Managed::of({}, {});
    Edit edit;
    edit.change.erasesAll = true;
    edit.managed = *std::move(nothing);
    Outcome outcome = commit(edit);
    if (outcome.code == KSWErrorNone) {
        shares_.clear();
        settings_.clear();
        index_.clear();
        outcome.changes.push_back({kEveryUser, KSWItemTypeAll});
    }
    return outcome;
}

}  // namespace ksw::daemon
