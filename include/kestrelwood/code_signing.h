// code_signing.h: signs code, and looks at what is signed. What a signature is made of: docs/signatures.md.
// Any thread; every operation blocks for the file system. On failure `error`, when given, receives the reason, in
// `kStatusErrorDomain`; it is left as it was otherwise. Nothing throws.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <kestrelwood/export.h>
#include <kestrelwood/values/audit_token.h>
#include <kestrelwood/values/data.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/value.h>

namespace ksw {

/// How code is to be signed.
struct SigningRequest {
    /// The signing identifier; 1 to 1,024 bytes without control characters. So is the team.
    std::string identifier;
    std::optional<std::string> team;
    /// A property list, XML or binary, whose value is a dictionary.
    std::optional<Data> entitlements;
    /// The designated requirement. Absent: one is made of the identifier and the team, else of the identifier and
    /// the organization in the signer's certificate; none for an ad-hoc signature.
    std::optional<std::string> requirement;
    /// The signer's private key and its certificate with those that lead up to a trusted one, in PEM; the signer's
    /// stands first. Without a key the signature is ad hoc: it seals the code, and nobody answers for it.
    std::optional<Data> key;
    Data chain;
};

/// Signs the executable, script, other file or application bundle at a path, in place of an older signature. A
/// bundle is signed through its main executable, together with its information property list. The signed file is
/// new; it takes the old one's name in one step and has its mode, owner and, where the file system allows it,
/// extended attributes. Signing the same again gives the same bytes when the key's algorithm does (RSA, Ed25519).
KSW_EXPORT bool signCode(const std::string& path, const SigningRequest& request,
                         std::optional<Error>* error = nullptr);

/// Takes the signature away, in the same way; the file is as it was before it was signed.
KSW_EXPORT bool stripSignature(const std::string& path, std::optional<Error>* error = nullptr);

/// Whether the code at a path has a signature that holds: made by somebody whom this host trusts, or ad hoc.
KSW_EXPORT bool verifyCode(const std::string& path, std::optional<Error>* error = nullptr);

/// What the signature of the code at a path says: "Identifier", "Team", "Format", "Source" ("embedded" or
/// "ad-hoc"), "Requirement", "Entitlements", "InformationPropertyList", "Constraint" (bytes), and "Valid", a bool.
/// When it holds also "Anchor" ("maker", "trusted" or "none") and "Certificates", the signer's first, each with
/// "Organizations" and "Encoded"; when not, "Status" and "StatusText", and the rest is only what the file says of
/// itself. Entries that the signature does not have are not there. Absent when there is no signature that can be
/// read.
KSW_EXPORT std::optional<Dictionary> describeCode(const std::string& path, std::optional<Error>* error = nullptr);

/// The same of what a process runs, by the process's own descriptor. Absent also when the process has ended, or
/// become another program meanwhile.
KSW_EXPORT std::optional<Dictionary> describeCode(const AuditToken& process, std::optional<Error>* error = nullptr);

/// What a status in `kStatusErrorDomain` means for code, as docs/signatures.md has it; "unknown status" for a
/// number that is none.
KSW_EXPORT std::string codeStatusText(std::int64_t status);

}  // namespace ksw
