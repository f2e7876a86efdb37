// Single questions about the code at a URL and of a running process, by the exported functions.

#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/code.h>
#include <kestrelwood/code_signing.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "platform/host/sandbox.h"
#include "tests/support/child_program.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using ADesignatedRequirement = SigningTest;
using TheMakersCode = SigningTest;
using AHandle = SigningTest;
using ADescription = SigningTest;
using test::ChildCat;
using test::ChildProgram;

constexpr const char* kDesignated = "anchor trusted and identifier \"com.example.tool\" and team \"TEAM000001\"";

TEST_F(ADesignatedRequirement, IsThatOfTheFileAndOfTheProcess) {
    const std::string path = signedProgram("/bin/cat", "cat");
    const ChildCat cat(path);
    const AuditToken token = cat.token();
    EXPECT_EQ(DesignatedRequirementForURL(URL::fileURL(path)), kDesignated);
    EXPECT_EQ(DesignatedRequirementForAuditToken(&token), kDesignated);
}

TEST_F(ADesignatedRequirement, IsNoneWithoutASignatureThatHolds) {
    EXPECT_EQ(DesignatedRequirementForURL(std::nullopt), std::nullopt);
    EXPECT_EQ(DesignatedRequirementForURL(URL::fileURL("/bin/cat")), std::nullopt);
    EXPECT_EQ(DesignatedRequirementForURL(URL::fileURL("/nothing")), std::nullopt);
    const std::string path = signedFile("file", "some code");
    Data content = contentOf(path);
    content[0] ^= 1;
    writeContent(path, content);
    EXPECT_EQ(DesignatedRequirementForURL(URL::fileURL(path)), std::nullopt);
    ChildCat cat("/bin/cat");
    const AuditToken token = cat.token();
    EXPECT_EQ(DesignatedRequirementForAuditToken(&token), std::nullopt);
    cat.end();
    EXPECT_EQ(DesignatedRequirementForAuditToken(&token), std::nullopt);
}

TEST_F(ADesignatedRequirement, OfANullTokenIsAMistakeOfTheCallers) {
    try {
        DesignatedRequirementForAuditToken(nullptr);
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& mistake) {
        EXPECT_STREQ(mistake.what(), "token is null");
    }
}

TEST_F(TheMakersCode, IsAnchoredAndNoOther) {
    const Identity root = certificates_.root("maker-root");
    trustAsMaker(root);
    const Identity maker = certificates_.issue(root, "maker");
    const std::string path = files_.writeFile("file", "some code");
    ASSERT_TRUE(sign(path, request(&maker)).ok());
    EXPECT_TRUE(IsVelmontAnchoredCodeAtURL(URL::fileURL(path)));
    EXPECT_FALSE(IsVelmontAnchoredCodeAtURL(URL::fileURL(signedFile("other", "some code"))));
    ASSERT_TRUE(sign(path, request(nullptr)).ok());
    EXPECT_FALSE(IsVelmontAnchoredCodeAtURL(URL::fileURL(path)));
    EXPECT_FALSE(IsVelmontAnchoredCodeAtURL(URL::fileURL("/bin/cat")));
    EXPECT_FALSE(IsVelmontAnchoredCodeAtURL(URL::fileURL("/nothing")));
    EXPECT_FALSE(IsVelmontAnchoredCodeAtURL(std::nullopt));
}

TEST(AProcess, IsSandboxedWhenTheHostSaysSo) {
    const AuditToken token = *auditTokenForPid(::getpid());
    EXPECT_EQ(AuditTokenIsSandboxed(token), host::isSandboxed(token));
    EXPECT_FALSE(AuditTokenIsSandboxed(AuditToken{}));
}

TEST(AProcess, IsNamedByItsNumber) {
    std::optional<Error> error;
    const std::optional<AuditToken> token = auditTokenForPid(::getpid(), &error);
    ASSERT_TRUE(token.has_value());
    EXPECT_EQ(token->pid(), ::getpid());
    EXPECT_EQ(token->effectiveUid(), ::geteuid());
    EXPECT_NE(token->processIdentity(), 0U);
    EXPECT_EQ(error, std::nullopt);
}

TEST(AProcess, ThatIsNotThereHasNoToken) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(0);
    }
    siginfo_t info{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
    for (const pid_t pid : {child, 0, -1, 0x7FFFFFFF}) {
        std::optional<Error> error;
        EXPECT_EQ(auditTokenForPid(pid, &error), std::nullopt) << pid;
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->code(), static_cast<std::int64_t>(CodeStatus::ProcessGone)) << error->description();
        EXPECT_EQ(error->domain(), kStatusErrorDomain);
        EXPECT_EQ(auditTokenForPid(pid), std::nullopt);
    }
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST_F(AHandle, IsAbsentWithItsReason) {
    std::optional<Error> error;
    EXPECT_EQ(Code::atURL(URL::fileURL("/nothing"), &error).has_value(), false);
    EXPECT_EQ(error->code(), -70001);
    EXPECT_FALSE(Code::atURL(*URL::fromString("https://example.com/bin/cat"), &error).has_value());
    EXPECT_EQ(error, statusError(CodeStatus::Parameter));
    EXPECT_FALSE(Code::ofProcess(AuditToken{}, &error).has_value());
    EXPECT_EQ(error->code(), -70030);
    EXPECT_FALSE(Code::ofProcess(AuditToken{}).has_value());
}

TEST_F(AHandle, OfUnsignedCodeIsThere) {
    std::optional<Error> error;
    EXPECT_TRUE(Code::atURL(URL::fileURL("/bin/cat"), &error).has_value());
    EXPECT_TRUE(Code::ofProcess(*auditTokenForPid(::getpid()), &error).has_value());
    EXPECT_EQ(error, std::nullopt);
}

TEST_F(ADescription, OfAProcessIsThatOfItsFile) {
    const std::string path = signedProgram("/bin/cat", "cat");
    const ChildCat cat(path);
    std::optional<Error> error;
    const std::optional<Dictionary> description = describeCode(cat.token(), &error);
    ASSERT_TRUE(description.has_value());
    EXPECT_EQ(*find<bool>(*description, "Valid"), true);
    EXPECT_EQ(*find<std::string>(*description, "Identifier"), "com.example.tool");
    EXPECT_EQ(description, describeCode(path));
    EXPECT_EQ(error, std::nullopt);
}

TEST_F(ADescription, OfAProcessWhoseSignatureDoesNotHoldIsWhatItClaims) {
    const std::string path = copyOf("/bin/cat", "cat");
    const Identity stranger = certificates_.root("stranger");
    const Identity leaf = certificates_.issue(stranger, "leaf");
    ASSERT_TRUE(sign(path, request(&leaf, "com.example.claim")).ok());
    const ChildCat cat(path);
    const std::optional<Dictionary> description = describeCode(cat.token());
    ASSERT_TRUE(description.has_value());
    EXPECT_EQ(*find<bool>(*description, "Valid"), false);
    EXPECT_EQ(*find<std::int64_t>(*description, "Status"), -70023);
    EXPECT_EQ(*find<std::string>(*description, "Identifier"), "com.example.claim");
    EXPECT_EQ(description, describeCode(path));
}

TEST_F(ADescription, IsAbsentOfAProcessThatIsUnsignedOrGone) {
    ChildCat cat("/bin/cat");
    const AuditToken token = cat.token();
    std::optional<Error> error;
    EXPECT_EQ(describeCode(token, &error), std::nullopt);
    EXPECT_EQ(error, statusError(CodeStatus::Unsigned));
    cat.end();
    EXPECT_EQ(describeCode(token, &error), std::nullopt);
    EXPECT_EQ(error->code(), -70030);
}

TEST_F(ADescription, IsOfNothingThatTheProcessIsNoMore) {
    const std::string shell = signedProgram("/bin/sh", "sh", "com.example.shell");
    ChildProgram program({shell, "-c", "echo ready; read line; exec /bin/cat"});
    program.awaitAnswer();
    const AuditToken token = program.token();
    Verifier verifier;
    const Result<RunningCode> before = RunningCode::open(token, verifier);
    ASSERT_TRUE(before.ok());
    EXPECT_EQ(before->claims()->identifier, "com.example.shell");
    program.tell("go\n");
    program.tell("hello\n");
    program.awaitAnswer();
    EXPECT_EQ(facts::statusOf(before->claims()), CodeStatus::ProcessChanged);
}

}  // namespace
}  // namespace ksw::facts
