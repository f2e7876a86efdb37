#include <kestrelwood/KSWAttributions.h>
#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFunctions.h>

#include "platform/base/limits.h"
#include "platform/facts/file_inside.h"
#include "platform/host/file_facts.h"
#include "servers/kestrelwoodd/given_item.h"
#include "servers/kestrelwoodd/launch_item.h"
#include "servers/kestrelwoodd/reading_as.h"

namespace ksw::daemon {

namespace {

std::optional<std::string> pathOf(const std::optional<URL>& url) {
    return url && url->isFileURL() ? std::optional(url->path()) : std::nullopt;
}

/// An executable that is not named from the root lies in the item's bundle.
std::optional<std::string> executableOf(const KSWItem& record) {
    const std::optional<std::string>& path = record.executablePath();
    if (!path || path->starts_with('/') || record.isLegacy() || !record.url() ||
        record.url()->baseURL() == nullptr) {
        return path;
    }
    return pathOf(URL::fileURL(*path, *record.url()->baseURL()));
}

bool isApplication(KSWItemType type) {
    return (type & KSWItemTypeApp) != 0;
}

/// The bundle that the item lies in; absent for one that is a bundle itself, or lies elsewhere.
std::optional<URL> bundleOf(const LaunchItem& item) {
    return isApplication(item.type) ? std::nullopt : item.bundleURL;
}

bool canIdentify(KSWItemType type, const std::string& identifier) {
    return identifier.size() <= limits::kFieldMax && identifierFits(type & KSWItemTypeAll, identifier);
}

/// What is known of the item's job: what the request says, else what its own file does.
std::optional<Dictionary> configurationOf(const LaunchItem& item) {
    if (item.configuration) {
        return item.configuration;
    }
    const std::optional<Dictionary> job = readPropertyListFile(item.url->absoluteURL());
    return job ? configurationFromJob(*job) : std::nullopt;
}

/// An application is known by what its code is signed with; one that nobody signed by where it lies.
std::string identifierOfApplication(const URL& bundle) {
    const std::optional<std::string> identifier = ItemIdentifierForURLAndType(KSWItemTypeApp, bundle);
    if (identifier && canIdentify(KSWItemTypeApp, *identifier)) {
        return *identifier;
    }
    const Result<std::string> path = host::canonicalPath(bundle.path());
    const URL place = URL::fileURL(path ? *path : bundle.path(), PathKind::Directory);
    return *ComposedItemIdentifier(KSWItemTypeApp, place.absoluteString());
}

bool isTooLong(const std::optional<std::vector<std::string>>& texts) {
    std::size_t size = 0;
    for (const std::string& text : texts.value_or(std::vector<std::string>())) {
        size += text.size();
    }
    return size > limits::kFieldMax;
}

/// Leaves out what no record can hold. Were the item refused for it, it would be in no list, for nobody to forbid.
void makeFit(KSWItem& item) {
    const std::string name = item.developerName();
    item.setDeveloperName(name.empty() ? std::nullopt : usableDeveloperName(name));
    if (isTooLong(item.programArguments())) {
        item.setProgramArguments(std::nullopt);
    }
    if (isTooLong(item.associatedBundleIdentifiers())) {
        item.setAssociatedBundleIdentifiers(std::nullopt);
    }
    if (item.bundleIdentifier() && item.bundleIdentifier()->size() > limits::kFieldMax) {
        item.setBundleIdentifier(std::nullopt);
    }
}

ItemPointer applicationAt(const URL& bundle) {
    ItemPointer application = KSWItem::itemWithType(KSWItemTypeApp, bundle, identifierOfApplication(bundle));
    application->setDeveloperName(DeveloperNameForURL(bundle));
    makeFit(*application);
    application->setFlags(application->flags() | kContainsOnly);
    return application;
}

/// Only the administrator can have put a file where device management keeps its own.
void checkManaged(KSWItem& item, const Caller& caller) {
    const bool isThere = item.modificationDate() != 0;
    item.setManaged(item.isManaged() && (isThere || caller.isAdministrator()));
}

/// Whether the job's executable can lie in an application, of which users are told.
bool mayRunInApplication(const std::optional<Dictionary>& job) {
    const std::string* path = job ? find<std::string>(*job, KSWConfigExecutablePath) : nullptr;
    return path != nullptr && path->find(".app/") != std::string::npos;
}

ItemFacts factsOfLegacyJob(const LaunchItem& item, const std::string& identifier, Purpose purpose,
                           const Caller& caller) {
    const std::optional<Dictionary> job = configurationOf(item);
    const Uid told = purpose == Purpose::Record && mayRunInApplication(job) ? item.uid : kEveryUser;
    std::optional<URL> vouching;
    ItemFacts facts{
        KSWItem::legacyAgentOrDaemonItemWithType(item.type, *item.url, identifier, job, &vouching, told), nullptr};
    facts.application = vouching ? applicationAt(*vouching) : nullptr;
    checkManaged(*facts.item, caller);
    return facts;
}

ItemFacts factsInBundle(const LaunchItem& item, const std::string& identifier) {
    ItemFacts facts{nullptr, applicationAt(*bundleOf(item))};
    facts.item = KSWItem::itemWithType(item.type, *item.url, identifier, facts.application);
    if (isJob(item.type)) {
        const std::optional<Dictionary> configuration = configurationOf(item);
        facts.item->setName(ItemNameForStewardPlist(configuration));
        // The bundle is the container, whichever others vouch for the job.
        static_cast<void>(facts.item->setPropertiesWithKSWConfig(configuration));
    } else {
        facts.item->setDeveloperName(DeveloperNameForURL(facts::fileOfItem(*item.url, bundleOf(item))));
    }
    facts.item->setContainer(nullptr);
    return facts;
}

ItemFacts factsOfFile(const LaunchItem& item, const std::string& identifier) {
    ItemFacts facts{KSWItem::itemWithType(item.type, *item.url, identifier), nullptr};
    facts.item->setDeveloperName(DeveloperNameForURL(item.url));
    return facts;
}

}  // namespace

std::optional<std::string> codeOf(const KSWItem& record) {
    const std::optional<std::string> path = isJob(record.type()) ? executableOf(record) : pathOf(record.url());
    return path && path->starts_with('/') ? path : std::nullopt;
}

std::optional<std::string> identify(const LaunchItem& item, const Caller& caller) {
    const bool isLabelled =
        isJob(item.type) && item.configuration && find<std::string>(*item.configuration, KSWConfigLabel) != nullptr;
    // A label is found without a look at any file.
    std::optional<ReadingAs> rights;
    if (!isLabelled && !rights.emplace(caller).ok()) {
        return std::nullopt;
    }
    std::optional<std::string> identifier = ItemIdentifierWithRegistrationInfo(
        item.type, item.bundleURL, isApplication(item.type) ? std::nullopt : item.url, item.configuration);
    return identifier && canIdentify(item.type, *identifier) ? std::move(identifier) : std::nullopt;
}

Result<ItemFacts> factsOf(const LaunchItem& item, const std::string& identifier, Purpose purpose,
                          const Caller& caller) {
    const ReadingAs rights(caller);
    if (!rights.ok()) {
        return KSWErrorWithCode(KSWErrorGeneric);
    }
    if (bundleOf(item) && !facts::fileOfItem(*item.url, bundleOf(item))) {
        return KSWErrorWithCode(KSWErrorInvalidParameter);
    }
    const bool isLegacyJob = isJob(item.type) && (item.type & KSWItemTypeLegacyBit) != 0;
    ItemFacts facts = isLegacyJob      ? factsOfLegacyJob(item, identifier, purpose, caller)
                      : bundleOf(item) ? factsInBundle(item, identifier)
                                       : factsOfFile(item, identifier);
    makeFit(*facts.item);
    return facts;
}

ItemPointer applicationAround(const KSWItem& item, const Caller& caller) {
    const bool canContain = item.intersectsType(KSWItemTypeAll & ~(KSWItemTypeUserItem | KSWItemTypeApp));
    const URL* bundle = canContain && !item.isLegacy() && item.url() ? item.url()->baseURL() : nullptr;
    const ReadingAs rights(caller);
    const bool isInside = bundle != nullptr && rights.ok() && bundle->isFileURL() &&
                          facts::fileOfItem(*item.url(), *bundle).has_value();
    return isInside ? applicationAt(*bundle) : nullptr;
}

void readMaker(KSWItem& record, const Caller& caller) {
    takeMaker(record, makerOf(codeOf(record), caller));
}

}  // namespace ksw::daemon
