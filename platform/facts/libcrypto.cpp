#include "platform/facts/libcrypto.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

#include <dlfcn.h>

#include "platform/facts/status.h"
#include "platform/host/log.h"

namespace ksw::facts {

namespace {

constexpr const char* kSoname = "libcrypto.so.3";

// Tells package builders and image makers which library this one opens while it runs. An ELF note: lengths of the
// owner and of the text, the note's type, the owner, and the text.
#define KSW_DLOPEN_TEXT                                                                                      \
    "[{\"soname\":[\"libcrypto.so.3\"],\"feature\":\"code-signatures\",\"description\":\"Verify who signed " \
    "code\","                                                                                                \
    "\"priority\":\"recommended\"}]"

struct DlopenNote {
    std::uint32_t ownerSize;
    std::uint32_t textSize;
    std::uint32_t type;
    std::array<char, 4> owner;
    alignas(4) char text[sizeof KSW_DLOPEN_TEXT];
};

[[gnu::used, gnu::section(".note.dlopen")]] alignas(4) constexpr DlopenNote kDlopenNote{
    4, sizeof KSW_DLOPEN_TEXT, 0x407c0c0a, {'F', 'D', 'O', '\0'}, KSW_DLOPEN_TEXT};

template <class Function>
bool find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(library, name));
    return function != nullptr;
}

/// The name of the first function that the library lacks; null when it has them all.
const char* findAll(void* library, LibCryptoFunctions& functions) {
    const char* missing = nullptr;
#define KSW_FIND(name)                                                 \
    if (!find(library, #name, functions.name) && missing == nullptr) { \
        missing = #name;                                               \
    }
    KSW_LIBCRYPTO_FUNCTIONS(KSW_FIND)
#undef KSW_FIND
    return missing;
}

std::string dlopenReason() {
    const char* reason = ::dlerror();
    return reason == nullptr ? "unknown" : reason;
}

const LibCrypto* loadOrSay(const char* soname) {
    Result<std::unique_ptr<const LibCrypto>> loaded = LibCrypto::load(soname);
    if (!loaded) {
        host::mainLog.error("No code counts as signed on this host: %{public}@",
                            std::string(loaded.error().localizedDescription()));
        return nullptr;
    }
    return std::move(*loaded).release();
}

/// A library that is opened once.
class LibraryUse {
public:
    constexpr explicit LibraryUse(const char* soname) : soname_(soname) {}

    const LibCrypto* library() {
        std::call_once(once_, [this] { library_ = loadOrSay(soname_); });
        return library_;
    }

    /// Gives up what was opened, for one that is no longer asked.
    void close() { delete std::exchange(library_, nullptr); }

private:
    const char* soname_;
    std::once_flag once_;
    const LibCrypto* library_ = nullptr;
};

constinit LibraryUse hostLibrary{kSoname};
constinit std::atomic<LibraryUse*> libraryInUse{&hostLibrary};

}  // namespace

Result<std::unique_ptr<const LibCrypto>> LibCrypto::load(const char* soname) {
    // Kept open when there is one: it is opened once more below, and stays.
    const bool isFirst = ::dlopen(soname, RTLD_NOW | RTLD_NOLOAD) == nullptr;
    void* const library = ::dlopen(soname, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        return statusError(CodeStatus::NoCryptography, dlopenReason());
    }
    std::unique_ptr<LibCrypto> crypto(new LibCrypto());
    if (const char* missing = findAll(library, *crypto); missing != nullptr) {
        ::dlclose(library);
        return statusError(CodeStatus::NoCryptography, std::string(soname) + " lacks " + missing);
    }
    if (Status status = crypto->setUp(isFirst); !status) {
        return status.error();
    }
    return std::unique_ptr<const LibCrypto>(std::move(crypto));
}

Status LibCrypto::setUp(bool isFirst) {
    // Other threads may still verify while the process exits; the library must not be torn down under them. And
    // looking up a name would have it read the file that OPENSSL_CONF names, whatever that is; a program that uses
    // the library too may count on its file.
    const std::uint64_t options =
        OPENSSL_INIT_NO_ATEXIT | (isFirst ? OPENSSL_INIT_NO_LOAD_CONFIG : std::uint64_t{0});
    const bool isReady = OPENSSL_init_crypto(options, nullptr) == 1;
    context_ = isReady ? OSSL_LIB_CTX_new() : nullptr;
    if (context_ == nullptr) {
        return statusError(CodeStatus::NoCryptography, "no library context");
    }
    provider_ = OSSL_PROVIDER_load(context_, "default");
    sha256_ = EVP_MD_fetch(context_, "SHA256", nullptr);
    if (provider_ == nullptr || sha256_ == nullptr) {
        return statusError(CodeStatus::NoCryptography, "no default provider");
    }
    return {};
}

LibCrypto::~LibCrypto() {
    if (sha256_ != nullptr) {
        EVP_MD_free(sha256_);
    }
    if (provider_ != nullptr) {
        OSSL_PROVIDER_unload(provider_);
    }
    if (context_ != nullptr) {
        OSSL_LIB_CTX_free(context_);
    }
}

const LibCrypto* LibCrypto::shared() {
    return libraryInUse.load(std::memory_order_acquire)->library();
}

struct ScopedLibCryptoName::Use {
    explicit Use(const char* soname) : library(soname) {}
    ~Use() { library.close(); }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    LibraryUse library;
};

ScopedLibCryptoName::ScopedLibCryptoName(const char* soname) : use_(std::make_unique<Use>(soname)) {
    libraryInUse.store(&use_->library, std::memory_order_release);
}

ScopedLibCryptoName::~ScopedLibCryptoName() {
    libraryInUse.store(&hostLibrary, std::memory_order_release);
}

CertificateStack::~CertificateStack() {
    for (int index = 0; index < size(); ++index) {
        crypto_.X509_free(at(index));
    }
    if (stack_ != nullptr) {
        crypto_.OPENSSL_sk_free(reinterpret_cast<OPENSSL_STACK*>(stack_));
    }
}

int CertificateStack::size() const {
    return stack_ == nullptr ? 0 : crypto_.OPENSSL_sk_num(reinterpret_cast<const OPENSSL_STACK*>(stack_));
}

X509* CertificateStack::at(int index) const {
    return static_cast<X509*>(crypto_.OPENSSL_sk_value(reinterpret_cast<const OPENSSL_STACK*>(stack_), index));
}

}  // namespace ksw::facts
