#include "model/config/attribution.h"

#include <set>
#include <utility>

#include <kestrelwood/KSWAttributions.h>
#include <kestrelwood/KSWCodeSignInfo.h>

#include "model/config/application_access.h"
#include "platform/host/log.h"

namespace ksw::config {

namespace {

using OptionalURL = std::optional<URL>;
using host::mainLog;

constexpr Literal kFunction{"-[KSWItem setPropertiesWithKSWConfig:]"};
/// The team of the platform's own code. The registry knows none for its applications; their signatures say it.
constexpr std::string_view kSystemsTeam = "SYSTEMAPPS";

OptionalString signedTeam(const URL& application) {
    const auto info = KSWCodeSignInfo::codeSignInfoForURL(application);
    return info == nullptr ? std::nullopt : info->teamIdentifier();
}

/// The first of the applications that is of the item's own team: a job may claim any, but only one that who made it
/// has made as well can vouch for it. Nobody's job goes with nobody's application.
OptionalURL vouchingApplication(KSWItem& item, const Strings& identifiers) {
    const std::optional<ApplicationAccess> applications = ApplicationAccess::asConsoleUser(kFunction);
    if (!applications) {
        return std::nullopt;
    }
    // To look at a signature takes time, and a job may name one application as often as it likes.
    std::set<std::string_view> others;
    for (const std::string& identifier : identifiers) {
        if (others.contains(identifier)) {
            continue;
        }
        const std::optional<Application> application = applications->find(identifier);
        if (!application) {
            mainLog.info("%s: no Almanac record for bundle identifier '%{public}@", kFunction, identifier);
            continue;
        }
        const bool isSystems = item.teamIdentifier() == kSystemsTeam;
        if ((isSystems ? signedTeam(application->url()) : application->team()) == item.teamIdentifier()) {
            item.setAssociatedBundleIdentifiers(identifiers);
            return application->url();
        }
        others.insert(identifier);
    }
    return std::nullopt;
}

OptionalURL attributeToTeam(KSWItem& item, const OptionalString& label, const std::optional<Strings>& listed,
                            OptionalString signer) {
    const OptionalString& team = item.teamIdentifier();
    if (listed && !listed->empty()) {
        item.setDeveloperName(std::move(signer));
        return vouchingApplication(item, *listed);
    }
    if (!AttributionInfoForLabelAndTeamID(label, team)) {
        item.setDeveloperName(std::move(signer));
        return std::nullopt;
    }
    item.setDeveloperName(CuratedDeveloperNameForLabelAndTeamID(label, team));
    item.setAssociatedBundleIdentifiers(CuratedAssociatedBundleIdentifiersForLabelAndTeamID(label, team));
    item.setCurated(true);
    return std::nullopt;
}

OptionalURL attributeToCurator(KSWItem& item, const OptionalString& label, OptionalString name) {
    item.setDeveloperName(std::move(name));
    const std::optional<Strings> curated = CuratedInternalAssociatedBundleIdentifiersForLabel(label);
    item.setAssociatedBundleIdentifiers(curated);
    OptionalURL vouching = curated && !curated->empty() ? vouchingApplication(item, *curated) : std::nullopt;
    if (!vouching) {
        item.setCurated(true);
    }
    return vouching;
}

}  // namespace

OptionalURL attribute(KSWItem& item, const Configuration& configuration, OptionalString signer) {
    const OptionalString label = configuration.text(KSWConfigLabel);
    const std::optional<Strings> listed = configuration.texts(KSWConfigBundleIdentifiers);
    if (item.teamIdentifier()) {
        return attributeToTeam(item, label, listed, std::move(signer));
    }
    if (OptionalString name = CuratedInternalNameForLabel(label)) {
        return attributeToCurator(item, label, std::move(name));
    }
    item.setDeveloperName(std::move(signer));
    if (listed && !listed->empty()) {
        mainLog.error(
            "Bundle identifiers from steward plist ignored because the executable doesn't have a Team ID. "
            "Item=%{public}@",
            item);
    }
    return std::nullopt;
}

}  // namespace ksw::config
