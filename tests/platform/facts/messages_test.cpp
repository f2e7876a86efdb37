// Which messages that sign a code directory are accepted, and that others accept ours.
#include <algorithm>

#include "platform/facts/cms.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using AMessage = SigningTest;

TEST_F(AMessage, OfOpensslIsAccepted) {
    EXPECT_TRUE(judged(signedByOpenssl(signer())).ok());
    EXPECT_TRUE(judged(signedByOpenssl(signer(), {"-noattr"})).ok());
    EXPECT_TRUE(judged(signedByOpenssl(signer(), {"-md", "sha384"})).ok());
    EXPECT_TRUE(judged(signedByOpenssl(signer(), {"-md", "sha512"})).ok());
}

/// The signature in a file, as it stands there.
StoredSignature storedIn(const std::string& path) {
    const Result<CodeFile> file = CodeFile::open(path);
    Result<StoredSignature> signature = readSignature(*file, *file->stamp());
    EXPECT_TRUE(signature.ok());
    return std::move(*signature);
}

/// Whether the program `openssl` accepts what we made for this signer.
bool opensslAccepts(const test::TempFolder& folder, const StoredSignature& signature, const std::string& root) {
    writeContent(folder.at("directory"), signature.directoryBytes);
    writeContent(folder.at("message"), *signature.message);
    return run({"openssl", "cms", "-verify", "-binary", "-inform", "DER", "-in", folder.at("message"), "-content",
                folder.at("directory"), "-CAfile", root, "-purpose", "any"}) == 0;
}

TEST_F(AMessage, OfOursIsAcceptedByOpensslWithEveryKeyThatItKnows) {
    const Identity between = certificates_.authority(trustedRoot(), "between");
    for (const char* algorithm : {"RSA:2048", "RSA:3072", "P-256", "P-384", "P-521"}) {
        CertificateForm form;
        form.algorithm = algorithm;
        const Identity leaf = certificates_.issue(between, algorithm, form);
        const std::string path = files_.writeFile("file", "some code");
        ASSERT_TRUE(sign(path, request(&leaf)).ok()) << algorithm;
        StoredSignature signature = storedIn(path);
        EXPECT_TRUE(opensslAccepts(files_, signature, trustedRoot().certificate)) << algorithm;
        signature.directoryBytes.back() ^= 1;
        EXPECT_FALSE(opensslAccepts(files_, signature, trustedRoot().certificate)) << algorithm;
    }
}

// `openssl cms` of version 3.0 knows no Ed25519, but `openssl pkeyutl` does. Without signed attributes the
// message's signature is one over the content itself (RFC 8419, section 3), and it stands last.
TEST_F(AMessage, OfOursWithEd25519HoldsTheSignatureThatOpensslMakesOfTheSame) {
    CertificateForm form;
    form.algorithm = "ED25519";
    const Identity leaf = certificates_.issue(trustedRoot(), "edwards", form);
    const std::string path = files_.writeFile("file", "some code");
    ASSERT_TRUE(sign(path, request(&leaf)).ok());
    const StoredSignature signature = storedIn(path);
    writeContent(files_.at("directory"), signature.directoryBytes);
    ASSERT_EQ(run({"openssl", "pkeyutl", "-sign", "-rawin", "-inkey", leaf.key, "-in", files_.at("directory"),
                   "-out", files_.at("signature")}),
              0);
    constexpr std::size_t kSize = 64;
    ASSERT_GT(signature.message->size(), kSize);
    EXPECT_EQ(Data(signature.message->end() - kSize, signature.message->end()), contentOf(files_.at("signature")));
    writeContent(files_.at("message"), *signature.message);
    ASSERT_EQ(run({"openssl", "cms", "-cmsout", "-print", "-inform", "DER", "-in", files_.at("message")},
                  files_.at("shown")),
              0);
    const std::string shown = textOf(contentOf(files_.at("shown")));
    const std::string signerInfo = shown.substr(std::min(shown.size(), shown.find("signerInfos:")));
    EXPECT_NE(signerInfo.find("algorithm: sha512 (2.16.840.1.101.3.4.2.3)"), std::string::npos) << signerInfo;
    EXPECT_NE(signerInfo.find("algorithm: ED25519 (1.3.101.112)\n          parameter: <ABSENT>"), std::string::npos)
        << signerInfo;
    EXPECT_NE(signerInfo.find("signedAttrs:\n          <ABSENT>"), std::string::npos) << signerInfo;
}

TEST_F(AMessage, MayNameItsSignerByTheIdentifierOfItsKey) {
    EXPECT_TRUE(judged(signedByOpenssl(signer(), {"-keyid"})).ok());
}

TEST_F(AMessage, OfAnotherKindIsRefused) {
    EXPECT_EQ(statusOf(signedByOpenssl(signer(), {"-econtent_type", "pkcs7-encryptedData"})),
              CodeStatus::MessageMalformed);
    const Data directory = *encodeDirectory(directoryOf("some code"));
    const std::string content = files_.at("content");
    const std::string message = files_.at("other");
    writeContent(content, directory);
    ASSERT_EQ(run({"openssl", "cms", "-data_create", "-outform", "DER", "-in", content, "-out", message}), 0);
    EXPECT_EQ(statusOf(fileWith("data", "some code", directory, contentOf(message))), CodeStatus::MessageMalformed);
    ASSERT_EQ(run({"openssl", "cms", "-digest_create", "-outform", "DER", "-in", content, "-out", message}), 0);
    EXPECT_EQ(statusOf(fileWith("digest", "some code", directory, contentOf(message))),
              CodeStatus::MessageMalformed);
    CertificateForm form;
    form.algorithm = "RSA:2048";
    const Identity reader = certificates_.root("reader", form);
    ASSERT_EQ(run({"openssl", "cms", "-encrypt", "-aes256", "-outform", "DER", "-in", content, "-out", message,
                   reader.certificate}),
              0);
    EXPECT_EQ(statusOf(fileWith("envelope", "some code", directory, contentOf(message))),
              CodeStatus::MessageMalformed);
}

TEST_F(AMessage, UsesNoOtherPaddingThanIsAccepted) {
    CertificateForm form;
    form.algorithm = "RSA:2048";
    const Identity leaf = certificates_.issue(trustedRoot(), "rsa", form);
    EXPECT_TRUE(judged(signedByOpenssl(leaf)).ok());
    EXPECT_EQ(statusOf(signedByOpenssl(leaf, {"-keyopt", "rsa_padding_mode:pss"})), CodeStatus::WeakAlgorithm);
}

TEST_F(AMessage, UsesNoDigestWeakerThanSha256) {
    EXPECT_EQ(statusOf(signedByOpenssl(signer(), {"-md", "sha1"})), CodeStatus::WeakAlgorithm);
    EXPECT_EQ(statusOf(signedByOpenssl(signer(), {"-md", "sha224"})), CodeStatus::WeakAlgorithm);
}

TEST_F(AMessage, HasOneSigner) {
    const Identity other = certificates_.issue(trustedRoot(), "other");
    EXPECT_EQ(statusOf(signedByOpenssl(signer(), {"-signer", other.certificate, "-inkey", other.key})),
              CodeStatus::SignerCount);
    const Data directory = *encodeDirectory(directoryOf("some code"));
    const std::string none = certificates_.folder().at("none.p7");
    ASSERT_EQ(
        run({"openssl", "crl2pkcs7", "-nocrl", "-certfile", signer().certificate, "-outform", "DER", "-out", none}),
        0);
    EXPECT_EQ(statusOf(fileWith("none", "some code", directory, contentOf(none))), CodeStatus::SignerCount);
}

TEST_F(AMessage, IsRefusedWithTrailingBytes) {
    const Data directory = *encodeDirectory(directoryOf("some code"));
    Data message = certificates_.message(signer(), directory);
    EXPECT_TRUE(judged(fileWith("file", "some code", directory, message)).ok());
    message.push_back(0);
    EXPECT_EQ(statusOf(fileWith("file", "some code", directory, message)), CodeStatus::MessageMalformed);
    message.resize(message.size() - 2);
    EXPECT_EQ(statusOf(fileWith("file", "some code", directory, message)), CodeStatus::MessageMalformed);
    EXPECT_EQ(statusOf(fileWith("file", "some code", directory, Data())), CodeStatus::MessageMalformed);
}

TEST_F(AMessage, IsRefusedInAFormThatIsNotDer) {
    EXPECT_EQ(statusOf(signedByOpenssl(signer(), {"-stream", "-nodetach"})), CodeStatus::MessageMalformed);
    EXPECT_EQ(statusOf(signedByOpenssl(signer(), {"-nodetach"})), CodeStatus::MessageMalformed);
}

TEST_F(AMessage, BelongsToItsDirectory) {
    const Data directory = *encodeDirectory(directoryOf("some code"));
    CodeDirectory other = directoryOf("some code");
    other.identifier = "com.example.other";
    const Data message = certificates_.message(signer(), *encodeDirectory(other));
    EXPECT_EQ(statusOf(fileWith("file", "some code", directory, message)), CodeStatus::SignatureWrong);
}

TEST_F(AMessage, HoldsItsSignersCertificate) {
    EXPECT_EQ(statusOf(signedByOpenssl(signer(), {"-nocerts"})), CodeStatus::SignatureWrong);
}

TEST_F(AMessage, HoldsAtMostSixteenCertificates) {
    std::string more;
    for (int number = 0; number < 15; ++number) {
        more += textOf(contentOf(certificates_.root("extra" + std::to_string(number)).certificate));
    }
    const std::string file = certificates_.folder().writeFile("more.pem", more);
    EXPECT_TRUE(judged(signedByOpenssl(signer(), {"-certfile", file})).ok());
    const std::string one = textOf(contentOf(certificates_.root("extra").certificate));
    certificates_.folder().writeFile("more.pem", more + one);
    EXPECT_EQ(statusOf(signedByOpenssl(signer(), {"-certfile", file})), CodeStatus::TooManyCertificates);
}

TEST_F(AMessage, IsAtMostAMebibyte) {
    const Data directory = *encodeDirectory(directoryOf("some code"));
    Data message(limits::kSignatureMessageMax, 0);
    EXPECT_EQ(statusOf(fileWith("file", "some code", directory, message)), CodeStatus::MessageMalformed);
    message.push_back(0);
    EXPECT_EQ(encodeSignature(CodeKind::Other, {directory, message}).error().code(),
              static_cast<std::int64_t>(FormatError::LimitPassed));
}

}  // namespace
}  // namespace ksw::facts
