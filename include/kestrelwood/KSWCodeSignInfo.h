// KSWCodeSignInfo.h: what is known of code by its signature: who signed it, under which names, and what it may do.
// What makes a signature hold: docs/signatures.md.
//
// Any thread. Every operation that is given a URL or a process blocks for the file system; the code is read once
// and remembered for as long as its file is as it was.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <kestrelwood/export.h>
#include <kestrelwood/values/audit_token.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/url.h>

namespace ksw {
struct CodeSignInfoAccess;
}

/// The facts of code whose embedded signature holds: of a file, an application bundle, or what a process runs;
/// there is no object for any other code. Immutable: it keeps to what the code was when the object was made.
/// Nothing is absent by failure: a fact that the signature does not state is absent or false.
class KSW_EXPORT KSWCodeSignInfo {
public:
    /// A text of the signature; absent when it does not state one.
    using Text = std::optional<std::string>;

    /// The object, or null; then `error`, when given, receives the status, in `kStatusErrorDomain`: -50 without a
    /// URL and for one that names no file, -67062 for code that is not signed or signed ad hoc, else why the
    /// signature does not hold. A failure is logged.
    static std::shared_ptr<KSWCodeSignInfo> initWithURL(const std::optional<ksw::URL>& url,
                                                        std::optional<ksw::Error>* error = nullptr);
    /// The same.
    static std::shared_ptr<KSWCodeSignInfo> codeSignInfoForURL(const std::optional<ksw::URL>& url,
                                                               std::optional<ksw::Error>* error = nullptr);

    /// The same of what a process runs; null also when the process has ended, or becomes another program meanwhile.
    static std::shared_ptr<KSWCodeSignInfo> codeSignInfoForProcess(const ksw::AuditToken& process,
                                                                   std::optional<ksw::Error>* error = nullptr);

    ~KSWCodeSignInfo();
    KSWCodeSignInfo(const KSWCodeSignInfo&) = delete;
    KSWCodeSignInfo& operator=(const KSWCodeSignInfo&) = delete;

    /// The name that the signer gave the code.
    Text signingIdentifier() const;
    /// The "QCBundleIdentifier" of the information property list that is signed with the code.
    Text bundleIdentifier() const;
    /// "SYSTEMAPPS" for code without a team that has the entitlement below.
    Text teamIdentifier() const;
    /// Whether the platform's maker signed the code and lets it name other applications as its own.
    bool hasAssociatedBundleIdentifiersEntitlement() const;
    /// In its normal spelling; absent too when it is none that this host understands.
    Text designatedRequirement() const;
    /// The launch constraint of the code, in its external representation. Absent for code that is no native
    /// executable, for a signature without one, and, with a word in the log, for one that this host does not
    /// understand.
    std::optional<ksw::Data> lightweightCodeRequirement() const;
    /// The first organization of the signer's certificate, without white space at its ends. Absent for the
    /// platform's maker.
    Text developerName() const;
    /// Whether the platform's maker signed the code.
    bool isMakerAnchored() const;
    /// Whether the code's entitlements ask for a sandbox.
    bool isSandboxed() const;

    /// For people; the second also shows the requirements, on lines of their own.
    std::string description() const;
    std::string debugDescription() const;

private:
    friend struct ksw::CodeSignInfoAccess;
    struct Content;

    explicit KSWCodeSignInfo(std::unique_ptr<const Content> content);

    std::unique_ptr<const Content> content_;
};

/// The designated requirement of what a process runs. Absent when it has none, or the process has ended. Throws
/// `std::invalid_argument` ("token is null") for a null pointer.
KSW_EXPORT std::optional<std::string> DesignatedRequirementForAuditToken(const ksw::AuditToken* token);

/// The designated requirement of the code at a file URL. Absent without a URL, a signature that holds, or one in
/// it.
KSW_EXPORT std::optional<std::string> DesignatedRequirementForURL(const std::optional<ksw::URL>& url);

/// Whether the platform's maker signed the code at a file URL. False without a URL and on any failure.
KSW_EXPORT bool IsVelmontAnchoredCodeAtURL(const std::optional<ksw::URL>& url);

/// Whether a process runs in a sandbox: in a Flatpak, under an enforced security profile (that of a snap, say), or
/// under a system call filter in a user namespace of its own. What may not be looked at says nothing; false when
/// nothing says that it does, and when the process has ended, whoever has its number now.
KSW_EXPORT bool AuditTokenIsSandboxed(ksw::AuditToken token);

namespace ksw {
using ::AuditTokenIsSandboxed;
using ::DesignatedRequirementForAuditToken;
using ::DesignatedRequirementForURL;
using ::IsVelmontAnchoredCodeAtURL;
}  // namespace ksw
