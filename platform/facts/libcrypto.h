// libcrypto.h: the host's cryptography. The library is opened when it is first needed, so that programs which never
// ask about signatures do not carry it, and a host without it loses signatures and nothing else.
//
// Everything happens in a context of our own, with the default provider: no configuration file and no environment
// variable of the library's has a say in what is valid here, and the program's own use of the library is left
// alone. The library is kept from reading its configuration file at all unless the program had it open before.
#pragma once

#include <memory>

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/provider.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include "platform/base/result.h"
#include "platform/facts/libcrypto_functions.h"

namespace ksw::facts {

/// The functions that are used, by their own names, as pointers into the library.
struct LibCryptoFunctions {
#define KSW_DECLARE(name) decltype(&::name) name = nullptr;
    KSW_LIBCRYPTO_FUNCTIONS(KSW_DECLARE)
#undef KSW_DECLARE
};

/// The opened library. Once loaded it stays loaded. Any thread.
class LibCrypto : public LibCryptoFunctions {
public:
    /// Opens the library by this name. Error: `CodeStatus::NoCryptography` with the reason.
    static Result<std::unique_ptr<const LibCrypto>> load(const char* soname);

    /// The host's, opened on first use; null when it cannot be used, which the log says once.
    static const LibCrypto* shared();

    ~LibCrypto();
    LibCrypto(const LibCrypto&) = delete;
    LibCrypto& operator=(const LibCrypto&) = delete;

    OSSL_LIB_CTX* context() const { return context_; }
    const EVP_MD* sha256() const { return sha256_; }

private:
    LibCrypto() = default;
    /// `isFirst`: nobody in this process has opened the library before.
    Status setUp(bool isFirst);

    OSSL_LIB_CTX* context_ = nullptr;
    OSSL_PROVIDER* provider_ = nullptr;
    EVP_MD* sha256_ = nullptr;
};

/// Has `LibCrypto::shared` open another library by name while it lives; what was made with that one must be gone by
/// then. For tests; one at a time.
class ScopedLibCryptoName {
public:
    explicit ScopedLibCryptoName(const char* soname);
    ~ScopedLibCryptoName();
    ScopedLibCryptoName(const ScopedLibCryptoName&) = delete;
    ScopedLibCryptoName& operator=(const ScopedLibCryptoName&) = delete;

private:
    struct Use;
    std::unique_ptr<Use> use_;
};

/// What the library notes down about failures between its making and its end is forgotten again: the thread's error
/// queue belongs to the program.
class ErrorQueueScope {
public:
    explicit ErrorQueueScope(const LibCrypto& crypto) : crypto_(crypto) { crypto_.ERR_set_mark(); }
    ~ErrorQueueScope() { crypto_.ERR_pop_to_mark(); }
    ErrorQueueScope(const ErrorQueueScope&) = delete;
    ErrorQueueScope& operator=(const ErrorQueueScope&) = delete;

private:
    const LibCrypto& crypto_;
};

/// Gives an object of the library back to it.
template <auto Free>
struct CryptoRelease {
    const LibCrypto* crypto = nullptr;
    template <class T>
    void operator()(T* object) const {
        (crypto->*Free)(object);
    }
};

/// Owns an object of the library; made by `owned`.
template <class T, auto Free>
using CryptoOwner = std::unique_ptr<T, CryptoRelease<Free>>;

using OwnedBio = CryptoOwner<BIO, &LibCryptoFunctions::BIO_free_all>;
using OwnedCms = CryptoOwner<CMS_ContentInfo, &LibCryptoFunctions::CMS_ContentInfo_free>;
using OwnedCertificate = CryptoOwner<X509, &LibCryptoFunctions::X509_free>;
using OwnedStore = CryptoOwner<X509_STORE, &LibCryptoFunctions::X509_STORE_free>;
using OwnedStoreContext = CryptoOwner<X509_STORE_CTX, &LibCryptoFunctions::X509_STORE_CTX_free>;
using OwnedKey = CryptoOwner<EVP_PKEY, &LibCryptoFunctions::EVP_PKEY_free>;
using OwnedDigest = CryptoOwner<EVP_MD_CTX, &LibCryptoFunctions::EVP_MD_CTX_free>;

/// Bytes that the library allocated.
struct CryptoBytesRelease {
    const LibCrypto* crypto = nullptr;
    void operator()(unsigned char* bytes) const { crypto->CRYPTO_free(bytes, "", 0); }
};
using OwnedBytes = std::unique_ptr<unsigned char, CryptoBytesRelease>;

template <class Owner>
Owner owned(const LibCrypto& crypto, typename Owner::pointer object) {
    return Owner(object, typename Owner::deleter_type{&crypto});
}

/// A list of certificates that is owned with what is in it.
class CertificateStack {
public:
    CertificateStack(const LibCrypto& crypto, STACK_OF(X509) * stack) : crypto_(crypto), stack_(stack) {}
    ~CertificateStack();
    CertificateStack(const CertificateStack&) = delete;
    CertificateStack& operator=(const CertificateStack&) = delete;

    int size() const;
    X509* at(int index) const;
    STACK_OF(X509) * get() const { return stack_; }

private:
    const LibCrypto& crypto_;
    STACK_OF(X509) * stack_;
};

}  // namespace ksw::facts
