// KSWAttributions.h: the names of developers: those in the certificates of signers, and curated ones.
//
// Tables that are shipped with the system say for the label of a job, signed by a certain team, which developer or
// product to show and which applications it belongs to. On a host with internal content a second, internal table
// adds to them.
//
// The tables are read on first use and kept for the life of the process: later changes of the files are not seen. A
// table that cannot be read is empty. Any thread; the first call blocks for the reading. A value of the wrong kind
// in a table is logged as an error and taken for absent.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <kestrelwood/code.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values/audit_token.h>
#include <kestrelwood/values/url.h>
#include <kestrelwood/values/value.h>

/// The developer of code: the first organization in its signer's own certificate, without white space at both ends;
/// the platform's maker too. Absent when the signature does not hold or has no signer, and when there is no
/// organization or nothing else in it. The text is the signer's: it may hold control characters and marks of
/// direction, and whoever shows it sees to those. Blocks for the reading of the code.
KSW_EXPORT std::optional<std::string> copyDeveloperName(const ksw::Code& code);

/// The developer of what a process runs; "Velmont Inc." for the platform's maker. Absent also when the process has
/// ended. Throws `std::invalid_argument` ("token is null") for a null pointer.
KSW_EXPORT std::optional<std::string> DeveloperNameForAuditToken(const ksw::AuditToken* token);

/// The developer of the code at a file URL. Absent also without a URL, and, other than for a process, for the
/// platform's maker: what is part of the platform is no developer's.
KSW_EXPORT std::optional<std::string> DeveloperNameForURL(const std::optional<ksw::URL>& url);

/// The same for the code at a path.
KSW_EXPORT std::optional<std::string> DeveloperNameForPath(const std::optional<std::string>& path);

/// The public table with the internal one in it: an entry by label, a dictionary with the keys "TeamIdentifier",
/// "Attribution" and "AssociatedBundleIdentifiers". It lives as long as the process.
KSW_EXPORT const ksw::Dictionary& AttributionsByLabel();

/// The internal table; absent on a host without internal content.
KSW_EXPORT std::optional<ksw::Dictionary> InternalAttributionsByLabel();

/// The entry of the label, when its "TeamIdentifier" is this one. Absent otherwise, and without a label or team.
KSW_EXPORT std::optional<ksw::Dictionary> AttributionInfoForLabelAndTeamID(
    const std::optional<std::string>& label, const std::optional<std::string>& teamIdentifier);

/// The name to show for the label's job when this team has signed it. Absent without an entry or a name in it.
KSW_EXPORT std::optional<std::string> CuratedDeveloperNameForLabelAndTeamID(
    const std::optional<std::string>& label, const std::optional<std::string>& teamIdentifier);

/// The name in the internal table, whoever has signed the job.
KSW_EXPORT std::optional<std::string> CuratedInternalNameForLabel(const std::optional<std::string>& label);

/// The bundle identifiers of the applications that the label's job belongs to when this team has signed it. Absent,
/// with a word in the log, without an entry or such a list in it; a list with anything but strings in it is none.
KSW_EXPORT std::optional<std::vector<std::string>> CuratedAssociatedBundleIdentifiersForLabelAndTeamID(
    const std::optional<std::string>& label, const std::optional<std::string>& teamIdentifier);

/// The same from the internal table, whoever has signed the job.
KSW_EXPORT std::optional<std::vector<std::string>> CuratedInternalAssociatedBundleIdentifiersForLabel(
    const std::optional<std::string>& label);

/// Whether the text is a label, or the "Attribution" of any entry. False for none.
KSW_EXPORT bool AttributionsContainsLabelOrAttributionValue(const std::optional<std::string>& labelOrAttribution);

namespace ksw {
using ::AttributionInfoForLabelAndTeamID;
using ::AttributionsByLabel;
using ::AttributionsContainsLabelOrAttributionValue;
using ::copyDeveloperName;
using ::CuratedAssociatedBundleIdentifiersForLabelAndTeamID;
using ::CuratedDeveloperNameForLabelAndTeamID;
using ::CuratedInternalAssociatedBundleIdentifiersForLabel;
using ::CuratedInternalNameForLabel;
using ::DeveloperNameForAuditToken;
using ::DeveloperNameForPath;
using ::DeveloperNameForURL;
using ::InternalAttributionsByLabel;
}  // namespace ksw
