// The disposition that holds for an item, from itself, its family and the place of its file.
#include "model/item/item_disposition.h"

#include <kestrelwood/KSWItem.h>

#include "platform/host/log.h"
#include "platform/host/trash.h"

using ksw::URL;
using ksw::host::mainLog;

namespace {

constexpr KSWItemType kJob = KSWItemTypeAgent | KSWItemTypeDaemon;
constexpr KSWItemType kHasAFullPath = KSWItemTypeApp | KSWItemTypeLoginItem | kJob;
constexpr KSWItemType kExtension = KSWItemTypeLodestar | KSWItemTypeShelfTile | KSWItemTypeInputMethod |
                                   KSWItemTypeSmartCard | KSWItemTypeColorPicker | KSWItemTypeGlimpse;

std::optional<URL> fileURLOf(const KSWItem::OptionalString& path) {
    return path.has_value() ? std::optional(URL::fileURL(*path)) : std::nullopt;
}

/// The file without which the item cannot run; absent when its place does not matter or is not known.
std::optional<URL> decidingFile(const KSWItem& item) {
    if (item.intersectsType(KSWItemTypeUserItem)) {
        return item.url();
    }
    if (item.intersectsType(kJob, KSWItemTypeLegacyBit)) {
        return fileURLOf(item.executablePath());
    }
    if (!item.intersectsType(kHasAFullPath)) {
        return std::nullopt;
    }
    const KSWItem::OptionalString path = item.fullPath();
    if (!path.has_value()) {
        mainLog.error("effectiveDisposition: FATAL ERROR - fullPath is nil, container=%{public}@, item=%{public}@",
                      item.container(), item);
    }
    return fileURLOf(path);
}

/// The relationship of the trash to what the URL names, which lies nowhere on this host when it is no file.
ksw::Result<ksw::host::Relationship> relationshipOfTrash(const URL& url) {
    if (!url.scheme().empty() && !url.isFileURL()) {
        constexpr std::int64_t wrongParameter = -50;
        return ksw::Error(ksw::kStatusErrorDomain, wrongParameter, url.absoluteString() + ": not a file URL");
    }
    return ksw::host::relationshipOfTrash(url.path());
}

/// Whether the file is known to lie in the trash.
bool isInTheTrash(const URL& file, const KSWItem& item) {
    const auto relationship = relationshipOfTrash(file);
    if (!relationship) {
        mainLog.debug("effectiveDisposition: getRelationship failed, url=%{public}@, error: %{public}@", file,
                      relationship.error());
        mainLog.debug("effectiveDisposition: getRelationship failed, item=%{public}@", item);
        return false;
    }
    return *relationship == ksw::host::Relationship::Contains;
}

/// The bits that the item's own record and the place of its file decide.
KSWDisposition ownDisposition(const KSWItem& item) {
    const std::optional<URL> file = decidingFile(item);
    const bool canRun = !file.has_value() || !isInTheTrash(*file, item);
    return item.disposition() & (KSWDispositionHidden | (canRun ? KSWDispositionEnabled : 0));
}

/// The item whose approval decides: approval is given per developer or application, but what hangs under the
/// unknown developer is judged alone.
const KSWItem& decidingItem(const KSWItem& item, const KSWItem::Pointer& parent) {
    return parent == nullptr || parent->isUnknownDeveloperRecord() ? item : *parent;
}

bool isAllowedBy(const KSWItem& deciding, const KSWItem& item) {
    // An extension's own switch holds whatever its family does.
    return item.intersectsType(kExtension) ? item.isAllowed()
                                           : deciding.isAllowed() && deciding.isAggregateAllowed();
}

}  // namespace

bool ksw::isAllowedInFamily(const KSWItem& item) {
    const KSWItem::Pointer parent = item.container();
    return isAllowedBy(decidingItem(item, parent), item);
}

KSWDisposition KSWItem::effectiveDisposition() const {
    const KSWDisposition own = ownDisposition(*this);
    const Pointer parent = container();
    const KSWItem& deciding = decidingItem(*this, parent);
    const bool isAllowedNow = isAllowedBy(deciding, *this);
    const bool isNotifiedNow = deciding.notified() || deciding.isAggregateNotified();
    return own | (isAllowedNow ? KSWDispositionAllowed : 0) | (isNotifiedNow ? KSWDispositionNotified : 0);
}
