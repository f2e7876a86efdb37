// certificates.h: what is read from certificates, and what is asked of them.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/facts/code_facts.h"
#include "platform/facts/libcrypto.h"

namespace ksw::facts {

/// The certificates in a file: PEM, one behind the other, or a single one in DER. Empty when there is none; nothing
/// behind the first that cannot be read, and at most `countMax`.
std::vector<OwnedCertificate> readCertificates(const LibCrypto& crypto, Bytes file, std::size_t countMax);

/// The certificate as a value.
Certificate certificateFacts(const LibCrypto& crypto, X509* certificate);

/// The seconds since 1970 from which and to which all of a chain is valid, both included.
struct Validity {
    std::int64_t from = INT64_MIN;
    std::int64_t to = INT64_MAX;

    bool holds(std::int64_t time) const { return from <= time && time <= to; }
    /// Makes it the time in which both hold.
    void meet(const LibCrypto& crypto, X509* certificate);
};

// Each answers `Status` with the `CodeStatus` named.

/// `WeakAlgorithm`: the key is none of RSA of 2,048 bits and more, ECDSA on P-256, P-384 or P-521, and Ed25519.
Status checkKey(const LibCrypto& crypto, X509* certificate);
/// `WrongPurpose`: a signer's certificate is meant for signing code (extended key usage, which must be there) and,
/// where it says what its key is for, for digital signatures.
Status checkSignerPurpose(const LibCrypto& crypto, X509* certificate);
/// `WrongPurpose`: one between the signer's and the trusted one is a certificate authority's, and where it says
/// what for, for those that sign code.
Status checkIntermediatePurpose(const LibCrypto& crypto, X509* certificate);

}  // namespace ksw::facts
