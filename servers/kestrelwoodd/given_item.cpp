#include "servers/kestrelwoodd/given_item.h"

#include <algorithm>
#include <bit>
#include <unordered_set>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFunctions.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "servers/kestrelwoodd/launch_item.h"

namespace ksw::daemon {

namespace {

/// The kinds whose items are known by an identifier of their own.
constexpr KSWItemType kKinds = KSWItemTypeAll & ~KSWItemTypeDeveloper;

/// Makes the item what no client says of it, as much as these flags and this type say: managed, or a record for
/// what it contains only.
void setManaged(KSWItem& item, KSWItemFlags flags, KSWItemType type) {
    constexpr KSWItemFlags kNobodys = KSWItemFlagManaged | kContainsOnly | kAllowedByRule;
    const KSWItemFlags others = item.flags() & ~kNobodys;
    item.setType((item.type() & ~KSWItemTypeManagedBit) | (type & KSWItemTypeManagedBit));
    item.setFlags(others | (flags & kNobodys));
}

/// By this date the daemon notices that the code is another, so no client says it.
void setCodeDate(KSWItem& item, double date) {
    if (isJob(item.type())) {
        item.setExecutableModificationDate(date);
    } else {
        item.setModificationDate(date);
    }
}

}  // namespace

bool identifierFits(KSWItemType kind, const std::string& identifier) {
    if (kind == KSWItemTypeUserItem) {
        const std::optional<URL> url = URL::fromString(identifier);
        return url && !url->scheme().empty();
    }
    const std::string prefix = ComposedItemIdentifier(kind, "").value_or("");
    return identifier.size() > prefix.size() && identifier.starts_with(prefix);
}

bool canIdentifyAnItem(const std::string& identifier) {
    for (KSWItemType kind = 1; kind <= kKinds; kind <<= 1U) {
        if ((kind & kKinds) != 0 && identifierFits(kind, identifier)) {
            return true;
        }
    }
    return false;
}

bool canBeRecorded(const KSWItem& item) {
    const KSWItemType kind = item.type() & KSWItemTypeAll;
    return std::has_single_bit(kind) && kind != KSWItemTypeDeveloper && item.uuid() && item.identifier() &&
           identifierFits(kind, *item.identifier());
}

ItemPointer newRecordOf(const KSWItem& item) {
    ItemPointer record = copyOfRecord(item);
    setManaged(*record, 0, 0);
    return record;
}

Result<ItemPointer> updatedRecord(const KSWItem& record, const GivenUpdate& update) {
    const KSWItem& given = *update.item;
    const bool isSameKind = ((record.type() ^ given.type()) & KSWItemTypeAll) == 0;
    if (!isSameKind || record.identifier() != given.identifier() ||
        record.isUnknownDeveloperRecord() != given.isUnknownDeveloperRecord()) {
        return KSWErrorWithCode(KSWErrorInvalidParameter);
    }
    // Another change may have come since it was looked what code the record names.
    const bool isMakerKnown = update.maker || codeOf(given) == codeOf(record);
    if (record.generation() != given.generation() || !isMakerKnown) {
        return KSWErrorWithCode(KSWErrorInvalidGeneration);
    }
    ItemPointer updated = copyOfRecord(given);
    updated->setGeneration(nextGeneration(record.generation()));
    setManaged(*updated, record.flags(), record.type());
    if (update.maker) {
        takeMaker(*updated, *update.maker);
        // Whoever asks next has all of it read anew.
        setCodeDate(*updated, 0);
    } else {
        takeMaker(*updated, record);
        setCodeDate(*updated,
                    isJob(record.type()) ? record.executableModificationDate() : record.modificationDate());
    }
    return updated;
}

bool nameRecords(const std::vector<ItemPointer>& items) {
    std::unordered_set<UUID> known;
    return std::all_of(items.begin(), items.end(), [&known](const ItemPointer& item) {
        return item != nullptr && item->uuid() && known.insert(*item->uuid()).second;
    });
}

std::optional<std::vector<ItemPointer>> itemsOf(Bytes archive) {
    archive::DecodeBudget budget(archive.size());
    const archive::ReadOptions options{archive::Coder::Ordinary, archive::Cycles::Allowed};
    Result<archive::UnarchivedArray<KSWItem>> read = archive::unarchiveArray<KSWItem>(archive, options, budget);
    if (!read || read->roots.size() > limits::kListItemsMax) {
        return std::nullopt;
    }
    return std::move(read->roots);
}

}  // namespace ksw::daemon
