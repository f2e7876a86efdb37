// What KSWCodeSignInfo says of signed code, and of which code there is none.

#include <gmock/gmock.h>
#include <kestrelwood/KSWCodeSignInfo.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/facts/launch_constraint.h"
#include "platform/host/log_capture.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using host::LogCapture;
using host::LogLevel;

constexpr const char* kAssociated = "com.velmont.private.kestrelwood.associatedbundleidentifiers";
constexpr const char* kSandbox = "com.velmont.security.app-sandbox";

std::shared_ptr<KSWCodeSignInfo> infoAt(const std::string& path) {
    return KSWCodeSignInfo::codeSignInfoForURL(URL::fileURL(path));
}

Data entitlements(const std::string& key, const std::string& value) {
    return bytesOf("<plist><dict><key>" + key + "</key>" + value + "</dict></plist>");
}

class ACodeSignInfo : public SigningTest {
protected:
    /// A signer of the platform's maker.
    Identity maker(const std::string& organization = "Velmont Inc.") {
        const Identity root = certificates_.root("maker-root");
        trustAsMaker(root);
        CertificateForm form;
        form.organization = organization;
        return certificates_.issue(root, "maker", form);
    }

    std::string signedBy(const Identity& identity, const SigningRequest& request) {
        SigningRequest its = request;
        its.key = contentOf(identity.key);
        its.chain = contentOf(identity.chain);
        std::string path = files_.writeFile("file", "some code");
        const Status status = sign(path, its);
        EXPECT_TRUE(status.ok()) << status.error().description();
        return path;
    }

    /// An ELF file whose directory `openssl` has signed, as other tools would.
    std::string signedElf(const CodeDirectory& changes) {
        const std::string code =
            "\x7F"
            "ELF and so on";
        CodeDirectory directory = directoryOf(code);
        directory.requirement = changes.requirement;
        directory.constraint = changes.constraint;
        const Data bytes = *encodeDirectory(directory);
        return fileWith("elf", code, bytes, certificates_.message(signer(), bytes));
    }

    std::string signedBundle() {
        files_.writeFile(
            "My.app/Contents/Info.plist",
            "<plist><dict><key>QCBundleIdentifier</key><string>com.example.my</string></dict></plist>");
        std::filesystem::create_directories(files_.at("My.app/Contents/Linux"));
        copyOf("/bin/cat", "My.app/Contents/Linux/My");
        EXPECT_TRUE(sign(files_.at("My.app"), request(&signer(), "com.example.signed")).ok());
        return files_.at("My.app");
    }

    /// That there is none, and why.
    static void expectNone(const std::optional<URL>& url, int status, const std::string& shown) {
        const LogCapture log;
        std::optional<Error> error;
        EXPECT_EQ(KSWCodeSignInfo::initWithURL(url, &error), nullptr);
        EXPECT_EQ(error, Error(kStatusErrorDomain, status));
        EXPECT_EQ(log.at(LogLevel::Notice),
                  std::vector<std::string>{"-[KSWCodeSignInfo initWithURL:error:]: result=" +
                                           std::to_string(status) + ", url=" + shown});
    }
};

TEST_F(ACodeSignInfo, SaysWhoSignedTheCode) {
    const auto info = infoAt(signedProgram("/bin/cat", "cat"));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->signingIdentifier(), "com.example.tool");
    EXPECT_EQ(info->teamIdentifier(), "TEAM000001");
    EXPECT_EQ(info->developerName(), "Example Works");
    EXPECT_EQ(info->bundleIdentifier(), std::nullopt);
    EXPECT_EQ(info->designatedRequirement(),
              "anchor trusted and identifier \"com.example.tool\" and team \"TEAM000001\"");
    EXPECT_FALSE(info->isSandboxed());
    EXPECT_FALSE(info->hasAssociatedBundleIdentifiersEntitlement());
}

TEST_F(ACodeSignInfo, IsMadeWithoutAWordAndLeavesTheErrorAlone) {
    const std::string path = signedProgram("/bin/cat", "cat");
    const LogCapture log;
    std::optional<Error> error = Error("before", 1);
    EXPECT_NE(KSWCodeSignInfo::codeSignInfoForURL(URL::fileURL(path), &error), nullptr);
    EXPECT_NE(KSWCodeSignInfo::initWithURL(URL::fileURL(path)), nullptr);
    EXPECT_EQ(error, Error("before", 1));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ACodeSignInfo, OfABundleHasTheIdentifierInItsList) {
    const auto info = infoAt(signedBundle());
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->bundleIdentifier(), "com.example.my");
    EXPECT_EQ(info->signingIdentifier(), "com.example.signed");
    EXPECT_EQ(info->description(),
              "signing identifier=com.example.signed, bundle identifier=com.example.my, "
              "team identifier=TEAM000001, developer name=Example Works");
}

TEST_F(ACodeSignInfo, ShowsWhatIsNotThere) {
    SigningRequest bare = request(nullptr);
    bare.team.reset();
    EXPECT_EQ(infoAt(signedBy(maker(), bare))->description(),
              "signing identifier=com.example.tool, bundle identifier=(null), team identifier=(null), "
              "developer name=(null)");
}

TEST_F(ACodeSignInfo, ShowsItsRequirementsForDebugging) {
    EXPECT_EQ(infoAt(signedProgram("/bin/cat", "cat"))->debugDescription(),
              "signing identifier=com.example.tool, bundle identifier=(null), team identifier=TEAM000001, "
              "developer name=Example Works\n"
              "   designated requirement=anchor trusted and identifier \"com.example.tool\" and team "
              "\"TEAM000001\"\n"
              "   lightweight requirement=LWCR version=1, constraint category=0, "
              "requirement={anchor = trusted; identifier = com.example.tool; team = TEAM000001}");
    EXPECT_THAT(infoAt(signedFile("file", "some code"))->debugDescription(),
                testing::EndsWith("\"TEAM000001\"\n   lightweight requirement=(null)"));
}

TEST_F(ACodeSignInfo, IsNotMadeWithoutAFilesURL) {
    expectNone(std::nullopt, -50, "(null)");
    expectNone(URL::fromString("https://example.com/bin/cat"), -50, "https://example.com/bin/cat");
    const LogCapture log;
    EXPECT_EQ(KSWCodeSignInfo::codeSignInfoForURL(std::nullopt), nullptr);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].publicForm, "-[KSWCodeSignInfo initWithURL:error:]: result=-50, url=<private>");
}

TEST_F(ACodeSignInfo, IsNotMadeOfAnAdHocSignature) {
    const std::string path = copyOf("/bin/cat", "cat");
    ASSERT_TRUE(sign(path, request(nullptr)).ok());
    expectNone(URL::fileURL(path), -67062, "file://" + path);
}

TEST_F(ACodeSignInfo, IsNotMadeWithoutASignatureThatHolds) {
    expectNone(URL::fileURL("/bin/cat"), -67062, "file:///bin/cat");
    expectNone(URL::fileURL("/nothing"), -70001, "file:///nothing");
    const std::string altered = signedFile("altered", "some code");
    Data content = contentOf(altered);
    content[0] ^= 1;
    writeContent(altered, content);
    expectNone(URL::fileURL(altered), -70012, "file://" + altered);
    const Identity stranger = certificates_.root("stranger");
    const std::string foreign = signedBy(certificates_.issue(stranger, "leaf"), request(nullptr));
    expectNone(URL::fileURL(foreign), -70023, "file://" + foreign);
}

TEST_F(ACodeSignInfo, KeepsToWhatTheCodeWas) {
    const std::string path = signedFile("file", "some code");
    const auto info = infoAt(path);
    std::filesystem::remove(path);
    EXPECT_EQ(info->signingIdentifier(), "com.example.tool");
    EXPECT_EQ(info->teamIdentifier(), "TEAM000001");
}

TEST_F(ACodeSignInfo, HasNoDeveloperForTheMakerHoweverItsNameIsPadded) {
    for (const char* organization : {"Velmont Inc.", " Velmont Inc.\n", "\t Velmont Inc.\xC2\xA0"}) {
        EXPECT_EQ(infoAt(signedBy(maker(organization), request(nullptr)))->developerName(), std::nullopt)
            << organization;
    }
}

TEST_F(ACodeSignInfo, TrimsTheDevelopersName) {
    CertificateForm form;
    form.organization = " \n Example\tWorks \xE2\x80\x83/O=Second";
    const Identity leaf = certificates_.issue(trustedRoot(), "leaf", form);
    EXPECT_EQ(infoAt(signedBy(leaf, request(nullptr)))->developerName(), "Example\tWorks");
    form.organization = "";
    const Identity nameless = certificates_.issue(trustedRoot(), "nameless", form);
    EXPECT_EQ(infoAt(signedBy(nameless, request(nullptr)))->developerName(), std::nullopt);
}

TEST_F(ACodeSignInfo, OfTheMakersApplicationsIsOfTheirTeam) {
    const Identity velmont = maker();
    SigningRequest bare = request(nullptr);
    bare.team.reset();
    EXPECT_EQ(infoAt(signedBy(velmont, bare))->teamIdentifier(), std::nullopt);
    bare.entitlements = entitlements(kAssociated, "<true/>");
    const auto info = infoAt(signedBy(velmont, bare));
    EXPECT_TRUE(info->hasAssociatedBundleIdentifiersEntitlement());
    EXPECT_EQ(info->teamIdentifier(), "SYSTEMAPPS");
    bare.team = "TEAM000002";
    EXPECT_EQ(infoAt(signedBy(velmont, bare))->teamIdentifier(), "TEAM000002");
}

TEST_F(ACodeSignInfo, TakesTheEntitlementFromNobodyButTheMaker) {
    SigningRequest bare = request(nullptr);
    bare.team.reset();
    bare.entitlements = entitlements(kAssociated, "<true/>");
    const auto info = infoAt(signedBy(signer(), bare));
    EXPECT_FALSE(info->hasAssociatedBundleIdentifiersEntitlement());
    EXPECT_EQ(info->teamIdentifier(), std::nullopt);
}

TEST_F(ACodeSignInfo, IsOfThePlatformsTeamByNobodysWordButTheMakers) {
    SigningRequest pretending = request(nullptr);
    pretending.team = "SYSTEMAPPS";
    const URL url = URL::fileURL(signedBy(signer(), pretending));
    expectNone(url, -70023, url.absoluteString());
    EXPECT_EQ(infoAt(signedBy(maker(), pretending))->teamIdentifier(), "SYSTEMAPPS");
}

TEST_F(ACodeSignInfo, TakesAnEntitlementThatIsTrueOnly) {
    const Identity velmont = maker();
    SigningRequest bare = request(nullptr);
    for (const char* value : {"<false/>", "<integer>1</integer>", "<string>true</string>"}) {
        bare.entitlements = entitlements(kAssociated, value);
        EXPECT_FALSE(infoAt(signedBy(velmont, bare))->hasAssociatedBundleIdentifiersEntitlement()) << value;
        bare.entitlements = entitlements(kSandbox, value);
        EXPECT_FALSE(infoAt(signedBy(velmont, bare))->isSandboxed()) << value;
    }
    bare.entitlements = entitlements(kSandbox, "<true/>");
    EXPECT_TRUE(infoAt(signedBy(signer(), bare))->isSandboxed());
}

TEST_F(ACodeSignInfo, HasTheLaunchConstraintOfANativeExecutable) {
    ConstraintFacts conditions;
    conditions.team = "TEAM000001";
    conditions.anchor = Anchor::Trusted;
    conditions.identifier = "com.example.tool";
    const Data expected = LaunchConstraint::make(*encodedRequirement(conditions), 1, 0)->externalRepresentation();
    EXPECT_EQ(infoAt(signedProgram("/bin/cat", "cat"))->lightweightCodeRequirement(), expected);
    EXPECT_TRUE(infoAt(signedBundle())->lightweightCodeRequirement().has_value());
}

TEST_F(ACodeSignInfo, OfGenericCodeHasNoLaunchConstraint) {
    const std::string script = signedFile("script", "#!/bin/sh\nexit 0\n");
    ASSERT_EQ((*judged(script))->format, "generic script");
    ASSERT_TRUE((*judged(script))->constraint.has_value());
    EXPECT_EQ(infoAt(script)->lightweightCodeRequirement(), std::nullopt);
    EXPECT_EQ(infoAt(signedFile("file", "some code"))->lightweightCodeRequirement(), std::nullopt);
}

TEST_F(ACodeSignInfo, WithoutALaunchConstraintHasNone) {
    const auto info = infoAt(signedElf({}));
    ASSERT_NE(info, nullptr);
    const LogCapture log;
    EXPECT_EQ(info->lightweightCodeRequirement(), std::nullopt);
    EXPECT_EQ(info->designatedRequirement(), std::nullopt);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ACodeSignInfo, SaysSoWhenTheLaunchConstraintCannotBeRead) {
    CodeDirectory directory;
    directory.constraint = Data{0xFF};
    const auto info = infoAt(signedElf(directory));
    ASSERT_NE(info, nullptr);
    const Error reason = LaunchConstraint::make(Data{0xFF}, 1, 0).error();
    const LogCapture log;
    EXPECT_EQ(info->lightweightCodeRequirement(), std::nullopt);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, LogLevel::Error);
    EXPECT_EQ(log.lines()[0].publicForm, "Failed to create LWCR: " + reason.description());
}

TEST_F(ACodeSignInfo, HasTheRequirementInItsNormalSpellingWhenItCanBeRead) {
    CodeDirectory directory;
    directory.requirement = "( anchor   trusted )";
    EXPECT_EQ(infoAt(signedElf(directory))->designatedRequirement(), "anchor trusted");
    directory.requirement = "something else";
    EXPECT_EQ(infoAt(signedElf(directory))->designatedRequirement(), std::nullopt);
}

}  // namespace
}  // namespace ksw::facts
