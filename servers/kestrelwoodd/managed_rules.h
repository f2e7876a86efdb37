// managed_rules.h: what device management says of items: the rules in its payloads, and the jobs that it has
// installed. Knows no store: it is built from what is kept, and never changes afterwards.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/values.h>

#include "platform/base/result.h"
#include "servers/kestrelwoodd/store.h"

namespace ksw::daemon {

/// What the rules that match an item say of it together. Who forbids it prevails over who allows it.
struct Ruling {
    bool allows = false;
    bool disallows = false;
    bool hides = false;

    bool isAny() const { return allows || disallows || hides; }
    bool prevailsAllowed() const { return allows && !disallows; }
    /// The bits of a disposition that are not the user's to choose.
    KSWDisposition decided() const;
    /// The disposition of an item for which its user chose this one.
    KSWDisposition over(KSWDisposition chosen) const;
};

/// A job that device management has installed.
struct ManagedJob {
    std::string label;
    std::string identifier;  ///< Of its record, which is the system's.
    bool wasThere = false;   ///< The record was, before the job was managed.
};

/// A payload is shared by all versions that have it.
using Payloads = std::map<std::string, std::shared_ptr<const Dictionary>>;
using ManagedJobs = std::map<std::string, ManagedJob>;  ///< By path.

/// All of it. Any thread.
class Managed {
public:
    using Pointer = std::shared_ptr<const Managed>;

    /// Payloads, all their rules together, and jobs.
    static constexpr std::size_t kPayloadsMax = 256;
    static constexpr std::size_t kRulesMax = 16'384;
    static constexpr std::size_t kJobsMax = 4'096;

    /// Error: KSWErrorInvalidParameter, when a payload has rules that are none (docs/kestrelwoodd.md says what they
    /// look like), or there are too many.
    static Result<Pointer> of(Payloads payloads, ManagedJobs jobs);

    const Payloads& payloads() const { return payloads_; }
    const ManagedJobs& jobs() const { return jobs_; }
    /// Whether there is nothing that could stand above an item.
    bool isEmpty() const { return rules_ == 0 && jobs_.empty(); }

    /// What stands above an item of a user. A job is allowed as if a rule said so.
    Ruling rulingFor(Uid uid, const KSWItem& item) const;
    bool isJob(Uid uid, const std::string& identifier) const;

private:
    /// What a rule looks at.
    enum Match : std::uint8_t { kIdentifier, kLabel, kLabelPrefix, kBundle, kTeam, kDeveloper, kMatches };
    struct TextHash : std::hash<std::string_view> {
        using is_transparent = void;  // NOLINT(readability-identifier-naming): the standard's name
    };
    using Effects = std::unordered_map<std::string, Ruling, TextHash, std::equal_to<>>;

    Managed() = default;
    bool addRules(const Dictionary& payload);
    bool addRule(const Value& rule);
    void look(Match match, std::string_view value, Ruling& ruling) const;
    void lookForPrefixes(std::string_view label, Ruling& ruling) const;

    Payloads payloads_;
    ManagedJobs jobs_;
    std::set<std::string, std::less<>> jobIdentifiers_;
    std::array<Effects, kMatches> effects_;
    std::set<std::size_t> prefixLengths_;
    std::size_t rules_ = 0;
};

/// Puts the rules above an item that is as its user chose, who chose what is answered. Absent: no rule is about it.
std::optional<OwnChoice> govern(const Managed& managed, Uid uid, KSWItem& item);

/// The flags without what a rule makes of them, managed or not.
KSWItemFlags withManaged(KSWItemFlags flags, bool isManaged);
/// The flags of an item under a rule.
KSWItemFlags ruledFlags(KSWItemFlags flags, const Ruling& ruling);

}  // namespace ksw::daemon
