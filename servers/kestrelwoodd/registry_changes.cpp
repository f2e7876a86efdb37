// Changes of records that are there, and how every change is carried out.
#include <algorithm>
#include <utility>

#include <kestrelwood/KSWErrors.h>

#include "platform/base/limits.h"
#include "servers/kestrelwoodd/given_item.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

bool Registry::Edit::put(Uid uid, const KSWItem& item, const std::optional<OwnChoice>& choice) {
    return put(rowOf(uid, item), choice);
}

bool Registry::Edit::put(Result<ItemRow> row, const std::optional<OwnChoice>& choice) {
    if (!row) {
        return false;
    }
    kinds[row->uid] |= row->type & KSWItemTypeAll;
    change.put.push_back(*std::move(row));
    change.put.back().choice = choice;
    return true;
}

void Registry::Edit::remove(Uid uid, const std::string& identifier, KSWItemType kindsGone) {
    change.removed.push_back({uid, identifier});
    kinds[uid] |= kindsGone & KSWItemTypeAll;
}

Outcome Registry::update(Uid uid, const std::vector<GivenUpdate>& updates, Reach reach) {
    const std::lock_guard one(writing_);
    const Result<std::vector<Replacement>> replacements = replacementsFor(uid, updates, reach);
    if (!replacements) {
        return {replacements.error().code()};
    }
    if (replacements->empty()) {
        return {KSWErrorRecordUpdated};
    }
    const bool isInPlace =
        std::all_of(replacements->begin(), replacements->end(), [](const Replacement& replacement) {
            return !replacement.isOfOtherCode || staysWhereItIs(*replacement.record, *replacement.item);
        });
    // Who moves a record to other code does that by itself: together with others it could leave none in its place.
    if (!isInPlace && replacements->size() != 1) {
        return {KSWErrorInvalidParameter};
    }
    const Replacement& first = replacements->front();
    Edit edit;
    Outcome outcome =
        isInPlace ? replace(edit, withApplications(*replacements))
                  : change(edit, first.uid, first.record, first.item, applicationOf(*first.record, *first.item));
    outcome.code = outcome.code == KSWErrorNone ? KSWErrorRecordUpdated : outcome.code;
    return outcome;
}

Result<std::vector<Registry::Replacement>> Registry::replacementsFor(Uid uid,
                                                                     const std::vector<GivenUpdate>& updates,
                                                                     Reach reach) const {
    std::vector<Replacement> replacements;
    replacements.reserve(updates.size());
    std::int64_t missing = KSWErrorNone;
    for (const GivenUpdate& update : updates) {
        const Found found = index_.findOwnOrSystems(uid, *update.item->uuid());
        const bool isThere = found.item != nullptr || found.isDamaged;
        if (isThere && found.uid != uid && reach == Reach::Own) {
            return KSWErrorWithCode(KSWErrorPermissionDenied);
        }
        if (found.item == nullptr) {
            missing = found.isDamaged ? KSWErrorGeneric : KSWErrorRecordNotFound;
        }
        replacements.push_back({found.uid, found.item, nullptr, update.maker.has_value()});
    }
    if (missing != KSWErrorNone) {
        return KSWErrorWithCode(missing);
    }
    for (std::size_t number = 0; number < updates.size(); ++number) {
        Replacement& replacement = replacements[number];
        Result<ItemPointer> updated = updatedRecord(*replacement.record, updates[number]);
        if (!updated) {
            return updated.error();
        }
        takeChoice(replacement.uid, *replacement.record, **updated);
        holdBack(**updated, replacement.record.get(), reach);
        replacement.item = *std::move(updated);
    }
    return replacements;
}

Outcome Registry::replace(Edit& edit, const std::vector<Replacement>& replacements) {
    struct Family {
        Uid uid;
        ItemPointer root;
        FamilyEdit edit{};
    };
    std::map<const KSWItem*, Family> families;
    for (const Replacement& replacement : replacements) {
        const ItemPointer root = rootOf(replacement.record);
        Family& family = families.try_emplace(root.get(), Family{replacement.uid, root}).first->second;
        family.edit.replaced.emplace(replacement.record.get(), replacement.item);
    }
    const Managed::Pointer managed = managedAfter(edit);
    edit.change.put.reserve(edit.change.put.size() + replacements.size());
    // The rows first: an item without relatives is archived as it stands.
    for (const Replacement& replacement : replacements) {
        const std::optional<OwnChoice> choice = govern(*managed, replacement.uid, *replacement.item);
        const ItemPointer container = replacement.record->container();
        if (!edit.put(
                rowOf(replacement.uid, *replacement.item, container == nullptr ? std::nullopt : container->uuid()),
                choice)) {
            return {KSWErrorInvalidParameter};
        }
    }
    for (const auto& [root, family] : families) {
        edit.publications.push_back({family.uid, rebuilt(*root, family.edit), {}});
    }
    return commit(edit);
}

Outcome Registry::allow(Uid uid, const std::string& identifier, Reach reach) {
    const std::lock_guard one(writing_);
    const Found current = index_.find(uid, identifier);
    if (current.item == nullptr) {
        return {current.isDamaged ? KSWErrorGeneric : KSWErrorRecordNotFound};
    }
    const ItemPointer allowed = copyOfRecord(*current.item);
    restoreChoice(uid, *allowed);
    allowed->setDisposition(allowed->disposition() | KSWDispositionEnabled | KSWDispositionAllowed);
    holdBack(*allowed, current.item.get(), reach);
    if (allowed->disposition() == choiceOf(uid, *current.item).disposition) {
        return {KSWErrorRecordExists, current.item};
    }
    allowed->setGeneration(nextGeneration(allowed->generation()));
    Edit edit;
    Outcome outcome = replace(edit, {{uid, current.item, allowed}});
    if (outcome.code == KSWErrorNone) {
        outcome.code = KSWErrorRecordExists;
        outcome.item = index_.find(uid, identifier).item;
    }
    return outcome;
}

Outcome Registry::remove(Uid uid, const std::string& identifier) {
    const std::lock_guard one(writing_);
    Edit edit;
    return removeRecord(edit, uid, identifier, index_.find(uid, identifier));
}

template <class Key>
Outcome Registry::removeFound(Uid uid, const Key& key, Reach reach) {
    const std::lock_guard one(writing_);
    const Found found = index_.findOwnOrSystems(uid, key);
    if (found.item == nullptr && !found.isDamaged) {
        return {KSWErrorRecordNotFound};
    }
    if (found.uid != uid && reach == Reach::Own) {
        return {KSWErrorPermissionDenied};
    }
    Edit edit;
    return removeRecord(edit, found.uid, found.isDamaged ? found.damagedIdentifier : *found.item->identifier(),
                        found);
}

Outcome Registry::removeOwnOrSystems(Uid uid, const std::string& identifier, Reach reach) {
    return removeFound(uid, identifier, reach);
}

Outcome Registry::removeOwnOrSystems(Uid uid, const UUID& uuid, Reach reach) {
    return removeFound(uid, uuid, reach);
}

Outcome Registry::removeRecord(Edit& edit, Uid uid, const std::string& identifier, const Found& found) {
    if (found.item == nullptr && !found.isDamaged) {
        return {KSWErrorRecordNotFound};
    }
    if (found.item != nullptr && found.item->countOfEmbeddedItems() > 0) {
        return {KSWErrorInvalidParameter};
    }
    // Of a damaged record nobody can say which kind it was.
    edit.remove(uid, identifier, found.item == nullptr ? KSWItemTypeAll : found.item->type());
    takeOut(edit, uid, departureOf(uid, identifier, found.item));
    if (found.item != nullptr) {
        edit.publications.back().dropped.emplace_back(identifier, *found.item->uuid());
    }
    Outcome outcome = commit(edit);
    if (outcome.code == KSWErrorNone) {
        index_.forgetDamaged(uid, identifier);
    }
    return outcome;
}

bool Registry::fits(const Change& change) const {
    struct Sum {
        std::size_t records = 0;
        std::size_t bytes = 0;
    };
    const Share none;
    std::map<Uid, Sum> sums;
    for (const ItemRow& row : change.put) {
        const auto found = shares_.find(row.uid);
        const Share& share = found == shares_.end() ? none : found->second;
        Sum& sum = sums.try_emplace(row.uid, Sum{share.sizes.size(), share.bytes}).first->second;
        const auto former = share.sizes.find(row.identifier);
        sum.records += former == share.sizes.end() ? 1 : 0;
        sum.bytes += row.record.size() - (former == share.sizes.end() ? 0 : former->second);
    }
    const auto full = std::find_if(sums.begin(), sums.end(), [](const auto& user) {
        return user.second.records > limits::kRecordsPerUidMax || user.second.bytes > limits::kRecordBytesPerUidMax;
    });
    if (full != sums.end()) {
        logError("user " + std::to_string(full->first) + " has as many records as a user may have");
    }
    return full == sums.end();
}

void Registry::account(const Change& change) {
    const auto choices = choices_.lock();
    for (const ItemRow& row : change.put) {
        Share& share = shares_[row.uid];
        std::size_t& size = share.sizes[row.identifier];
        share.bytes += row.record.size() - size;
        size = row.record.size();
        if (row.choice) {
            (*choices)[row.uid][row.identifier] = *row.choice;
        } else if (const auto ofUser = choices->find(row.uid); ofUser != choices->end()) {
            ofUser->second.erase(row.identifier);
        }
    }
    for (const Change::Removal& removal : change.removed) {
        Share& share = shares_[removal.uid];
        if (const auto ofUser = choices->find(removal.uid); ofUser != choices->end()) {
            ofUser->second.erase(removal.identifier);
        }
        if (const auto former = share.sizes.find(removal.identifier); former != share.sizes.end()) {
            share.bytes -= former->second;
            share.sizes.erase(former);
        }
    }
}

Outcome Registry::commit(const Edit& edit) {
    if (!fits(edit.change)) {
        return {KSWErrorGeneric};
    }
    if (Status done = store_.apply(edit.change); !done) {
        logError(done.error().localizedDescription());
        return {KSWErrorGeneric};
    }
    account(edit.change);
    if (edit.managed != nullptr) {
        const std::lock_guard lock(managing_);
        managed_ = edit.managed;
    }
    for (const Change::User& user : edit.change.users) {
        index_.nameUser(user.uid, user.identifier);
    }
    Outcome outcome;
    outcome.replaced = index_.publish(edit.publications);
    for (const auto& [uid, kinds] : edit.kinds) {
        outcome.changes.push_back({uid, static_cast<std::int64_t>(kinds)});
    }
    return outcome;
}

}  // namespace ksw::daemon
