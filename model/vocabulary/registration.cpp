#include "model/vocabulary/item_type.h"

namespace {

using ksw::URL;
using OptionalURL = std::optional<URL>;

/// Whether the URL can name something inside a bundle.
bool isInsideABundle(const OptionalURL& url) {
    return url.has_value() && !url->relativePath().starts_with('/');
}

bool isValidForLegacyType(KSWItemType type, const OptionalURL& bundleURL, const OptionalURL& url) {
    constexpr KSWItemType job = KSWItemTypeAgent | KSWItemTypeDaemon;
    const bool standsAlone = (type & job) != 0 && url.has_value() && !bundleURL.has_value();
    const bool isInAnApp = (type & KSWItemTypeLoginItem) != 0 && url.has_value() && bundleURL.has_value();
    return standsAlone || isInAnApp;
}

}  // namespace

bool KSWItemTypeValidateRegistrationParameters(KSWItemType type, const OptionalURL& bundleURL,
                                               const OptionalURL& url) {
    if ((type & KSWItemTypeLegacyBit) != 0) {
        return isValidForLegacyType(type, bundleURL, url);
    }
    switch (ksw::baseKind(type)) {
        case KSWItemTypeUserItem:
            return url.has_value() && !bundleURL.has_value();
        case KSWItemTypeApp:
            return bundleURL.has_value() && !url.has_value();
        case KSWItemTypeLoginItem:
        case KSWItemTypeAgent:
        case KSWItemTypeDaemon:
        case KSWItemTypeShelfTile:
        case KSWItemTypeGlimpse:
            return bundleURL.has_value() && isInsideABundle(url);
        case KSWItemTypeLodestar:
        case KSWItemTypeInputMethod:
        case KSWItemTypeSmartCard:
        case KSWItemTypeColorPicker:
            return bundleURL.has_value() ? isInsideABundle(url) : url.has_value();
        default:
            return false;
    }
}
