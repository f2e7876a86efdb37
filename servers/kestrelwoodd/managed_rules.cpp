#include "servers/kestrelwoodd/managed_rules.h"

#include <algorithm>

#include <kestrelwood/KSWErrors.h>

#include "platform/base/limits.h"
#include "servers/kestrelwoodd/record.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

namespace {

constexpr std::string_view kRules = "Rules";
constexpr std::string_view kMatch = "Match";
constexpr std::string_view kValue = "Value";
constexpr std::string_view kEffect = "Effect";

/// In the order of what a rule looks at.
constexpr std::array<std::string_view, 6> kMatchNames = {"Identifier",       "Label",          "LabelPrefix",
                                                         "BundleIdentifier", "TeamIdentifier", "Developer"};

std::optional<Ruling> rulingNamed(std::string_view effect) {
    if (effect == "Allow") {
        return Ruling{true, false, false};
    }
    if (effect == "Disallow") {
        return Ruling{false, true, false};
    }
    if (effect == "Hide") {
        return Ruling{false, false, true};
    }
    return std::nullopt;
}

void add(Ruling& ruling, const Ruling& other) {
    ruling.allows |= other.allows;
    ruling.disallows |= other.disallows;
    ruling.hides |= other.hides;
}

}  // namespace

KSWDisposition Ruling::decided() const {
    KSWDisposition bits = hides ? KSWDispositionHidden : 0;
    if (disallows) {
        bits |= KSWDispositionAllowed;
    } else if (allows) {
        bits |= KSWDispositionEnabled | KSWDispositionAllowed | KSWDispositionPendingAuthorization;
    }
    return bits;
}

KSWDisposition Ruling::over(KSWDisposition chosen) const {
    KSWDisposition disposition = chosen & ~decided();
    if (prevailsAllowed()) {
        disposition |= KSWDispositionEnabled | KSWDispositionAllowed;
    }
    return disposition | (hides ? KSWDispositionHidden : 0);
}

Result<Managed::Pointer> Managed::of(Payloads payloads, ManagedJobs jobs) {
    const std::shared_ptr<Managed> managed(new Managed());
    bool isUsable = payloads.size() <= kPayloadsMax && jobs.size() <= kJobsMax;
    for (const auto& [identifier, payload] : payloads) {
        isUsable = isUsable && managed->addRules(*payload);
    }
    if (!isUsable) {
        return KSWErrorWithCode(KSWErrorInvalidParameter);
    }
    for (const auto& [path, job] : jobs) {
        managed->jobIdentifiers_.insert(job.identifier);
    }
    managed->payloads_ = std::move(payloads);
    managed->jobs_ = std::move(jobs);
    return Pointer(managed);
}

bool Managed::addRules(const Dictionary& payload) {
    const auto found = payload.find(kRules);
    if (found == payload.end()) {
        return true;
    }
    const Array* rules = found->second.as<Array>();
    return rules != nullptr && rules_ + rules->size() <= kRulesMax &&
           std::all_of(rules->begin(), rules->end(), [this](const Value& rule) { return addRule(rule); });
}

bool Managed::addRule(const Value& rule) {
    static_assert(kMatchNames.size() == kMatches);
    const Dictionary* parts = rule.as<Dictionary>();
    if (parts == nullptr) {
        return false;
    }
    const std::string* match = find<std::string>(*parts, kMatch);
    const std::string* value = find<std::string>(*parts, kValue);
    const std::string* effect = find<std::string>(*parts, kEffect);
    const std::optional<Ruling> ruling = effect == nullptr ? std::nullopt : rulingNamed(*effect);
    if (match == nullptr || value == nullptr || value->empty() || value->size() > limits::kFieldMax || !ruling) {
        return false;
    }
    const auto* const name = std::find(kMatchNames.begin(), kMatchNames.end(), *match);
    if (name == kMatchNames.end()) {
        return false;
    }
    const auto number = static_cast<std::size_t>(name - kMatchNames.begin());
    add(effects_[number][*value], *ruling);
    if (number == kLabelPrefix) {
        prefixLengths_.insert(value->size());
    }
    ++rules_;
    return true;
}

void Managed::look(Match match, std::string_view value, Ruling& ruling) const {
    const Effects& effects = effects_[match];
    if (effects.empty()) {
        return;
    }
    if (const auto found = effects.find(value); found != effects.end()) {
        add(ruling, found->second);
    }
}

void Managed::lookForPrefixes(std::string_view label, Ruling& ruling) const {
    for (const std::size_t length : prefixLengths_) {
        if (length > label.size()) {
            return;
        }
        look(kLabelPrefix, label.substr(0, length), ruling);
    }
}

Ruling Managed::rulingFor(Uid uid, const KSWItem& item) const {
    Ruling ruling;
    if (!item.identifier()) {
        return ruling;
    }
    const std::string& identifier = *item.identifier();
    ruling.allows = isJob(uid, identifier);
    if (rules_ == 0) {
        return ruling;
    }
    look(kIdentifier, identifier, ruling);
    if (daemon::isJob(item.type())) {
        // Behind the number of its kind.
        const std::string_view label = std::string_view(identifier).substr(identifier.find('.') + 1);
        look(kLabel, label, ruling);
        lookForPrefixes(label, ruling);
    }
    if (item.bundleIdentifier()) {
        look(kBundle, *item.bundleIdentifier(), ruling);
    }
    if (item.teamIdentifier()) {
        look(kTeam, *item.teamIdentifier(), ruling);
    }
    if (!effects_[kDeveloper].empty()) {
        const bool isDeveloper = item.intersectsType(KSWItemTypeDeveloper);
        look(kDeveloper, isDeveloper ? identifier : developerIdentifierOf(item), ruling);
    }
    return ruling;
}

bool Managed::isJob(Uid uid, const std::string& identifier) const {
    return uid == kEveryUser && jobIdentifiers_.contains(identifier);
}

KSWItemFlags withManaged(KSWItemFlags flags, bool isManaged) {
    return (flags & ~(KSWItemFlagManaged | kAllowedByRule)) | (isManaged ? KSWItemFlagManaged : 0);
}

KSWItemFlags ruledFlags(KSWItemFlags flags, const Ruling& ruling) {
    return withManaged(flags, true) | (ruling.prevailsAllowed() ? kAllowedByRule : 0);
}

std::optional<OwnChoice> govern(const Managed& managed, Uid uid, KSWItem& item) {
    const Ruling ruling = managed.rulingFor(uid, item);
    if (!ruling.isAny()) {
        return std::nullopt;
    }
    const OwnChoice choice{item.disposition(), item.flags()};
    item.setDisposition(ruling.over(choice.disposition));
    item.setFlags(ruledFlags(choice.flags, ruling));
    return choice;
}

}  // namespace ksw::daemon
