#include <kestrelwood/KSWItem.h>

#include "platform/base/limits.h"
#include "platform/base/text.h"
#include "platform/host/log.h"

namespace {

using OptionalString = KSWItem::OptionalString;

constexpr KSWItemType kLivesInItsApp = KSWItemTypeLoginItem | KSWItemTypeAgent | KSWItemTypeDaemon;

/// Whether the item's path is its relative path below its parent's.
bool isBelowItsParent(const KSWItem& item, const KSWItem::Pointer& parent) {
    if (parent == nullptr || parent.get() == &item || !item.url().has_value() || !parent->url().has_value()) {
        return false;
    }
    const bool livesInItsApp = !item.isLegacy() && item.intersectsType(kLivesInItsApp);
    return livesInItsApp || !item.url()->relativePath().starts_with('/');
}

/// The path of an item that is not below its parent.
OptionalString pathOfItsOwn(const KSWItem& item, const KSWItem::Pointer& parent) {
    const bool isItsOwnParent = parent.get() == &item;
    if (isItsOwnParent) {
        ksw::host::mainLog.fault("KSWItem container points to self: %{public}@", item);
    }
    const bool hasNoneOutsideItsApp = !isItsOwnParent && !item.isLegacy() && item.intersectsType(kLivesInItsApp);
    if (!item.url().has_value() || hasNoneOutsideItsApp) {
        return std::nullopt;
    }
    return item.url()->path();
}

}  // namespace

KSWItem::OptionalString KSWItem::fullPath() const {
    std::vector<std::string> below;
    std::shared_ptr<const KSWItem> owner;
    const KSWItem* item = this;
    Pointer parent = container();
    while (isBelowItsParent(*item, parent)) {
        // Parents that lead round in a circle name no place.
        if (below.size() == ksw::limits::kContainerChainMax) {
            return std::nullopt;
        }
        below.push_back(item->url()->relativePath());
        owner = std::move(parent);
        item = owner.get();
        parent = item->container();
    }
    OptionalString path = pathOfItsOwn(*item, parent);
    for (auto relativePath = below.rbegin(); relativePath != below.rend(); ++relativePath) {
        path = ksw::format("%@/%@", path, *relativePath);
    }
    return path;
}
