// Who may sign.
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using ASigner = SigningTest;

TEST_F(ASigner, IsTrustedThroughARootInTheTrustFolder) {
    const auto facts = judged(signedFile("file", "some code"));
    ASSERT_TRUE(facts.ok()) << facts.error().description();
    EXPECT_EQ((*facts)->identifier, "com.example.tool");
    EXPECT_EQ((*facts)->team, "TEAM000001");
    EXPECT_EQ((*facts)->format, "generic file");
    EXPECT_EQ((*facts)->source, "embedded");
    EXPECT_EQ((*facts)->anchor, Anchor::Trusted);
    ASSERT_EQ((*facts)->chain.size(), 2U);
    EXPECT_EQ((*facts)->chain[0].organizations, std::vector<std::string>{"Example Works"});
    EXPECT_FALSE((*facts)->chain[0].encoded.empty());
    EXPECT_EQ((*facts)->requirement, "anchor trusted and identifier \"com.example.tool\" and team \"TEAM000001\"");
}

TEST_F(ASigner, OfTheMakerIsAnchoredThere) {
    const Identity root = certificates_.root("maker");
    trustAsMaker(root);
    const Identity leaf = certificates_.issue(root, "leaf");
    const std::string path = files_.writeFile("file", "some code");
    ASSERT_TRUE(sign(path, request(&leaf)).ok());
    const auto facts = judged(path);
    ASSERT_TRUE(facts.ok()) << facts.error().description();
    EXPECT_EQ((*facts)->anchor, Anchor::Maker);
}

TEST_F(ASigner, IsNotTrustedWithoutARootOfThisHost) {
    const Identity root = certificates_.root("stranger");
    const Identity leaf = certificates_.issue(root, "leaf");
    const std::string path = files_.writeFile("file", "some code");
    ASSERT_TRUE(sign(path, request(&leaf)).ok());
    EXPECT_EQ(statusOf(path), CodeStatus::NotTrusted);
    trust(root);
    EXPECT_TRUE(judged(path).ok());
}

TEST_F(ASigner, MayBeTrustedByItself) {
    CertificateForm form;
    form.section = "plain";
    const Identity self = certificates_.root("self", form);
    const std::string path = files_.writeFile("file", "some code");
    ASSERT_TRUE(sign(path, request(&self)).ok());
    EXPECT_EQ(statusOf(path), CodeStatus::NotTrusted);
    trust(self);
    EXPECT_TRUE(judged(path).ok());
}

TEST_F(ASigner, MayStandBelowIntermediateAuthorities) {
    const Identity second = certificates_.authority(trustedRoot(), "second");
    const Identity third = certificates_.authority(second, "third");
    const Identity leaf = certificates_.issue(third, "leaf");
    const auto facts = judged(signedByOpenssl(leaf));
    ASSERT_TRUE(facts.ok()) << facts.error().description();
    EXPECT_EQ((*facts)->chain.size(), 4U);
}

TEST_F(ASigner, HasAChainOfAtMostEightCertificates) {
    Identity above = trustedRoot();
    for (int number = 0; number < 6; ++number) {
        above = certificates_.authority(above, "authority" + std::to_string(number));
    }
    EXPECT_TRUE(judged(signedByOpenssl(certificates_.issue(above, "eighth"))).ok());
    above = certificates_.authority(above, "authority6");
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(above, "ninth"))), CodeStatus::ChainTooLong);
}

TEST_F(ASigner, MustNotStandBelowWhatIsNoAuthority) {
    const Identity leaf = certificates_.issue(signer(), "leaf");
    EXPECT_EQ(statusOf(signedByOpenssl(leaf)), CodeStatus::WrongPurpose);
    CertificateForm form;
    form.section = "webCa";
    const Identity web = certificates_.authority(trustedRoot(), "web", form);
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(web, "below-web"))), CodeStatus::WrongPurpose);
    form.section = "shortCa";
    const Identity shortAuthority = certificates_.authority(trustedRoot(), "short", form);
    EXPECT_TRUE(judged(signedByOpenssl(certificates_.issue(shortAuthority, "below-short"))).ok());
    const Identity below = certificates_.authority(shortAuthority, "second");
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(below, "far-below"))), CodeStatus::ChainInvalid);
}

TEST_F(ASigner, IsMeantForSigningCode) {
    for (const char* section : {"mail", "everything", "nothing", "encipherment"}) {
        CertificateForm form;
        form.section = section;
        const Identity leaf = certificates_.issue(trustedRoot(), section, form);
        EXPECT_EQ(statusOf(signedByOpenssl(leaf)), CodeStatus::WrongPurpose) << section;
        const std::string path = files_.writeFile("file", "some code");
        EXPECT_EQ(facts::statusOf(sign(path, request(&leaf))), CodeStatus::WrongPurpose) << section;
    }
    CertificateForm form;
    form.section = "plain";
    EXPECT_TRUE(judged(signedByOpenssl(certificates_.issue(trustedRoot(), "plain", form))).ok());
}

TEST_F(ASigner, IsRefusedBeforeAndAfterItsTime) {
    const std::string path = signedFile("file", "some code");
    constexpr double kDay = 24 * 60 * 60;
    const auto statusAt = [&](double days) {
        const ForwardClock clock(days * kDay);
        Verifier verifier(clock);
        return facts::statusOf(StaticCode::open(path, verifier)->facts());
    };
    EXPECT_EQ(statusAt(-1), CodeStatus::NotYetValid);
    EXPECT_EQ(statusAt(0), CodeStatus{});
    EXPECT_EQ(statusAt(29), CodeStatus{});
    EXPECT_EQ(statusAt(31), CodeStatus::Expired);
}

TEST_F(ASigner, WhoseCertificateHasExpiredIsRefusedUnderAValidRoot) {
    CertificateForm form;
    form.days = 5;
    const std::string path = signedByOpenssl(certificates_.issue(trustedRoot(), "short-lived", form));
    EXPECT_TRUE(judged(path).ok());
    const ForwardClock clock(6.0 * 24 * 60 * 60);
    Verifier verifier(clock);
    EXPECT_EQ(facts::statusOf(StaticCode::open(path, verifier)->facts()), CodeStatus::Expired);
    EXPECT_TRUE(StaticCode::open(signedFile("file", "some code"), verifier)->facts().ok());
}

CertificateForm withTimes(const char* from, const char* to, const char* section = "signer") {
    CertificateForm form;
    form.section = section;
    form.from = from;
    form.to = to;
    return form;
}

constexpr const char* kLongAgo = "20010101000000Z";
constexpr const char* kNotLongAgo = "20200101000000Z";
constexpr const char* kOneDay = "20900101000000Z";
constexpr const char* kLater = "20910101000000Z";

TEST_F(ASigner, HasACertificateThatIsValidNow) {
    EXPECT_EQ(
        statusOf(signedByOpenssl(certificates_.issue(trustedRoot(), "over", withTimes(kLongAgo, kNotLongAgo)))),
        CodeStatus::Expired);
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(trustedRoot(), "early", withTimes(kOneDay, kLater)))),
              CodeStatus::NotYetValid);
    EXPECT_EQ(
        statusOf(signedByOpenssl(certificates_.issue(trustedRoot(), "valid", withTimes(kNotLongAgo, kOneDay)))),
        CodeStatus{});
}

TEST_F(ASigner, HasAChainThatIsValidNow) {
    const Identity over = certificates_.authority(trustedRoot(), "over", withTimes(kLongAgo, kNotLongAgo, "ca"));
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(over, "below-over"))), CodeStatus::Expired);
    const Identity early = certificates_.authority(trustedRoot(), "early", withTimes(kOneDay, kLater, "ca"));
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(early, "below-early"))), CodeStatus::NotYetValid);
    const Identity oldRoot = certificates_.root("old-root", withTimes(kLongAgo, kNotLongAgo, "ca"));
    trust(oldRoot);
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(oldRoot, "below-root"))), CodeStatus::Expired);
    const Identity self = certificates_.root("self", withTimes(kLongAgo, kNotLongAgo, "plain"));
    trust(self);
    EXPECT_EQ(statusOf(signedByOpenssl(self)), CodeStatus::Expired);
    const Identity maker = certificates_.root("maker", withTimes(kOneDay, kLater, "ca"));
    trustAsMaker(maker);
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(maker, "below-maker"))), CodeStatus::NotYetValid);
}

TEST_F(ASigner, HasNoCertificateWithACriticalExtensionThatNobodyKnows) {
    CertificateForm form;
    form.section = "unknown";
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(trustedRoot(), "unknown", form))),
              CodeStatus::ChainInvalid);
}

TEST_F(ASigner, IsNotTrustedByAnotherRootOfTheSameName) {
    const Identity real = certificates_.root("twin");
    trust(real);
    EXPECT_TRUE(judged(signedByOpenssl(certificates_.issue(real, "leaf"))).ok());
    const Identity twin = certificates_.root("twin");
    EXPECT_FALSE(judged(signedByOpenssl(certificates_.issue(twin, "leaf"))).ok());
}

TEST_F(ASigner, HasAStrongKey) {
    for (const char* algorithm : {"P-256", "P-384", "P-521", "RSA:2048"}) {
        CertificateForm form;
        form.algorithm = algorithm;
        const Identity leaf = certificates_.issue(trustedRoot(), algorithm, form);
        EXPECT_TRUE(judged(signedByOpenssl(leaf)).ok()) << algorithm;
        const std::string path = files_.writeFile("file", "some code");
        ASSERT_TRUE(sign(path, request(&leaf)).ok()) << algorithm;
        EXPECT_TRUE(judged(path).ok()) << algorithm;
    }
    for (const char* algorithm : {"P-224", "RSA:1024", "RSA:2040"}) {
        CertificateForm form;
        form.algorithm = algorithm;
        const Identity leaf = certificates_.issue(trustedRoot(), algorithm, form);
        EXPECT_EQ(statusOf(signedByOpenssl(leaf)), CodeStatus::WeakAlgorithm) << algorithm;
        const std::string path = files_.writeFile("file", "some code");
        EXPECT_EQ(facts::statusOf(sign(path, request(&leaf))), CodeStatus::WeakAlgorithm) << algorithm;
    }
}

TEST_F(ASigner, MayUseEd25519) {
    CertificateForm form;
    form.algorithm = "ED25519";
    const Identity leaf = certificates_.issue(trustedRoot(), "edwards", form);
    const std::string path = files_.writeFile("file", "some code");
    const Status status = sign(path, request(&leaf));
    ASSERT_TRUE(status.ok()) << status.error().description();
    const auto facts = judged(path);
    ASSERT_TRUE(facts.ok()) << facts.error().description();
    // The signature proper stands last in the message; the identifier stands near the beginning.
    const Data content = contentOf(path);
    for (const std::size_t at : {content.size() - kSignatureTailSize - 10, std::size_t{24}}) {
        Data altered = content;
        altered[at] ^= 1;
        writeContent(path, altered);
        EXPECT_EQ(statusOf(path), CodeStatus::SignatureWrong) << at;
    }
}

TEST_F(ASigner, HasAStrongChain) {
    CertificateForm weak;
    weak.algorithm = "RSA:1024";
    const Identity authority = certificates_.authority(trustedRoot(), "weak", weak);
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(authority, "leaf"))), CodeStatus::WeakAlgorithm);
    CertificateForm old;
    old.digest = "sha1";
    const Identity oldAuthority = certificates_.authority(trustedRoot(), "old", old);
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(oldAuthority, "below-old"))), CodeStatus::WeakAlgorithm);
    EXPECT_EQ(statusOf(signedByOpenssl(certificates_.issue(trustedRoot(), "sha1", old))),
              CodeStatus::WeakAlgorithm);
}

TEST_F(ASigner, KeepsTheOrganizationAsItIs) {
    for (const std::string organization : {"  Blanks  ", "Line\nbreak\n",
                                           "\xE2\x80\xAE"
                                           "tfel",
                                           " Velmont Inc.\n"}) {
        CertificateForm form;
        form.organization = organization;
        const Identity leaf = certificates_.issue(trustedRoot(), "leaf", form);
        const auto facts = judged(signedByOpenssl(leaf));
        ASSERT_TRUE(facts.ok()) << facts.error().description();
        EXPECT_EQ((*facts)->chain[0].organizations, std::vector<std::string>{organization});
    }
    CertificateForm form;
    form.organization = "";
    EXPECT_TRUE((*judged(signedByOpenssl(certificates_.issue(trustedRoot(), "leaf", form))))
                    ->chain[0]
                    .organizations.empty());
    form.organization = "First/O=Second";
    EXPECT_EQ((*judged(signedByOpenssl(certificates_.issue(trustedRoot(), "leaf", form))))->chain[0].organizations,
              (std::vector<std::string>{"First", "Second"}));
}

TEST_F(ASigner, MayHaveANulInItsOrganization) {
    CertificateForm form;
    form.section = "plain";
    form.organization = "AxB";
    const Identity self = certificates_.root("self", form);
    const std::string der = certificates_.folder().at("self.der");
    ASSERT_EQ(run({"openssl", "x509", "-in", self.certificate, "-outform", "DER", "-out", der}), 0);
    // Its signature breaks, but a trusted certificate's own is not asked for.
    std::string content = textOf(contentOf(der));
    for (std::size_t at = 0; (at = content.find("AxB", at)) != std::string::npos; ++at) {
        content[at + 1] = '\0';
    }
    writeContent(der, bytesOf(content));
    ASSERT_EQ(run({"openssl", "x509", "-inform", "DER", "-in", der, "-out", self.certificate}), 0);
    trust(self);
    const Identity patched{self.key, self.certificate, self.certificate, {}};
    const auto facts = judged(signedByOpenssl(patched));
    ASSERT_TRUE(facts.ok()) << facts.error().description();
    EXPECT_EQ((*facts)->chain[0].organizations, std::vector<std::string>{std::string("A\0B", 3)});
}

}  // namespace
}  // namespace ksw::facts
