// What device management says: rules that stand above what users choose, and jobs that it installs.
#include <algorithm>

#include <kestrelwood/KSWErrors.h>

#include "platform/base/limits.h"
#include "platform/plist/property_list.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

namespace {

constexpr std::string_view kIdentifierKey = "Identifier";
constexpr std::string_view kWasThereKey = "WasThere";

/// The bytes under which a dictionary is kept; absent when it cannot be read again from them.
std::optional<Data> keptForm(const Dictionary& dictionary) {
    Result<Data> bytes = plist::writeBinary(Value(dictionary));
    const bool isUsable = bytes && bytes->size() <= limits::kPropertyListFileMax && plist::readBinary(*bytes).ok();
    return isUsable ? std::optional(*std::move(bytes)) : std::nullopt;
}

std::optional<Dictionary> dictionaryIn(Bytes bytes) {
    Result<Value> value = plist::readBinary(bytes);
    Dictionary* dictionary = value ? value->as<Dictionary>() : nullptr;
    return dictionary == nullptr ? std::nullopt : std::optional(std::move(*dictionary));
}

std::optional<ManagedJob> jobIn(const JobRow& row) {
    const std::optional<Dictionary> kept = dictionaryIn(row.job);
    const std::string* identifier = kept ? find<std::string>(*kept, kIdentifierKey) : nullptr;
    const bool* wasThere = kept ? find<bool>(*kept, kWasThereKey) : nullptr;
    if (row.path.empty() || identifier == nullptr || wasThere == nullptr) {
        return std::nullopt;
    }
    return ManagedJob{row.label, *identifier, *wasThere};
}

bool isManaged(KSWItemFlags flags) {
    return (flags & KSWItemFlagManaged) != 0;
}

}  // namespace

Managed::Pointer Registry::managed() const {
    const std::lock_guard lock(managing_);
    return managed_;
}

Managed::Pointer Registry::managedAfter(const Edit& edit) const {
    return edit.managed == nullptr ? managed() : edit.managed;
}

std::optional<OwnChoice> Registry::governedChoice(Uid uid, const KSWItem& record) const {
    const auto choices = choices_.lock();
    const auto ofUser = choices->find(uid);
    if (ofUser == choices->end()) {
        return std::nullopt;
    }
    const auto choice = ofUser->second.find(*record.identifier());
    return choice == ofUser->second.end() ? std::nullopt : std::optional(choice->second);
}

OwnChoice Registry::choiceOf(Uid uid, const KSWItem& record) const {
    return governedChoice(uid, record).value_or(OwnChoice{record.disposition(), record.flags()});
}

void Registry::restoreChoice(Uid uid, KSWItem& copy) const {
    const OwnChoice choice = choiceOf(uid, copy);
    copy.setDisposition(choice.disposition);
    copy.setFlags(withManaged(copy.flags(), isManaged(choice.flags)));
}

void Registry::takeChoice(Uid uid, const KSWItem& record, KSWItem& updated) const {
    const std::optional<OwnChoice> choice = governedChoice(uid, record);
    if (!choice) {
        return;
    }
    const KSWDisposition decided = managed()->rulingFor(uid, record).decided();
    const KSWDisposition changed = (updated.disposition() ^ record.disposition()) & ~decided;
    updated.setDisposition((choice->disposition & ~changed) | (updated.disposition() & changed));
    updated.setFlags(withManaged(updated.flags(), isManaged(choice->flags)));
}

std::vector<Registry::Replacement> Registry::governedAnew(const Managed& managed) const {
    std::vector<Replacement> replacements;
    for (const auto& [uid, name] : index_.users()) {
        for (const ItemPointer& record : index_.own(uid)) {
            const std::optional<OwnChoice> governed = governedChoice(uid, *record);
            const OwnChoice choice = governed.value_or(OwnChoice{record->disposition(), record->flags()});
            const Ruling ruling = managed.rulingFor(uid, *record);
            const KSWItemFlags flags = ruling.isAny() ? ruledFlags(record->flags(), ruling)
                                                      : withManaged(record->flags(), isManaged(choice.flags));
            if (ruling.isAny() == governed.has_value() && record->flags() == flags &&
                record->disposition() == ruling.over(choice.disposition)) {
                continue;
            }
            const ItemPointer item = copyOfRecord(*record);
            restoreChoice(uid, *item);
            item->setGeneration(nextGeneration(record->generation()));
            replacements.push_back({uid, record, item});
        }
    }
    return replacements;
}

bool Registry::isAnyGoverned() const {
    const auto choices = choices_.lock();
    return std::any_of(choices->begin(), choices->end(), [](const auto& user) { return !user.second.empty(); });
}

Outcome Registry::applyRules(Edit& edit) {
    const Managed::Pointer managed = managedAfter(edit);
    if (managed->isEmpty() && !isAnyGoverned()) {
        return commit(edit);
    }
    return replace(edit, governedAnew(*managed));
}

Outcome Registry::applyRules() {
    const std::lock_guard one(writing_);
    Edit edit;
    return applyRules(edit);
}

Outcome Registry::setPayload(const std::string& identifier, std::shared_ptr<const Dictionary> payload,
                             bool isImmediate) {
    const std::lock_guard one(writing_);
    Payloads payloads = managed()->payloads();
    Change::Payload row{identifier, std::nullopt};
    if (payload != nullptr) {
        row.payload = keptForm(*payload);
        if (!row.payload) {
            return {KSWErrorInvalidParameter};
        }
        payloads[identifier] = std::move(payload);
    } else {
        payloads.erase(identifier);
    }
    Result<Managed::Pointer> next = Managed::of(std::move(payloads), managed()->jobs());
    if (!next) {
        return {next.error().code()};
    }
    Edit edit;
    edit.managed = *std::move(next);
    edit.change.payloads.push_back(std::move(row));
    return isImmediate ? applyRules(edit) : commit(edit);
}

void Registry::keepManagedType(Uid uid, KSWItem& item) const {
    if (managed()->isJob(uid, *item.identifier())) {
        item.setType(item.type() | KSWItemTypeManagedBit);
    }
}

Outcome Registry::submitJob(const std::string& path, const std::string& label, const ItemPointer& item,
                            const ItemPointer& application) {
    const std::lock_guard one(writing_);
    Outcome told;
    if (const Status settled = settle(kEveryUser, application, told); !settled) {
        return {settled.error().code()};
    }
    const std::string identifier = *item->identifier();
    ManagedJobs jobs = managed()->jobs();
    const auto former = jobs.find(path);
    const bool isOfAnother = std::any_of(jobs.begin(), jobs.end(), [&](const auto& job) {
        return job.first != path && (job.second.label == label || job.second.identifier == identifier);
    });
    if (isOfAnother || (former != jobs.end() && former->second.identifier != identifier)) {
        return {KSWErrorRecordExists};
    }
    const Found current = index_.find(kEveryUser, identifier);
    if (current.isDamaged) {
        return {KSWErrorGeneric};
    }
    const bool wasThere = former == jobs.end() ? current.item != nullptr : former->second.wasThere;
    jobs.insert_or_assign(path, ManagedJob{label, identifier, wasThere});
    Result<Managed::Pointer> next = Managed::of(managed()->payloads(), std::move(jobs));
    const std::optional<Data> kept =
        keptForm({{std::string(kIdentifierKey), Value(identifier)}, {std::string(kWasThereKey), Value(wasThere)}});
    if (!next || !kept) {
        return {KSWErrorInvalidParameter};
    }
    Edit edit;
    edit.managed = *std::move(next);
    edit.change.jobs.push_back({path, label, *kept});
    if (current.item != nullptr) {
        return after(std::move(told), takeFactsAnew(edit, kEveryUser, current.item, item, application));
    }
    const Result<Place> place = placeFor(kEveryUser, *item, application);
    if (!place) {
        return after(std::move(told), {place.error().code()});
    }
    item->setUuid(UUID::random());
    item->setDisposition(initialDisposition(item->type(), place->voucherFor(*item), history_));
    return after(std::move(told), add(edit, kEveryUser, item, *place));
}

Outcome Registry::removeJob(const std::string& path) {
    const std::lock_guard one(writing_);
    ManagedJobs jobs = managed()->jobs();
    const auto found = jobs.find(path);
    if (found == jobs.end()) {
        return {KSWErrorRecordNotFound};
    }
    const ManagedJob job = found->second;
    jobs.erase(found);
    Result<Managed::Pointer> next = Managed::of(managed()->payloads(), std::move(jobs));
    if (!next) {
        return {next.error().code()};
    }
    Edit edit;
    edit.managed = *std::move(next);
    edit.change.removedJobs.push_back(path);
    const Found current = index_.find(kEveryUser, job.identifier);
    if (current.item == nullptr) {
        return commit(edit);
    }
    if (!job.wasThere && current.item->countOfEmbeddedItems() == 0) {
        return removeRecord(edit, kEveryUser, job.identifier, current);
    }
    const ItemPointer item = copyOfRecord(*current.item);
    restoreChoice(kEveryUser, *item);
    item->setType(item->type() & ~KSWItemTypeManagedBit);
    item->setGeneration(nextGeneration(item->generation()));
    return replace(edit, {{kEveryUser, current.item, item}});
}

Status Registry::readManaged() {
    bool isWhole = true;
    const auto complain = [&isWhole](std::string_view what) {
        logError(std::string(what) + " is damaged and left out; what it stands above is left as it is");
        isWhole = false;
    };
    Payloads payloads;
    Status read = store_.readPayloads([&](std::string_view identifier, Bytes bytes) {
        std::optional<Dictionary> payload = dictionaryIn(bytes);
        const bool isUsable = payload && Managed::of({{"", std::make_shared<const Dictionary>(*payload)}}, {}).ok();
        if (!isUsable) {
            complain("the payload \"" + std::string(identifier) + "\"");
            return;
        }
        payloads.emplace(identifier, std::make_shared<const Dictionary>(*std::move(payload)));
    });
    if (!read) {
        return read;
    }
    ManagedJobs jobs;
    read = store_.readJobs([&](const JobRow& row) {
        if (std::optional<ManagedJob> job = jobIn(row)) {
            jobs.emplace(row.path, *std::move(job));
        } else {
            complain("the managed job \"" + row.path + "\"");
        }
    });
    if (!read) {
        return read;
    }
    Result<Managed::Pointer> managed = Managed::of(std::move(payloads), std::move(jobs));
    if (!managed) {
        complain("what is managed");
        managed = Managed::of({}, {});
    }
    {
        const std::lock_guard lock(managing_);
        managed_ = *std::move(managed);
    }
    if (isWhole) {
        // A disk that takes nothing has been logged; the rules hold for whatever changes.
        static_cast<void>(applyRules());
    }
    return {};
}

}  // namespace ksw::daemon
