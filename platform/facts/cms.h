// cms.h: the message that signs a code directory: CMS SignedData (RFC 5652), detached, in DER.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/facts/certificates.h"
#include "platform/facts/code_facts.h"
#include "platform/facts/libcrypto.h"
#include "platform/facts/trust.h"

namespace ksw::facts {

/// Who signed, once everything about it holds.
struct Signer {
    std::vector<Certificate> chain;  ///< From the signer's own certificate to the trusted one.
    Anchor anchor = Anchor::None;
    Validity validity;
};

/// Verifies that the message signs `content`, and that its signer may sign code and is vouched for by an anchor, as
/// of `time` (seconds since 1970). Exactly one signer; SHA-256, SHA-384 or SHA-512; keys as `checkKey` accepts
/// them; Ed25519 without signed attributes only. Error: the `CodeStatus` of the first thing that does not hold.
/// Never throws but for want of memory (`std::bad_alloc`).
Result<Signer> verifyMessage(const LibCrypto& crypto, Bytes message, Bytes content, const TrustAnchors& anchors,
                             std::int64_t time);

/// Makes a message that signs `content`, from a private key in PEM (not encrypted) and a chain of certificates in
/// PEM, the signer's first. Equal input gives an equal message where the key's algorithm is deterministic (RSA,
/// Ed25519). Error: `KeyUnusable`, `CertificateUnusable`, `KeyMismatch`, or what `verifyMessage` would say of key
/// and purpose.
Result<Data> makeMessage(const LibCrypto& crypto, Bytes content, Bytes key, Bytes chain);

}  // namespace ksw::facts
