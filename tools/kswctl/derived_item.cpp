#include "tools/kswctl/derived_item.h"

#include <memory>
#include <utility>
#include <variant>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWTypes.h>

#include "tools/kswctl/subject.h"

namespace tools::kswctl {
namespace {

using Text = std::optional<std::string>;

/// Legacy jobs come to a user's applications only once somebody registers them, so the configuration is applied
/// here.
KSWItem::Pointer bareItemOf(const Subject& subject, const Text& identifier, const KSWItem::Pointer& application) {
    const auto type = static_cast<KSWItemType>(subject.type);
    if (application != nullptr) {
        return KSWItem::itemWithType(type, subject.itemURL, identifier, application);
    }
    return KSWItem::legacyAgentOrDaemonItemWithType(type, subject.itemURL, identifier, /*config=*/std::nullopt,
                                                    /*containerURL=*/nullptr, ksw::kNoUser);
}

std::string placeOf(const Text& path, const Subject& subject) {
    if (!path || path->starts_with('/') || !subject.bundleURL) {
        return path.value_or("");
    }
    return subject.bundleURL->path() + "/" + *path;
}

void applyConfiguration(DerivedItem& derived, const Subject& subject) {
    KSWItem& item = *derived.item;
    if (Text name = ItemNameForStewardPlist(derived.configuration)) {
        item.setName(std::move(name));
    }
    const auto scratch = KSWItem::itemWithType(item.type(), item.identifier());
    derived.isLauncher = scratch->setExecutablePathFromLauncherTargetWithConfig(derived.configuration);
    derived.vouching = item.setPropertiesWithKSWConfig(derived.configuration);
    derived.executable = placeOf(item.executablePath(), subject);
    const auto* program = ksw::find<std::string>(*derived.configuration, KSWConfigExecutablePath);
    derived.program = !derived.isLauncher  ? derived.executable
                      : program != nullptr ? placeOf(*program, subject)
                                           : "";
}

}  // namespace

Outcome<DerivedItem> derivedItemOf(const Options& options) {
    const Outcome<Subject> outcome = subjectOf(options, JobFile::Read);
    if (const auto* complaint = std::get_if<Complaint>(&outcome)) {
        return *complaint;
    }
    const auto& subject = std::get<Subject>(outcome);
    const auto type = static_cast<KSWItemType>(subject.type);
    DerivedItem derived;
    derived.configuration =
        (type & (KSWItemTypeAgent | KSWItemTypeDaemon)) != 0 ? subject.configuration : std::nullopt;
    if (subject.bundleURL) {
        derived.application = KSWItem::itemWithType(
            KSWItemTypeApp, *subject.bundleURL, ItemIdentifierForURLAndType(KSWItemTypeApp, *subject.bundleURL));
    }
    derived.item = bareItemOf(
        subject,
        ItemIdentifierWithRegistrationInfo(type, subject.bundleURL, subject.itemURL, subject.configuration),
        derived.application);
    if (derived.configuration) {
        applyConfiguration(derived, subject);
    } else {
        derived.executable = derived.program = placeOf(subject.itemURL.relativePath(), subject);
    }
    derived.developer = KSWItem::developerItemForItem(*derived.item);
    return derived;
}

}  // namespace tools::kswctl
