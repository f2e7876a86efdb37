// signing_support.h: signers whose certificates the program `openssl` makes, and files that they sign.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include <kestrelwood/code_signing.h>

#include "platform/facts/code.h"
#include "platform/facts/code_directory.h"
#include "platform/facts/sign.h"
#include "platform/facts/status.h"
#include "tests/support/host_root.h"
#include "tests/support/sanitized.h"
#include "tests/support/temp_folder.h"

namespace ksw::facts {

/// Less to do where everything is many times slower.
inline constexpr int kSlowness = test::kIsSanitized ? 10 : 1;

Data bytesOf(std::string_view text);
std::string textOf(Bytes bytes);
Data contentOf(const std::string& path);
void writeContent(const std::string& path, Bytes content);

/// Runs a program by its arguments; its exit status. Its output goes to `output`, else nowhere.
int run(const std::vector<std::string>& arguments, const std::string& output = "/dev/null");

/// The real clock, put forward, so that files that were just written count as settled.
class ForwardClock final : public host::Clock {
public:
    explicit ForwardClock(double seconds = 10) : seconds_(seconds) {}
    std::chrono::nanoseconds monotonic() const override { return host::systemClock().monotonic(); }
    Date wall() const override { return Date{host::systemClock().wall().secondsSinceReference + seconds_}; }
    void advance(double seconds) { seconds_ += seconds; }

private:
    double seconds_;
};

/// A key and its certificate, by the paths of files; the chain begins with the certificate.
struct Identity {
    std::string key;
    std::string certificate;
    std::string chain;
    std::string above;  ///< The chain without the certificate; no path when it stands alone.
};

/// How a certificate is to be.
struct CertificateForm {
    /// ca, signer, plain, mail, everything, nothing, encipherment, shortCa, webCa, unknown
    std::string section = "signer";
    std::string organization = "Example Works";
    std::string algorithm = "P-256";  ///< P-256, P-224, P-384, P-521, ED25519, RSA:BITS
    std::string digest = "sha256";
    int days = 30;
    std::string from = {};  ///< As openssl takes it ("20200101000000Z"); with `to`, in place of the days from now.
    std::string to = {};
};

/// Makes the folders and files of an application whose main executable is a script; its path. Anybody may read it.
std::string makeApplication(const test::TempFolder& folder, const std::string& name,
                            const std::string& bundleIdentifier);

/// Makes certificates in a folder of its own.
class CertificateMaker {
public:
    CertificateMaker();
    Identity root(const std::string& name, CertificateForm form = {});
    Identity issue(const Identity& issuer, const std::string& name, const CertificateForm& form = {});
    /// An authority below another.
    Identity authority(const Identity& issuer, const std::string& name, CertificateForm form = {});

    /// A detached message over the content, by `openssl cms -sign`.
    Data message(const Identity& signer, Bytes content, const std::vector<std::string>& more = {});
    const test::TempFolder& folder() const { return folder_; }

private:
    Identity make(const std::string& name, const CertificateForm& form, const Identity* issuer);
    void makeCertificate(const Identity& identity, const CertificateForm& form, const std::string& subject,
                         const Identity* issuer);
    void makeCertificateWithTimes(const Identity& identity, const CertificateForm& form, const Identity* issuer);
    test::TempFolder folder_;
};

/// A host root with the trust folders, a maker of certificates, and a place for files.
class SigningTest : public testing::Test {
protected:
    /// Puts a certificate among the trusted ones.
    void trust(const Identity& identity) const;
    void trustAsMaker(const Identity& identity) const;

    /// A trusted root, made when it is first asked for, and a signer below it.
    const Identity& trustedRoot();
    const Identity& signer();

    static SigningRequest request(const Identity* signer, const std::string& identifier = "com.example.tool");
    /// A file that was signed by `signer()`, with this code.
    std::string signedFile(const std::string& name, const std::string& code,
                           const std::string& identifier = "com.example.tool");
    /// A copy of a program of the host, signed.
    std::string signedProgram(const std::string& program, const std::string& name,
                              const std::string& identifier = "com.example.tool");
    std::string copyOf(const std::string& file, const std::string& name) const;

    /// A file with this directory and message as its signature.
    std::string fileWith(const std::string& name, std::string_view code, Bytes directory,
                         const std::optional<Data>& message) const;
    static CodeDirectory directoryOf(std::string_view code);
    /// A generic file whose directory `openssl` has signed.
    std::string signedByOpenssl(const Identity& signer, const std::vector<std::string>& more = {});

    /// What a verifier without memories says.
    static Result<std::shared_ptr<const CodeFacts>> judged(const std::string& path);
    static CodeStatus statusOf(const std::string& path);
    /// The same, which must come at once.
    static CodeStatus promptStatus(const std::string& path);

    test::HostRoot host_;
    test::TempFolder files_;
    CertificateMaker certificates_;

private:
    std::optional<Identity> root_;
    std::optional<Identity> signer_;
};

/// The status of a failure; 0 when there is none.
template <class T>
CodeStatus statusOf(const Result<T>& result) {
    if (result.ok()) {
        return CodeStatus{};
    }
    EXPECT_EQ(result.error().domain(), kStatusErrorDomain);
    return static_cast<CodeStatus>(result.error().code());
}

inline std::ostream& operator<<(std::ostream& out, CodeStatus status) {
    return out << static_cast<int>(status) << " (" << statusText(static_cast<int>(status)) << ")";
}

}  // namespace ksw::facts
