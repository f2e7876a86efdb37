// The requests of the legacy store of login items: its items are records like all others.
#include <kestrelwood/KSWErrors.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "servers/kestrelwoodd/housekeeping.h"

namespace ksw::daemon {

namespace {

/// The kinds that the legacy store has.
constexpr KSWItemType kRosterKinds = KSWItemTypeUserItem | KSWItemTypeApp | KSWItemTypeLoginItem;

Report reportOf(Answer answer) {
    Report report = daemon::reportOf(answer.code);
    report.item = std::move(answer.item);
    report.changes = std::move(answer.changes);
    report.replaced = std::move(answer.replaced);
    return report;
}

bool isOfRoster(const KSWItem& item) {
    return item.intersectsType(kRosterKinds);
}

}  // namespace

Report Housekeeping::fetchRoster(const Caller& caller, const std::int64_t& mask) {
    const KSWItemType kinds = static_cast<KSWItemType>(mask) & kRosterKinds;
    const std::vector<ItemPointer> items = registry_.records().list(caller.uid, kinds).items;
    if (items.size() > limits::kLoginItemsMax) {
        return daemon::reportOf(KSWErrorGeneric);
    }
    std::vector<ItemPointer> copies;
    copies.reserve(items.size());
    for (const ItemPointer& item : items) {
        copies.push_back(copyOfRecord(*item));
    }
    Result<Data> archive = archive::archiveArray<KSWItem>(copies, archive::Coder::Ordinary);
    if (!archive) {
        return daemon::reportOf(KSWErrorGeneric);
    }
    Report report;
    report.data = *std::move(archive);
    return report;
}

Report Housekeeping::addToRoster(const Caller& caller, const std::optional<URL>& url, const std::int64_t& type,
                                 const bool& isGlobal, const bool& isManaged) {
    if ((isGlobal || isManaged) && !caller.isAdministrator()) {
        return daemon::reportOf(KSWErrorPermissionDenied);
    }
    const auto kind = static_cast<KSWItemType>(type);
    if ((kind & kRosterKinds) == 0 || (kind & ~kRosterKinds & KSWItemTypeAll) != 0) {
        return daemon::reportOf(KSWErrorInvalidParameter);
    }
    const Uid uid = isGlobal ? kEveryUser : caller.uid;
    // An application is a bundle; a file says by itself where it is.
    const bool isApp = (kind & KSWItemTypeApp) != 0;
    const Subject subject{Owner::Bundle,    kNoToken, isApp ? url : kNoURL, kind, isApp ? kNoURL : url,
                          kNoConfiguration, uid};
    const KSWItemFlags marks = (isGlobal ? KSWItemFlagGlobal : 0) | (isManaged ? KSWItemFlagManaged : 0);
    return reportOf(operations_.enterAllowed(subject, caller, marks));
}

Report Housekeeping::updateInRoster(const Caller& caller, const ItemPointer& item) {
    if (item == nullptr || !isOfRoster(*item)) {
        return daemon::reportOf(KSWErrorInvalidParameter);
    }
    return reportOf(operations_.updateItem({item, caller.uid, caller}));
}

Report Housekeeping::removeFromRoster(const Caller& caller, const ItemPointer& item) {
    if (item == nullptr || !item->uuid()) {
        return daemon::reportOf(KSWErrorInvalidParameter);
    }
    const Found found = registry_.records().findOwnOrSystems(caller.uid, *item->uuid());
    if (found.item != nullptr && !isOfRoster(*found.item)) {
        return daemon::reportOf(KSWErrorInvalidParameter);
    }
    const std::optional<UUID> uuid = item->uuid();
    return reportOf(operations_.removeWithUUID({uuid, caller.uid, caller}));
}

}  // namespace ksw::daemon
