#include "servers/kestrelwoodd/launch_item.h"

#include <algorithm>
#include <bit>

#include <kestrelwood/KSWErrors.h>

#include "platform/base/limits.h"

namespace ksw::daemon {

namespace {

constexpr KSWItemType kProvenance = KSWItemTypeLegacyBit | KSWItemTypeManagedBit | KSWItemTypeCuratedBit |
                                    KSWItemTypeProfileAddedBit | KSWItemTypeGlobalBit;

Error invalidParameter() {
    return KSWErrorWithCode(KSWErrorInvalidParameter);
}

bool isField(const Value& value, bool isData) {
    const std::string* text = value.as<std::string>();
    const Data* data = value.as<Data>();
    return isData ? data != nullptr && data->size() <= limits::kFieldMax
                  : text != nullptr && text->size() <= limits::kFieldMax;
}

bool areFields(const Value& value) {
    const Array* values = value.as<Array>();
    return values != nullptr && std::all_of(values->begin(), values->end(),
                                            [](const Value& element) { return isField(element, false); });
}

/// Whether each value is of its key's kind and fits a record. Keys that nobody knows do not count.
bool isUsable(const Dictionary& configuration) {
    return std::all_of(configuration.begin(), configuration.end(), [](const auto& entry) {
        const auto& [key, value] = entry;
        if (key == KSWConfigArguments || key == KSWConfigBundleIdentifiers) {
            return value.isNull() || areFields(value);
        }
        const bool isData = key == KSWConfigSHA256Checksum;
        const bool counts =
            isData || key == KSWConfigLabel || key == KSWConfigExecutablePath || key == KSWConfigBundleProgram;
        return !counts || value.isNull() || isField(value, isData);
    });
}

/// A claim of who has put an item there is believed of the administrator only; whether it is a legacy one is no
/// claim.
KSWItemType typeOf(KSWItemType said, const Caller& caller) {
    return said & (KSWItemTypeAll | (caller.isAdministrator() ? kProvenance : KSWItemTypeLegacyBit));
}

URL asDirectory(const URL& url) {
    return url.hasDirectoryPath() || !url.isFileURL() ? url : URL::fileURL(url.path(), PathKind::Directory);
}

bool isTooLong(const std::optional<URL>& url) {
    return url && (url->relativeString().size() > limits::kFieldMax ||
                   (url->baseURL() != nullptr && url->baseURL()->absoluteString().size() > limits::kFieldMax));
}

/// The URL that a record keeps: an application is its bundle, what lies in a bundle is kept relative to it.
std::optional<URL> itemURL(KSWItemType type, const std::optional<URL>& bundleURL, const std::optional<URL>& url) {
    if ((type & KSWItemTypeApp) != 0) {
        return bundleURL;
    }
    const bool isInBundle = bundleURL && url && !url->relativePath().starts_with('/');
    return isInBundle ? URL::fileURL(url->relativePath(), *bundleURL) : url;
}

}  // namespace

Result<LaunchItem> checked(const Subject& subject, const std::optional<URL>& bundleURL, const Caller& caller) {
    LaunchItem item;
    item.type = typeOf(subject.type, caller);
    const bool isOneKind = std::has_single_bit(item.type & KSWItemTypeAll);
    if (!isOneKind || subject.uid == kNoUser || isTooLong(bundleURL) || isTooLong(subject.url) ||
        !KSWItemTypeValidateRegistrationParameters(item.type, bundleURL, subject.url)) {
        return invalidParameter();
    }
    if (bundleURL) {
        item.bundleURL = asDirectory(*bundleURL);
    }
    item.url = itemURL(item.type, item.bundleURL, subject.url);
    item.uid = subject.uid;
    item.scope = scopeOf(item.type, subject.uid);
    if (!item.url || (subject.configuration && !isUsable(*subject.configuration))) {
        return invalidParameter();
    }
    item.configuration = subject.configuration;
    return item;
}

}  // namespace ksw::daemon
