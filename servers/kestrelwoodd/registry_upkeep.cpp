// What goes without anybody asking for the single record: what has no file any more, and everything.
#include <algorithm>
#include <map>

#include <kestrelwood/KSWErrors.h>

#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

namespace {

bool isDeveloper(const KSWItem& item) {
    return item.intersectsType(KSWItemTypeDeveloper);
}

/// The records that go, by the families that they go from.
class Losses {
public:
    struct Loss {
        Uid uid = 0;
        ItemPointer root;
        FamilyEdit edit{};
        std::vector<ItemPointer> records{};

        bool isWhole() const { return edit.replaced.contains(root.get()); }
    };

    void add(Uid uid, const ItemPointer& record) {
        const ItemPointer root = rootOf(record);
        Loss& loss = losses_.try_emplace(root.get(), Loss{uid, root}).first->second;
        loss.edit.replaced.emplace(record.get(), nullptr);
        loss.records.push_back(record);
    }
    bool has(const ItemPointer& record) const {
        const auto loss = losses_.find(rootOf(record).get());
        return loss != losses_.end() && loss->second.edit.replaced.contains(record.get());
    }
    /// Whether all that hangs under the record goes.
    bool haveAllBelow(const KSWItem& record) const {
        const ItemSet::Pointer& items = record.embeddedItems();
        return items == nullptr ||
               std::all_of(items->begin(), items->end(), [this](const ItemPointer& item) { return has(item); });
    }
    const std::map<const KSWItem*, Loss>& all() const { return losses_; }

private:
    std::map<const KSWItem*, Loss> losses_;
};

}  // namespace

Outcome Registry::removeGone(const std::vector<std::pair<Uid, ItemPointer>>& gone) {
    const std::lock_guard one(writing_);
    const Managed::Pointer managed = this->managed();
    Losses losses;
    // An application goes after what it contains.
    for (const bool isContainerWanted : {false, true}) {
        for (const auto& [uid, record] : gone) {
            const bool isContainer = record->countOfEmbeddedItems() > 0;
            const bool isAsItWas = index_.find(uid, *record->identifier()).item.get() == record.get();
            if (isContainer == isContainerWanted && isAsItWas && losses.haveAllBelow(*record) &&
                !managed->isJob(uid, *record->identifier())) {
                losses.add(uid, record);
            }
        }
    }
    for (const bool isDeveloperWanted : {false, true}) {
        for (const auto& [uid, name] : index_.users()) {
            for (const ItemPointer& container : index_.own(uid)) {
                if (isDeveloper(*container) == isDeveloperWanted && losses.haveAllBelow(*container) &&
                    !losses.has(container) && !isKept(uid, *container, std::string())) {
                    losses.add(uid, container);
                }
            }
        }
    }
    Edit edit;
    for (const auto& [root, loss] : losses.all()) {
        RecordIndex::Publication publication{
            loss.uid, loss.isWhole() ? nullptr : rebuilt(*loss.root, loss.edit), {}};
        for (const ItemPointer& record : loss.records) {
            edit.remove(loss.uid, *record->identifier(), record->type());
            publication.dropped.emplace_back(*record->identifier(), *record->uuid());
        }
        edit.publications.push_back(std::move(publication));
    }
    return losses.all().empty() ? Outcome{KSWErrorNone} : commit(edit);
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
        choices_.lock()->clear();
        settings_.clear();
        index_.clear();
        outcome.changes.push_back({kEveryUser, KSWItemTypeAll});
    }
    return outcome;
}

}  // namespace ksw::daemon
