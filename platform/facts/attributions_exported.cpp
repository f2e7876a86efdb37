#include <kestrelwood/KSWAttributions.h>

#include "platform/base/never_destroyed.h"
#include "platform/facts/attributions.h"

namespace {

using ksw::Dictionary;
using Text = std::optional<std::string>;
using Texts = std::optional<std::vector<std::string>>;

ksw::facts::AttributionTables& tables() {
    static ksw::NeverDestroyed<ksw::facts::AttributionTables> instance;
    return *instance;
}

std::optional<Dictionary> copied(const Dictionary* dictionary) {
    return dictionary == nullptr ? std::nullopt : std::optional(*dictionary);
}

}  // namespace

const Dictionary& AttributionsByLabel() {
    return tables().merged();
}

std::optional<Dictionary> InternalAttributionsByLabel() {
    return copied(tables().internal());
}

std::optional<Dictionary> AttributionInfoForLabelAndTeamID(const Text& label, const Text& teamIdentifier) {
    return copied(tables().entry(label, teamIdentifier));
}

Text CuratedDeveloperNameForLabelAndTeamID(const Text& label, const Text& teamIdentifier) {
    return tables().developerName("CuratedDeveloperNameForLabelAndTeamID", label, teamIdentifier);
}

Text CuratedInternalNameForLabel(const Text& label) {
    return tables().internalName("CuratedInternalNameForLabel", label);
}

Texts CuratedAssociatedBundleIdentifiersForLabelAndTeamID(const Text& label, const Text& teamIdentifier) {
    return tables().associatedBundleIdentifiers("CuratedAssociatedBundleIdentifiersForLabelAndTeamID", label,
                                                teamIdentifier);
}

Texts CuratedInternalAssociatedBundleIdentifiersForLabel(const Text& label) {
    return tables().internalAssociatedBundleIdentifiers("CuratedInternalAssociatedBundleIdentifiersForLabel",
                                                        label);
}

bool AttributionsContainsLabelOrAttributionValue(const Text& labelOrAttribution) {
    return tables().containsLabelOrName(labelOrAttribution);
}
