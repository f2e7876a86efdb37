#include "platform/facts/cms.h"

#include <algorithm>
#include <array>
#include <climits>
#include <utility>

#include "platform/base/limits.h"
#include "platform/facts/status.h"

namespace ksw::facts {

namespace {

/// What a signature algorithm's identifier says of the digest; `NID_undef` when it leaves it open.
struct SignatureAlgorithm {
    int signature;
    int digest;
};

constexpr std::array kSignatureAlgorithms{
    SignatureAlgorithm{NID_rsaEncryption, NID_undef},
    SignatureAlgorithm{NID_sha256WithRSAEncryption, NID_sha256},
    SignatureAlgorithm{NID_sha384WithRSAEncryption, NID_sha384},
    SignatureAlgorithm{NID_sha512WithRSAEncryption, NID_sha512},
    SignatureAlgorithm{NID_ecdsa_with_SHA256, NID_sha256},
    SignatureAlgorithm{NID_ecdsa_with_SHA384, NID_sha384},
    SignatureAlgorithm{NID_ecdsa_with_SHA512, NID_sha512},
    SignatureAlgorithm{NID_ED25519, NID_undef},
};
constexpr std::array kDigests{NID_sha256, NID_sha384, NID_sha512};

/// 112 bits: rules out SHA-1 and what is weaker, in every signature of a chain but the anchor's own.
constexpr int kSecurityLevel = 2;

/// One message, and what is asked of it in turn.
class Message {
public:
    Message(const LibCrypto& crypto, OwnedCms cms) : crypto_(crypto), cms_(std::move(cms)) {}

    static Result<OwnedCms> parse(const LibCrypto& crypto, Bytes bytes);

    Status checkForm();
    Status checkAlgorithms();
    Status checkSignature(Bytes content);
    Result<Signer> checkSigner(const TrustAnchors& anchors, std::int64_t time);

private:
    OPENSSL_STACK* signerInfos() const {
        return reinterpret_cast<OPENSSL_STACK*>(crypto_.CMS_get0_SignerInfos(cms_.get()));
    }
    CMS_SignerInfo* signerInfo() const {
        return static_cast<CMS_SignerInfo*>(crypto_.OPENSSL_sk_value(signerInfos(), 0));
    }
    int algorithm(const X509_ALGOR* algorithm) const {
        const ASN1_OBJECT* object = nullptr;
        crypto_.X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
        return crypto_.OBJ_obj2nid(object);
    }
    bool verifyEd25519(Bytes content) const;
    bool verifyAttributes(Bytes content) const;

    const LibCrypto& crypto_;
    OwnedCms cms_;
    int signatureAlgorithm_ = NID_undef;
    X509* signer_ = nullptr;  // the message's
};

Result<OwnedCms> Message::parse(const LibCrypto& crypto, Bytes bytes) {
    CMS_ContentInfo* read = crypto.CMS_ContentInfo_new_ex(crypto.context(), nullptr);
    const unsigned char* at = bytes.data();
    if (bytes.size() > limits::kSignatureMessageMax || read == nullptr ||
        crypto.d2i_CMS_ContentInfo(&read, &at, static_cast<long>(bytes.size())) == nullptr) {
        crypto.CMS_ContentInfo_free(read);
        return statusError(CodeStatus::MessageMalformed);
    }
    OwnedCms cms = owned<OwnedCms>(crypto, read);
    // Written again it is the same, or it was not DER and could be said in other bytes as well.
    unsigned char* again = nullptr;
    const int size = crypto.i2d_CMS_ContentInfo(cms.get(), &again);
    const OwnedBytes owner = owned<OwnedBytes>(crypto, again);
    const bool isSame = size > 0 && at == bytes.data() + bytes.size() &&
                        std::equal(bytes.begin(), bytes.end(), again, again + size);
    if (!isSame) {
        return statusError(CodeStatus::MessageMalformed);
    }
    return cms;
}

Status Message::checkForm() {
    if (crypto_.OBJ_obj2nid(crypto_.CMS_get0_type(cms_.get())) != NID_pkcs7_signed ||
        crypto_.OBJ_obj2nid(crypto_.CMS_get0_eContentType(cms_.get())) != NID_pkcs7_data) {
        return statusError(CodeStatus::MessageMalformed);
    }
    ASN1_OCTET_STRING** const content = crypto_.CMS_get0_content(cms_.get());
    if (content == nullptr || *content != nullptr) {
        return statusError(CodeStatus::MessageMalformed, "it has content of its own");
    }
    if (crypto_.OPENSSL_sk_num(signerInfos()) != 1) {
        return statusError(CodeStatus::SignerCount);
    }
    const CertificateStack certificates(crypto_, crypto_.CMS_get1_certs(cms_.get()));
    if (certificates.size() > static_cast<int>(limits::kSignatureCertificatesMax)) {
        return statusError(CodeStatus::TooManyCertificates);
    }
    return {};
}

Status Message::checkAlgorithms() {
    X509_ALGOR* digest = nullptr;
    X509_ALGOR* signature = nullptr;
    crypto_.CMS_SignerInfo_get0_algs(signerInfo(), nullptr, nullptr, &digest, &signature);
    const int digestNumber = algorithm(digest);
    signatureAlgorithm_ = algorithm(signature);
    const auto* const known =
        std::find_if(kSignatureAlgorithms.begin(), kSignatureAlgorithms.end(),
                     [&](const SignatureAlgorithm& row) { return row.signature == signatureAlgorithm_; });
    if (std::find(kDigests.begin(), kDigests.end(), digestNumber) == kDigests.end() ||
        known == kSignatureAlgorithms.end() || (known->digest != NID_undef && known->digest != digestNumber)) {
        return statusError(CodeStatus::WeakAlgorithm);
    }
    return {};
}

Status Message::checkSignature(Bytes content) {
    if (crypto_.CMS_set1_signers_certs(cms_.get(), nullptr, 0) != 1) {
        return statusError(CodeStatus::SignatureWrong, "the signer's certificate is not in the message");
    }
    // The list is ours, the certificates in it are the message's.
    STACK_OF(X509)* const signers = crypto_.CMS_get0_signers(cms_.get());
    auto* const list = reinterpret_cast<OPENSSL_STACK*>(signers);
    signer_ = static_cast<X509*>(crypto_.OPENSSL_sk_value(list, 0));
    crypto_.OPENSSL_sk_free(list);
    if (signer_ == nullptr) {
        return statusError(CodeStatus::SignatureWrong, "the signer's certificate is not in the message");
    }
    if (Status status = checkKey(crypto_, signer_); !status) {
        return status;
    }
    const bool holds = signatureAlgorithm_ == NID_ED25519 ? verifyEd25519(content) : verifyAttributes(content);
    return holds ? Status() : statusError(CodeStatus::SignatureWrong);
}

/// The library's own check does not know this algorithm in all of its versions. Without signed attributes the
/// signature is one over the content itself.
bool Message::verifyEd25519(Bytes content) const {
    if (crypto_.CMS_signed_get_attr_count(signerInfo()) >= 0) {
        return false;
    }
    const ASN1_OCTET_STRING* const signature = crypto_.CMS_SignerInfo_get0_signature(signerInfo());
    const OwnedDigest verification = owned<OwnedDigest>(crypto_, crypto_.EVP_MD_CTX_new());
    EVP_PKEY* const key = crypto_.X509_get0_pubkey(signer_);
    return verification != nullptr && crypto_.EVP_PKEY_is_a(key, "ED25519") == 1 &&
           crypto_.EVP_DigestVerifyInit_ex(verification.get(), nullptr, nullptr, crypto_.context(), nullptr, key,
                                           nullptr) == 1 &&
           crypto_.EVP_DigestVerify(verification.get(), crypto_.ASN1_STRING_get0_data(signature),
                                    static_cast<std::size_t>(crypto_.ASN1_STRING_length(signature)), content.data(),
                                    content.size()) == 1;
}

bool Message::verifyAttributes(Bytes content) const {
    // The chain is checked by ourselves: the library would ask whether the signer may sign mail.
    constexpr unsigned kFlags = CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY;
    const OwnedBio bio =
        owned<OwnedBio>(crypto_, crypto_.BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    return bio != nullptr && crypto_.CMS_verify(cms_.get(), nullptr, nullptr, bio.get(), nullptr, kFlags) == 1;
}

CodeStatus chainStatus(int error) {
    switch (error) {
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return CodeStatus::Expired;
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return CodeStatus::NotYetValid;
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_CERT_UNTRUSTED:
            return CodeStatus::NotTrusted;
        case X509_V_ERR_EE_KEY_TOO_SMALL:
        case X509_V_ERR_CA_KEY_TOO_SMALL:
        case X509_V_ERR_CA_MD_TOO_WEAK:
            return CodeStatus::WeakAlgorithm;
        case X509_V_ERR_INVALID_CA:
        case X509_V_ERR_INVALID_PURPOSE:
            return CodeStatus::WrongPurpose;
        case X509_V_ERR_CERT_CHAIN_TOO_LONG:
            return CodeStatus::ChainTooLong;
        case X509_V_ERR_OUT_OF_MEM:
            return CodeStatus::NoMemory;
        default:
            return CodeStatus::ChainInvalid;
    }
}

Status checkChain(const LibCrypto& crypto, const CertificateStack& chain) {
    if (chain.size() > static_cast<int>(limits::kSignatureChainMax)) {
        return statusError(CodeStatus::ChainTooLong);
    }
    for (int index = 0; index < chain.size(); ++index) {
        if (Status status = checkKey(crypto, chain.at(index)); !status) {
            return status;
        }
        const bool isIntermediate = index > 0 && index + 1 < chain.size();
        if (Status status = isIntermediate ? checkIntermediatePurpose(crypto, chain.at(index)) : Status();
            !status) {
            return status;
        }
    }
    return checkSignerPurpose(crypto, chain.at(0));
}

Signer signerOf(const LibCrypto& crypto, const CertificateStack& chain, const TrustAnchors& anchors) {
    Signer signer;
    signer.anchor = Anchor::Trusted;
    for (int index = 0; index < chain.size(); ++index) {
        signer.chain.push_back(certificateFacts(crypto, chain.at(index)));
        signer.validity.meet(crypto, chain.at(index));
        if (anchors.isMaker(chain.at(index))) {
            signer.anchor = Anchor::Maker;
        }
    }
    return signer;
}

Result<Signer> Message::checkSigner(const TrustAnchors& anchors, std::int64_t time) {
    const CertificateStack others(crypto_, crypto_.CMS_get1_certs(cms_.get()));
    const OwnedStoreContext context =
        owned<OwnedStoreContext>(crypto_, crypto_.X509_STORE_CTX_new_ex(crypto_.context(), nullptr));
    if (context == nullptr || anchors.store() == nullptr ||
        crypto_.X509_STORE_CTX_init(context.get(), anchors.store(), signer_, others.get()) != 1) {
        return statusError(CodeStatus::NoMemory);
    }
    X509_VERIFY_PARAM* const rules = crypto_.X509_STORE_CTX_get0_param(context.get());
    // An anchor need not be the end of its own chain.
    crypto_.X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_PARTIAL_CHAIN);
    crypto_.X509_VERIFY_PARAM_set_depth(rules, static_cast<int>(limits::kSignatureCertificatesMax));
    crypto_.X509_VERIFY_PARAM_set_auth_level(rules, kSecurityLevel);
    crypto_.X509_VERIFY_PARAM_set_time(rules, time);
    if (crypto_.X509_verify_cert(context.get()) != 1) {
        return statusError(chainStatus(crypto_.X509_STORE_CTX_get_error(context.get())));
    }
    const CertificateStack chain(crypto_, crypto_.X509_STORE_CTX_get1_chain(context.get()));
    if (chain.size() == 0) {
        return statusError(CodeStatus::NoMemory);
    }
    if (Status status = checkChain(crypto_, chain); !status) {
        return status.error();
    }
    return signerOf(crypto_, chain, anchors);
}

}  // namespace

Result<Signer> verifyMessage(const LibCrypto& crypto, Bytes message, Bytes content, const TrustAnchors& anchors,
                             std::int64_t time) {
    const ErrorQueueScope scope(crypto);
    Result<OwnedCms> cms = Message::parse(crypto, message);
    if (!cms) {
        return cms.error();
    }
    Message parsed(crypto, std::move(*cms));
    if (Status status = parsed.checkForm(); !status) {
        return status.error();
    }
    if (Status status = parsed.checkAlgorithms(); !status) {
        return status.error();
    }
    if (Status status = parsed.checkSignature(content); !status) {
        return status.error();
    }
    return parsed.checkSigner(anchors, time);
}

}  // namespace ksw::facts
