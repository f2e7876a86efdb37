#include "platform/facts/certificates.h"

#include <algorithm>
#include <array>
#include <climits>
#include <ctime>
#include <string_view>

#include "platform/base/limits.h"
#include "platform/facts/status.h"

namespace ksw::facts {

namespace {

OwnedCertificate newCertificate(const LibCrypto& crypto) {
    return owned<OwnedCertificate>(crypto, crypto.X509_new_ex(crypto.context(), nullptr));
}

/// No certificate is encrypted; nobody is asked for a pass phrase.
int noPassPhrase(char*, int, int, void*) {
    return -1;
}

OwnedCertificate readDer(const LibCrypto& crypto, Bytes file) {
    X509* read = newCertificate(crypto).release();
    const unsigned char* at = file.data();
    const bool isRead = read != nullptr && file.size() <= LONG_MAX &&
                        crypto.d2i_X509(&read, &at, static_cast<long>(file.size())) != nullptr;
    // On failure it has freed what it was given and says so by a null pointer, or it has not.
    OwnedCertificate certificate = owned<OwnedCertificate>(crypto, read);
    if (!isRead || at != file.data() + file.size()) {
        certificate.reset();
    }
    return certificate;
}

std::string utf8Of(const LibCrypto& crypto, const ASN1_STRING* text) {
    unsigned char* utf8 = nullptr;
    const int size = crypto.ASN1_STRING_to_UTF8(&utf8, text);
    if (size < 0) {
        return {};
    }
    const OwnedBytes owner = owned<OwnedBytes>(crypto, utf8);
    return {reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(size)};
}

std::int64_t secondsOf(const LibCrypto& crypto, const ASN1_TIME* time, std::int64_t otherwise) {
    std::tm parts{};
    return crypto.ASN1_TIME_to_tm(time, &parts) == 1 ? std::int64_t{::timegm(&parts)} : otherwise;
}

bool isAcceptedGroup(const LibCrypto& crypto, EVP_PKEY* key) {
    constexpr std::array<std::string_view, 3> kGroups{"prime256v1", "secp384r1", "secp521r1"};
    std::array<char, 64> name{};
    std::size_t size = 0;
    return crypto.EVP_PKEY_get_group_name(key, name.data(), name.size(), &size) == 1 &&
           std::find(kGroups.begin(), kGroups.end(), std::string_view(name.data(), size)) != kGroups.end();
}

}  // namespace

std::vector<OwnedCertificate> readCertificates(const LibCrypto& crypto, Bytes file, std::size_t countMax) {
    const ErrorQueueScope scope(crypto);
    std::vector<OwnedCertificate> certificates;
    const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
    if (text.find("-----BEGIN ") == std::string_view::npos) {
        if (OwnedCertificate certificate = readDer(crypto, file); certificate != nullptr && countMax != 0) {
            certificates.push_back(std::move(certificate));
        }
        return certificates;
    }
    const int size = static_cast<int>(std::min<std::size_t>(file.size(), INT_MAX));
    const OwnedBio bio = owned<OwnedBio>(crypto, crypto.BIO_new_mem_buf(file.data(), size));
    while (bio != nullptr && certificates.size() < countMax) {
        X509* read = newCertificate(crypto).release();
        if (read == nullptr || crypto.PEM_read_bio_X509(bio.get(), &read, noPassPhrase, nullptr) == nullptr) {
            crypto.X509_free(read);
            break;
        }
        certificates.push_back(owned<OwnedCertificate>(crypto, read));
    }
    return certificates;
}

Certificate certificateFacts(const LibCrypto& crypto, X509* certificate) {
    Certificate facts;
    unsigned char* der = nullptr;
    if (const int size = crypto.i2d_X509(certificate, &der); size > 0) {
        const OwnedBytes owner = owned<OwnedBytes>(crypto, der);
        facts.encoded.assign(der, der + size);
    }
    const X509_NAME* subject = crypto.X509_get_subject_name(certificate);
    int at = -1;
    while ((at = crypto.X509_NAME_get_index_by_NID(subject, NID_organizationName, at)) >= 0) {
        const X509_NAME_ENTRY* entry = crypto.X509_NAME_get_entry(subject, at);
        facts.organizations.push_back(utf8Of(crypto, crypto.X509_NAME_ENTRY_get_data(entry)));
    }
    return facts;
}

void Validity::meet(const LibCrypto& crypto, X509* certificate) {
    // A time that cannot be read makes the certificate valid never.
    from = std::max(from, secondsOf(crypto, crypto.X509_get0_notBefore(certificate), INT64_MAX));
    to = std::min(to, secondsOf(crypto, crypto.X509_get0_notAfter(certificate), INT64_MIN));
}

Status checkKey(const LibCrypto& crypto, X509* certificate) {
    EVP_PKEY* key = crypto.X509_get0_pubkey(certificate);
    const auto isA = [&](const char* name) { return crypto.EVP_PKEY_is_a(key, name) == 1; };
    const bool isStrong =
        key != nullptr && ((isA("RSA") && crypto.EVP_PKEY_get_bits(key) >= limits::kSignatureRsaBitsMin) ||
                           (isA("EC") && isAcceptedGroup(crypto, key)) || isA("ED25519"));
    return isStrong ? Status() : statusError(CodeStatus::WeakAlgorithm);
}

Status checkSignerPurpose(const LibCrypto& crypto, X509* certificate) {
    const std::uint32_t flags = crypto.X509_get_extension_flags(certificate);
    const bool isForCode =
        (flags & EXFLAG_XKUSAGE) != 0 && (crypto.X509_get_extended_key_usage(certificate) & XKU_CODE_SIGN) != 0;
    // Without the extension the key's usage reads as everything.
    const bool isForSigning = (crypto.X509_get_key_usage(certificate) & KU_DIGITAL_SIGNATURE) != 0;
    if ((flags & EXFLAG_INVALID) != 0 || !isForCode || !isForSigning) {
        return statusError(CodeStatus::WrongPurpose);
    }
    return {};
}

Status checkIntermediatePurpose(const LibCrypto& crypto, X509* certificate) {
    constexpr int kIsAuthority = 1;  // by its basic constraints; other numbers are older ways of saying so
    const std::uint32_t flags = crypto.X509_get_extension_flags(certificate);
    const bool isForCode = (flags & EXFLAG_XKUSAGE) == 0 ||
                           (crypto.X509_get_extended_key_usage(certificate) & (XKU_CODE_SIGN | XKU_ANYEKU)) != 0;
    if ((flags & EXFLAG_INVALID) != 0 || crypto.X509_check_ca(certificate) != kIsAuthority || !isForCode) {
        return statusError(CodeStatus::WrongPurpose);
    }
    return {};
}

}  // namespace ksw::facts
