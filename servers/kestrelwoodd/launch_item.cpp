#include "servers/kestrelwoodd/launch_item.h"

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

/// Takes the value under `key` into `slot`; false when it is something else than a T of bounded size.
template <class T>
bool take(const Dictionary& configuration, std::string_view key, std::optional<T>& slot) {
    const auto found = configuration.find(key);
    if (found == configuration.end() || found->second.isNull()) {
        return true;
    }
    const T* value = found->second.as<T>();
    if (value == nullptr || value->size() > limits::kFieldMax) {
        return false;
    }
    slot = *value;
    return true;
}

bool takeTexts(const Dictionary& configuration, std::string_view key,
               std::optional<std::vector<std::string>>& slot) {
    const auto found = configuration.find(key);
    if (found == configuration.end() || found->second.isNull()) {
        return true;
    }
    const Array* values = found->second.as<Array>();
    if (values == nullptr) {
        return false;
    }
    std::vector<std::string> texts;
    texts.reserve(std::min(values->size(), limits::kReserveMax));
    for (const Value& value : *values) {
        const std::string* text = value.as<std::string>();
        if (text == nullptr || text->size() > limits::kFieldMax) {
            return false;
        }
        texts.push_back(*text);
    }
    slot = std::move(texts);
    return true;
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
    return bundleURL && url ? URL::fromString(url->relativeString(), *bundleURL) : url;
}

}  // namespace

Result<Configuration> readConfiguration(const Dictionary& configuration) {
    Configuration read;
    const bool ok = take(configuration, KSWConfigLabel, read.label) &&
                    take(configuration, KSWConfigExecutablePath, read.executablePath) &&
                    takeTexts(configuration, KSWConfigArguments, read.arguments) &&
                    take(configuration, KSWConfigSHA256Checksum, read.sha256);
    if (!ok) {
        return invalidParameter();
    }
    return read;
}

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
    item.scope = scopeOf(item.type, subject.uid);
    if (!item.url) {
        return invalidParameter();
    }
    if (subject.configuration) {
        Result<Configuration> configuration = readConfiguration(*subject.configuration);
        if (!configuration) {
            return configuration.error();
        }
        item.configuration = *std::move(configuration);
        item.hasConfiguration = true;
    }
    return item;
}

}  // namespace ksw::daemon
