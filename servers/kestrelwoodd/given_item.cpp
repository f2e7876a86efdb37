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

/// A user item's identifier is a URL that says what kind of URL it is, any other's begins with the number of its
/// kind; so no item can pass for one of another kind.
bool identifierFits(KSWItemType kind, const std::string& identifier) {
    if (kind == KSWItemTypeUserItem) {
        const std::optional<URL> url = URL::fromString(identifier);
        return url && !url->scheme().empty();
    }
    const std::string prefix = ComposedItemIdentifier(kind, "").value_or("");
    return identifier.size() > prefix.size() && identifier.starts_with(prefix);
}

/// The kinds whose items are known by an identifier of their own.
constexpr KSWItemType kKinds = KSWItemTypeAll & ~KSWItemTypeDeveloper;

/// Makes the item managed as much as these flags and this type say.
void setManaged(KSWItem& item, KSWItemFlags flags, KSWItemType type) {
    const KSWItemFlags others = item.flags() & ~KSWItemFlagManaged;
    item.setType((item.type() & ~KSWItemTypeManagedBit) | (type & KSWItemTypeManagedBit));
    item.setFlags(others | (flags & KSWItemFlagManaged));
}

}  // namespace

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
    } else {
        takeMaker(*updated, record);
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
