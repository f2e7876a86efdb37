// item_factories.cpp: items made of other items, of containers, and of jobs.

#include <algorithm>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

#include "model/item/item_fields.h"

using ksw::URL;

namespace {

/// Where device management puts the jobs that it installs.
constexpr std::string_view kManagedJobs = "/private/var/db/ManagedConfigurationFiles/KestrelwoodServices/";

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;

/// A path that leads out of the folder again is somebody else's.
bool isManagedJob(const URL& url) {
    const std::string path = url.path();
    const std::vector<std::string> components = ksw::pathComponents(path);
    return path.starts_with(kManagedJobs) &&
           std::find(components.begin(), components.end(), "..") == components.end();
}

/// A daemon runs for everybody, so it needs to be allowed, unless its container's daemons were already.
KSWDisposition firstDisposition(const KSWItem& item, const KSWItem::Pointer& container) {
    const bool isAllowed = !item.isDaemon() ||
                           (container != nullptr && container->containsDaemon() && container->isAggregateAllowed());
    return isAllowed ? kLaunchable : KSWDispositionEnabled;
}

}  // namespace

KSWItem::OptionalString KSWItem::identifierOfFile(KSWItemType type, const URL& url) {
    return ItemIdentifierForURLAndType(type, url);
}

void KSWItem::startInContainer(const URL& url, const Pointer& container) {
    _initPropertiesWithURL(url, container == nullptr ? std::nullopt : container->url());
    setDisposition(firstDisposition(*this, container));
    if (container != nullptr) {
        setDeveloperName(container->developerName());
        setContainer(container);
    }
}

void KSWItem::startAsDeveloperOf(const KSWItem& item) {
    if (!item.isUnknownDeveloper()) {
        setName(item.developerName());
        setDeveloperName(item.developerName());
    }
    setDisposition(KSWDispositionAllowed);
    setManaged(item.isManaged());
    setCurated(item.isCurated());
}

KSWItem::OptionalString KSWItem::identifierOfDeveloper(const KSWItem& item) {
    return item.isUnknownDeveloper() ? std::string(ksw::kUnknownDeveloper) : item.developerName();
}

void KSWItem::startAsLegacyJob(const std::optional<ksw::Dictionary>& config, std::optional<URL>* containerURL) {
    setName(ItemNameForStewardPlist(config));
    setDisposition(kLaunchable);
    if (containerURL != nullptr) {
        *containerURL = setPropertiesWithKSWConfig(config);
    }
    if (url() && isManagedJob(*url())) {
        setManaged(true);
    }
}

void KSWItem::registerParentApps(const std::optional<ksw::Dictionary>& config, ksw::Uid uid) {
    const auto* path = config ? ksw::find<std::string>(*config, KSWConfigExecutablePath) : nullptr;
    RegisterParentApps(path == nullptr ? std::nullopt : std::optional(*path), uid);
}

void KSWItem::startAsCopyOf(const KSWItem& record) {
    setFlags(record.flags());
    setUrl(record.url());
    setModificationDate(record.modificationDate());
    setExecutablePath(record.executablePath());
    setSha256(record.sha256());
    setExecutableModificationDate(record.executableModificationDate());
    setProgramArguments(record.programArguments());
    setUuid(record.uuid());
    setName(record.name());
    setDeveloperName(record.developerName());
    setTeamIdentifier(record.teamIdentifier());
    setDesignatedRequirement(record.designatedRequirement());
    setLightweightRequirement(record.lightweightRequirement());
    setGeneration(record.generation());
    setDisposition(record.disposition());
    setBookmark(record.bookmark());
    setBundleIdentifier(record.bundleIdentifier());
    setAssociatedBundleIdentifiers(record.associatedBundleIdentifiers());
}
