// item_icon.cpp: the file that a person recognizes an item by.

#include <unistd.h>

#include <kestrelwood/KSWApplications.h>
#include <kestrelwood/KSWItem.h>

#include "model/vocabulary/item_type.h"
#include "platform/facts/file_inside.h"
#include "platform/facts/resource_values.h"

using ksw::URL;
using OptionalURL = std::optional<URL>;

namespace {

OptionalURL firstRegistered(const std::optional<KSWItem::Strings>& bundleIdentifiers) {
    for (const std::string& identifier : bundleIdentifiers.value_or(KSWItem::Strings())) {
        if (OptionalURL url = KSWItem::_urlForBundleIdentifier(identifier)) {
            return url;
        }
    }
    return std::nullopt;
}

OptionalURL applicationOf(const KSWItem& item) {
    OptionalURL url = KSWItem::_urlForBundleIdentifier(item.bundleIdentifier());
    return url ? url : firstRegistered(item.associatedBundleIdentifiers());
}

OptionalURL iconOfLegacyJob(const KSWItem& item) {
    OptionalURL url = applicationOf(item);
    if (!url) {
        url = item.executablePath() ? URL::fileURL(*item.executablePath()) : item.url();
    }
    return url;
}

OptionalURL iconOfDeveloper(const KSWItem& item) {
    OptionalURL url = applicationOf(item);
    auto children = item.enumeratorOfEmbeddedItems();
    while (const KSWItem::Pointer child = url ? nullptr : children.nextObject()) {
        url = firstRegistered(child->associatedBundleIdentifiers());
    }
    return url;
}

OptionalURL fileOf(const KSWItem& item, const OptionalURL& container) {
    return item.url() ? ksw::facts::fileOfItem(*item.url(), container) : std::nullopt;
}

/// `fullPath` goes through every container on the way; the file must lie in the nearest.
OptionalURL iconOnFullPath(const KSWItem& item, const URL& container) {
    const KSWItem::OptionalString path = item.fullPath();
    return path && fileOf(item, container) ? OptionalURL(URL::fileURL(*path)) : std::nullopt;
}

OptionalURL iconCandidate(const KSWItem& item, const KSWItem::Pointer& container) {
    const OptionalURL containerURL = container == nullptr ? std::nullopt : container->url();
    switch (ksw::baseKind(item.type())) {
        case KSWItemTypeAgent:
        case KSWItemTypeDaemon:
            return item.isLegacy() ? iconOfLegacyJob(item) : fileOf(item, containerURL);
        case KSWItemTypeDeveloper:
            return iconOfDeveloper(item);
        default:
            return containerURL ? iconOnFullPath(item, *containerURL) : item.url();
    }
}

}  // namespace

OptionalURL KSWItem::_urlForBundleIdentifier(const OptionalString& bundleIdentifier) {
    const std::optional<ksw::Application> application =
        bundleIdentifier ? ksw::applicationWithIdentifier(*bundleIdentifier, ::geteuid()) : std::nullopt;
    return application ? OptionalURL(application->url()) : std::nullopt;
}

OptionalURL KSWItem::iconURL() {
    const Pointer parent = container();
    OptionalURL candidate = iconCandidate(*this, parent);
    for (bool isFirst = true; !ksw::facts::hasFile(candidate); isFirst = false) {
        const bool hasParentMoved = parent != nullptr && parent->syncURLAndBookmark();
        const bool hasMoved = syncURLAndBookmark();
        if (!isFirst || !(hasParentMoved || hasMoved)) {
            break;
        }
        candidate = iconCandidate(*this, parent);
    }
    return candidate;
}
