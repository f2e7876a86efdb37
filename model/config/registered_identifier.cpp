#include <kestrelwood/KSWFunctions.h>

#include "model/config/identifier_of_file.h"
#include "model/vocabulary/item_type.h"
#include "platform/base/text.h"
#include "platform/facts/file_inside.h"
#include "platform/host/log.h"

using ksw::Dictionary;
using ksw::URL;
using OptionalString = std::optional<std::string>;
using OptionalURL = std::optional<URL>;

namespace {

constexpr ksw::Literal kFunction{"ItemIdentifierWithRegistrationInfo"};

/// A registration whose URLs go with its type.
struct Registration {
    KSWItemType type;
    const OptionalURL& bundleURL;
    const OptionalURL& url;
};

OptionalString identifierOfFile(const Registration& registration) {
    const auto file = ksw::facts::findOfItem(*registration.url, registration.bundleURL);
    return file ? ksw::config::identifierOfFile(registration.type, *file) : std::nullopt;
}

OptionalString identifierOfJob(const Registration& registration, const std::optional<Dictionary>& config) {
    const std::string* label = config ? ksw::find<std::string>(*config, KSWConfigLabel) : nullptr;
    return label != nullptr ? ComposedItemIdentifier(registration.type, *label) : identifierOfFile(registration);
}

}  // namespace

OptionalString ItemIdentifierWithRegistrationInfo(KSWItemType type, const OptionalURL& bundleURL,
                                                  const OptionalURL& url, const std::optional<Dictionary>& config) {
    const Registration registration{type, bundleURL, url};
    // A legacy type may be of several kinds at once, and still go with its URLs.
    const bool isValid = ValidateItemType(type) && KSWItemTypeValidateRegistrationParameters(type, bundleURL, url);
    switch (isValid ? ksw::baseKind(type) : 0) {
        case KSWItemTypeApp:
            return ItemIdentifierForURLAndType(type, *bundleURL);
        case KSWItemTypeAgent:
        case KSWItemTypeDaemon:
            return identifierOfJob(registration, config);
        case KSWItemTypeUserItem:
        case KSWItemTypeLoginItem:
        case KSWItemTypeLodestar:
        case KSWItemTypeShelfTile:
        case KSWItemTypeInputMethod:
        case KSWItemTypeSmartCard:
        case KSWItemTypeColorPicker:
        case KSWItemTypeGlimpse:
            return identifierOfFile(registration);
        default:
            ksw::host::mainLog.error("%s: invalid parameter: type=%{public}@, bundleURL=%@, url=%@, config=%@",
                                     kFunction, KSWItemTypeDescription(type),
                                     bundleURL ? OptionalString(bundleURL->path()) : std::nullopt,
                                     url ? OptionalString(url->relativePath()) : std::nullopt, config);
            return std::nullopt;
    }
}
