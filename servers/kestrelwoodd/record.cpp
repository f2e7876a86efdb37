#include "servers/kestrelwoodd/record.h"

#include <bit>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"

namespace ksw::daemon {

namespace {

Error unfit(std::string_view why) {
    return Error(FormatError::Unsupported, why);
}

bool isSingleKind(KSWItemType type) {
    return std::has_single_bit(type & KSWItemTypeAll);
}

bool agrees(const ItemRow& row, const KSWItem& item) {
    return item.uuid() == row.uuid && item.identifier() == row.identifier && item.type() == row.type &&
           item.flags() == row.flags && item.disposition() == row.disposition &&
           item.generation() == row.generation;
}

}  // namespace

Uid scopeOf(KSWItemType type, Uid uid) {
    constexpr KSWItemType kOfTheSystem = KSWItemTypeDaemon | KSWItemTypeSmartCard;
    return (type & kOfTheSystem) != 0 ? kEveryUser : uid;
}

ItemPointer bareItem(KSWItemType type, std::string identifier) {
    ItemPointer item = std::make_shared<KSWItem>();
    item->setType(type);
    item->setIdentifier(std::move(identifier));
    item->setEmbeddedItems(std::make_shared<const ItemSet>());
    return item;
}

ItemPointer copyOfRecord(const KSWItem& record) {
    ItemPointer copy = bareItem(record.type(), record.identifier().value_or(std::string()));
    copy->setFlags(record.flags());
    copy->setUrl(record.url());
    copy->setModificationDate(record.modificationDate());
    copy->setExecutablePath(record.executablePath());
    copy->setSha256(record.sha256());
    copy->setExecutableModificationDate(record.executableModificationDate());
    copy->setProgramArguments(record.programArguments());
    copy->setUuid(record.uuid());
    copy->setName(record.name());
    copy->setDeveloperName(record.developerName());
    copy->setTeamIdentifier(record.teamIdentifier());
    copy->setDesignatedRequirement(record.designatedRequirement());
    copy->setLightweightRequirement(record.lightweightRequirement());
    copy->setGeneration(record.generation());
    copy->setDisposition(record.disposition());
    copy->setBookmark(record.bookmark());
    copy->setBundleIdentifier(record.bundleIdentifier());
    copy->setAssociatedBundleIdentifiers(record.associatedBundleIdentifiers());
    copy->setEditable(record.isEditable());
    copy->setCanHide(record.canHide());
    return copy;
}

Result<ItemRow> rowOf(Uid uid, const KSWItem& item) {
    const ItemPointer container = item.container();
    return container == nullptr ? rowOf(uid, item, std::nullopt)
                                : rowOf(uid, *copyOfRecord(item), container->uuid());
}

Result<ItemRow> rowOf(Uid uid, const KSWItem& item, const std::optional<UUID>& container) {
    if (!item.identifier() || item.identifier()->empty() || !item.uuid()) {
        return unfit("an item without identifier or UUID has no record");
    }
    Result<Data> record = archive::archive(item, archive::Coder::ServiceConnection);
    if (!record) {
        return record.error();
    }
    if (record->size() > limits::kRecordMax) {
        return Error(FormatError::LimitPassed, "the record is larger than 1 MiB");
    }
    return ItemRow{uid,
                   *item.uuid(),
                   *item.identifier(),
                   item.type(),
                   item.flags(),
                   item.disposition(),
                   item.generation(),
                   container,
                   *std::move(record)};
}

Result<ItemPointer> itemOf(const ItemRow& row) {
    archive::DecodeBudget budget(row.record.size());
    const archive::ReadOptions options{archive::Coder::ServiceConnection, archive::Cycles::Refused};
    Result<archive::Unarchived<KSWItem>> read = archive::unarchive<KSWItem>(row.record, options, budget);
    if (!read) {
        return read.error();
    }
    const KSWItem& item = *read->root;
    if (!agrees(row, item)) {
        return unfit("the record and its columns disagree");
    }
    if (!isSingleKind(item.type())) {
        return unfit("the record is of no single kind");
    }
    return copyOfRecord(item);
}

}  // namespace ksw::daemon
