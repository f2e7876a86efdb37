// KSWFunctions.h: every function that belongs to no class: identifiers of items, which the management daemon
// composes by the same rules, job files, bundles, who sits at the machine, and what is switched on; those about
// code signatures and the names of developers are in the headers that this one includes. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/KSWAttributions.h>
#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/export.h>
#include <kestrelwood/values/audit_token.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/string_constant.h>
#include <kestrelwood/values/url.h>
#include <kestrelwood/values/value.h>

/// The identifier of an item of this kind: "8.my.label" for an agent; the component itself for a user item and a
/// developer. The component is a signing identifier or a job's label; absent without one. Provenance bits take no
/// part.
KSW_EXPORT std::optional<std::string> ComposedItemIdentifier(KSWItemType type,
                                                             const std::optional<std::string>& component);

/// The component in an identifier: what stands behind its first full stop. The whole identifier for a user item and
/// a developer, and when nothing stands there.
KSW_EXPORT std::string ItemIdentifierCopyBaseFromIdentifierAndType(std::string_view identifier, KSWItemType type);

/// The identifier of the item of this kind that the file at the URL is: of a user item its canonical file URL (any
/// other URL as it is), of an agent and a daemon by the label in its job file, of every other kind by the
/// identifier that its code is signed with. Absent when that cannot be read. Throws `std::invalid_argument` for a
/// developer's type and for one that is no single base kind. Blocks for the reading.
KSW_EXPORT std::optional<std::string> ItemIdentifierForURLAndType(KSWItemType type, const ksw::URL& url);

/// The identifier of the item that a registration of this type, of the file `url` in the application `bundleURL`,
/// is about: of a job by the label in its launch configuration, and of everything else, and a job without one
/// there, as `ItemIdentifierForURLAndType` finds it. Absent when there is none, and for URLs that do not go with
/// the type
/// (`KSWItemTypeValidateRegistrationParameters`), which is logged. Blocks for the reading of the file.
KSW_EXPORT std::optional<std::string> ItemIdentifierWithRegistrationInfo(
    KSWItemType type, const std::optional<ksw::URL>& bundleURL, const std::optional<ksw::URL>& url,
    const std::optional<ksw::Dictionary>& config);

/// The name under which a person knows the file at the URL; of what is no file the URL itself.
KSW_EXPORT std::string ItemNameForURL(const ksw::URL& url);

/// The name of the job with this launch configuration: that of the outermost application that its executable lies
/// in, else the executable's own, else the label. Looks at the folders on the way to the executable, and blocks as
/// long as the file system does. Absent without executable and label.
KSW_EXPORT std::optional<std::string> ItemNameForStewardPlist(const std::optional<ksw::Dictionary>& config);

/// The text under "Label" in a job's property list. Absent when the file cannot be read as a dictionary, is larger
/// than 1 MiB, or has no text there. Blocks for the reading of the file.
KSW_EXPORT std::optional<std::string> LabelForStewardPlist(const ksw::URL& url);

/// The user who owns the console, `/dev/console`; 0, which is also the superuser, when that cannot be told.
KSW_EXPORT ksw::Uid ConsoleUserUID();

/// Tells the notification service of the user, and that of the console's user, which parent applications the user
/// has. Does nothing without a text or for 4294967294, which is every user. A failure is logged for debugging.
/// Blocks until both have answered, and for at most 5 seconds for each; for a user whose service has not answered
/// an earlier registration in that time, and still has not, not at all.
KSW_EXPORT void RegisterParentApps(const std::optional<std::string>& apps, ksw::Uid uid);

/// Whether the file at a URL is a bundle: a directory whose name ends in ".app" or ".bundle". False without a URL,
/// for one that names no file, and when the file cannot be examined.
KSW_EXPORT bool QCURLConformsToBundle(const std::optional<ksw::URL>& url);

/// The application bundle whose main executable a process runs, else that executable. A program that runs out of an
/// image file, mounted for the time of its run, is the image file when that is certain: when the process, the mount
/// and the file are all of the same user. Absent when the process has ended, or what it runs cannot be looked at or
/// has no path any more; then `error`, when given, receives the status, in `kStatusErrorDomain`.
KSW_EXPORT std::optional<ksw::URL> BundleURLForAuditToken(const ksw::AuditToken& token,
                                                          std::optional<ksw::Error>* error = nullptr);

/// The scheduler of periodic jobs, which is switched for the system as a whole.
inline constexpr ksw::StringConstant KSWSubsystemCron = "KSWSubsystemCron";
/// The extensions that preview files, which each user switches.
inline constexpr ksw::StringConstant KSWSubsystemGlimpse = "KSWSubsystemGlimpse";

// Whether parts of the system are switched on. The management daemon keeps the switches; each of these asks it over
// the shared manager's connection and blocks for its answer. Failures are logged. `uid` is sent as it stands.

/// Whether a status has been stored. 0, and `*have` is written; else the daemon's code (KSWErrors.h), -1 when it
/// cannot be reached, and `*have` is left as it was. `have` must not be null.
KSW_EXPORT std::int64_t KSWHaveEnablementStatusForSubsystemAndUID(const std::optional<std::string>& subsystem,
                                                                  ksw::Uid uid, bool* have);
/// The status that is stored. The result is as above.
KSW_EXPORT std::int64_t KSWGetEnablementStatusForSubsystemAndUID(const std::optional<std::string>& subsystem,
                                                                 ksw::Uid uid, bool* enabled);
/// The status for `UIDForSubsystem(subsystem)`; false after a failure.
KSW_EXPORT bool KSWGetEnablementStatusForSubsystem(const std::optional<std::string>& subsystem);
/// Stores the status. 0 for success, and also when the daemon cannot be reached; else its code.
KSW_EXPORT std::int64_t KSWSetEnablementStatusForSubsystemAndUID(const std::optional<std::string>& subsystem,
                                                                 ksw::Uid uid, bool enabled);
/// The same for `UIDForSubsystem(subsystem)`.
KSW_EXPORT void KSWSetEnablementStatusForSubsystem(const std::optional<std::string>& subsystem, bool enabled);
/// Removes the stored status. Whether the daemon has done so.
KSW_EXPORT bool KSWResetEnablementStatusForSubsystemAndUID(const std::optional<std::string>& subsystem,
                                                           ksw::Uid uid);

/// Whose switch it is: 4294967294 for what is switched for the system as a whole, the calling process's real user
/// for what each user switches, 4294967295 for a subsystem that is not known.
KSW_EXPORT ksw::Uid UIDForSubsystem(const std::optional<std::string>& subsystem);

/// The subsystem's name in the user's language; one text for all that are not known. Blocks for the file system.
KSW_EXPORT std::string KSWLocalizedNameForSubsystem(const std::optional<std::string>& subsystem);

namespace ksw {

/// The dictionary in a property list file, XML or binary. Absent when the URL is no file URL, there is no regular
/// file, it is larger than 1 MiB, or it holds no property list or one that is no dictionary; `error`, when given,
/// receives the reason then, and is left as it was otherwise. Blocks for the reading of the file.
KSW_EXPORT std::optional<Dictionary> readPropertyListFile(const URL& url, std::optional<Error>* error = nullptr);

/// The launch configuration of the job that this property list describes, from the keys "Label" (which it must
/// have), "Program", "ProgramArguments", "BundleProgram" and "AssociatedBundleIdentifiers" (one or several). The
/// executable is the program, else the program inside the bundle, else the first argument. Absent when one of the
/// keys has a value of the wrong type, or a text of more than 64 KiB, and for a label with control characters in
/// it; `error`, when given, then receives which, and is left as it was otherwise. Looks at no file.
KSW_EXPORT std::optional<Dictionary> configurationFromJob(const Dictionary& job,
                                                          std::optional<Error>* error = nullptr);

using ::BundleURLForAuditToken;
using ::ComposedItemIdentifier;
using ::ConsoleUserUID;
using ::ItemIdentifierCopyBaseFromIdentifierAndType;
using ::ItemIdentifierForURLAndType;
using ::ItemIdentifierWithRegistrationInfo;
using ::ItemNameForStewardPlist;
using ::ItemNameForURL;
using ::LabelForStewardPlist;
using ::QCURLConformsToBundle;
using ::RegisterParentApps;
using ::UIDForSubsystem;
}  // namespace ksw
