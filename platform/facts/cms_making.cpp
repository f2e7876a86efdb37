#include <algorithm>
#include <array>
#include <climits>
#include <utility>
#include <vector>

#include "platform/base/limits.h"
#include "platform/facts/cms.h"
#include "platform/facts/status.h"

namespace ksw::facts {

namespace {

constexpr unsigned kFlags = CMS_BINARY | CMS_DETACHED | CMS_PARTIAL | CMS_NOATTR | CMS_NOSMIMECAP;

/// Nobody is asked for a pass phrase: an encrypted key is refused.
int noPassPhrase(char*, int, int, void*) {
    return -1;
}

OwnedKey readKey(const LibCrypto& crypto, Bytes pem) {
    const int size = static_cast<int>(std::min<std::size_t>(pem.size(), INT_MAX));
    const OwnedBio bio = owned<OwnedBio>(crypto, crypto.BIO_new_mem_buf(pem.data(), size));
    EVP_PKEY* key = bio == nullptr ? nullptr
                                   : crypto.PEM_read_bio_PrivateKey_ex(bio.get(), nullptr, noPassPhrase, nullptr,
                                                                       crypto.context(), nullptr);
    return owned<OwnedKey>(crypto, key);
}

/// What `verifyMessage` will ask of these certificates.
Status checkChain(const LibCrypto& crypto, const std::vector<OwnedCertificate>& chain, EVP_PKEY* key) {
    if (chain.empty()) {
        return statusError(CodeStatus::CertificateUnusable);
    }
    if (chain.size() > limits::kSignatureChainMax) {
        return statusError(CodeStatus::ChainTooLong);
    }
    if (crypto.X509_check_private_key(chain.front().get(), key) != 1) {
        return statusError(CodeStatus::KeyMismatch);
    }
    for (const OwnedCertificate& certificate : chain) {
        if (Status status = checkKey(crypto, certificate.get()); !status) {
            return status;
        }
    }
    return checkSignerPurpose(crypto, chain.front().get());
}

/// Ed25519 goes with SHA-512 (RFC 8419); it signs the content itself.
bool signEd25519(const LibCrypto& crypto, CMS_SignerInfo* info, EVP_PKEY* key, Bytes content) {
    std::array<unsigned char, 64> signature{};
    std::size_t size = signature.size();
    const OwnedDigest signing = owned<OwnedDigest>(crypto, crypto.EVP_MD_CTX_new());
    if (signing == nullptr ||
        crypto.EVP_DigestSignInit_ex(signing.get(), nullptr, nullptr, crypto.context(), nullptr, key, nullptr) !=
            1 ||
        crypto.EVP_DigestSign(signing.get(), signature.data(), &size, content.data(), content.size()) != 1) {
        return false;
    }
    X509_ALGOR* algorithm = nullptr;
    crypto.CMS_SignerInfo_get0_algs(info, nullptr, nullptr, nullptr, &algorithm);
    return crypto.X509_ALGOR_set0(algorithm, crypto.OBJ_nid2obj(NID_ED25519), V_ASN1_UNDEF, nullptr) == 1 &&
           crypto.ASN1_STRING_set(crypto.CMS_SignerInfo_get0_signature(info), signature.data(),
                                  static_cast<int>(size)) == 1;
}

bool sign(const LibCrypto& crypto, CMS_ContentInfo* cms, X509* certificate, EVP_PKEY* key, Bytes content) {
    const bool isEd25519 = crypto.EVP_PKEY_is_a(key, "ED25519") == 1;
    CryptoOwner<EVP_MD, &LibCryptoFunctions::EVP_MD_free> digest(
        crypto.EVP_MD_fetch(crypto.context(), isEd25519 ? "SHA512" : "SHA256", nullptr), {&crypto});
    CMS_SignerInfo* const info =
        digest == nullptr ? nullptr : crypto.CMS_add1_signer(cms, certificate, key, digest.get(), kFlags);
    if (info == nullptr) {
        return false;
    }
    if (isEd25519) {
        return signEd25519(crypto, info, key, content);
    }
    const OwnedBio bio =
        owned<OwnedBio>(crypto, crypto.BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    return bio != nullptr && crypto.CMS_final(cms, bio.get(), nullptr, kFlags) == 1;
}

}  // namespace

Result<Data> makeMessage(const LibCrypto& crypto, Bytes content, Bytes keyPem, Bytes chainPem) {
    const ErrorQueueScope scope(crypto);
    const OwnedKey key = readKey(crypto, keyPem);
    if (key == nullptr) {
        return statusError(CodeStatus::KeyUnusable);
    }
    const std::vector<OwnedCertificate> chain = readCertificates(crypto, chainPem, limits::kSignatureChainMax + 1);
    if (Status status = checkChain(crypto, chain, key.get()); !status) {
        return status.error();
    }
    const OwnedCms cms = owned<OwnedCms>(
        crypto, crypto.CMS_sign_ex(nullptr, nullptr, nullptr, nullptr, kFlags, crypto.context(), nullptr));
    if (cms == nullptr || !sign(crypto, cms.get(), chain.front().get(), key.get(), content)) {
        return statusError(CodeStatus::KeyUnusable);
    }
    for (std::size_t index = 1; index < chain.size(); ++index) {
        if (crypto.CMS_add1_cert(cms.get(), chain[index].get()) != 1) {
            return statusError(CodeStatus::CertificateUnusable, "one of them is there twice");
        }
    }
    unsigned char* der = nullptr;
    const int size = crypto.i2d_CMS_ContentInfo(cms.get(), &der);
    if (size <= 0) {
        return statusError(CodeStatus::NoMemory);
    }
    const OwnedBytes owner = owned<OwnedBytes>(crypto, der);
    return Data(der, der + size);
}

}  // namespace ksw::facts
