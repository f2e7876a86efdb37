#include "platform/facts/sign.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/signing_support.h"
#include "tests/support/sys_faults.h"

namespace ksw::facts {
namespace {

using SigningAFile = SigningTest;
using StrippingAFile = SigningTest;

std::string outputOf(const test::TempFolder& folder, const std::vector<std::string>& arguments) {
    const std::string output = folder.at("output");
    EXPECT_EQ(run(arguments, output), 0);
    return textOf(contentOf(output));
}

TEST_F(SigningAFile, LeavesAProgramRunningAsBefore) {
    const std::string before = outputOf(files_, {"/bin/echo", "some", "words"});
    const std::string path = signedProgram("/bin/echo", "echo");
    EXPECT_EQ(outputOf(files_, {path, "some", "words"}), before);
    EXPECT_TRUE(judged(path).ok());
    ASSERT_TRUE(strip(path).ok());
    EXPECT_EQ(contentOf(path), contentOf("/bin/echo"));
}

TEST_F(SigningAFile, LeavesAScriptRunningAsBefore) {
    for (const std::string text : {"#!/bin/sh\necho \"$1\"\n", "#!/bin/sh\necho \"$1\"",
                                   "#!/bin/sh\nexec echo \"$1\" \\\n", "#!/bin/sh\necho \"$1\"\nexit 0\n\n\n"}) {
        const std::string path = files_.writeFile("script", text);
        ::chmod(path.c_str(), 0755);
        const Status status = sign(path, request(&signer()));
        ASSERT_TRUE(status.ok()) << status.error().description();
        EXPECT_EQ(outputOf(files_, {path, "word"}), "word\n") << text;
        EXPECT_TRUE(judged(path).ok());
        ASSERT_TRUE(strip(path).ok());
        EXPECT_EQ(textOf(contentOf(path)), text);
        std::filesystem::remove(path);
    }
}

TEST_F(SigningAFile, RefusesWhatCannotHoldASignature) {
    EXPECT_EQ(facts::statusOf(sign(files_.writeFile("empty", ""), request(&signer()))), CodeStatus::CannotHold);
    EXPECT_EQ(facts::statusOf(sign(files_.writeFile("script", "#!/bin/sh\necho \\"), request(&signer()))),
              CodeStatus::CannotHold);
    EXPECT_EQ(facts::statusOf(sign(files_.at("nothing"), request(&signer()))), CodeStatus::NotFound);
    EXPECT_EQ(facts::statusOf(sign(files_.path(), request(&signer()))), CodeStatus::NotCode);
    EXPECT_EQ(facts::statusOf(sign("/", request(&signer()))), CodeStatus::NotCode);
    EXPECT_EQ(facts::statusOf(sign("/dev/null", request(&signer()))), CodeStatus::NotCode);
}

TEST_F(SigningAFile, RefusesARequestThatCannotBe) {
    const std::string path = files_.writeFile("file", "some code");
    const Identity other = certificates_.issue(trustedRoot(), "other");
    SigningRequest bad = request(&signer());
    bad.key = contentOf(other.key);
    EXPECT_EQ(facts::statusOf(sign(path, bad)), CodeStatus::KeyMismatch);
    bad.key = bytesOf("no key");
    EXPECT_EQ(facts::statusOf(sign(path, bad)), CodeStatus::KeyUnusable);
    bad = request(&signer());
    bad.chain = bytesOf("no certificate");
    EXPECT_EQ(facts::statusOf(sign(path, bad)), CodeStatus::CertificateUnusable);
    bad = request(&signer(), "");
    EXPECT_EQ(facts::statusOf(sign(path, bad)), CodeStatus::Parameter);
    bad = request(&signer());
    bad.entitlements = bytesOf("<plist><string>no dictionary</string></plist>");
    EXPECT_EQ(facts::statusOf(sign(path, bad)), CodeStatus::Parameter);
    bad = request(&signer());
    bad.requirement = "anchor";
    EXPECT_EQ(facts::statusOf(sign(path, bad)), CodeStatus::RequirementMalformed);
    EXPECT_EQ(textOf(contentOf(path)), "some code");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(files_.path()), {}), 1);
}

TEST_F(SigningAFile, AsksNobodyForThePassPhraseOfAKey) {
    const std::string locked = files_.at("locked");
    ASSERT_EQ(run({"openssl", "pkey", "-in", signer().key, "-aes256", "-passout", "pass:x", "-out", locked}), 0);
    SigningRequest request = this->request(&signer());
    request.key = contentOf(locked);
    EXPECT_EQ(facts::statusOf(sign(files_.writeFile("file", "some code"), request)), CodeStatus::KeyUnusable);
}

TEST_F(SigningAFile, GivesTheSameBytesAgain) {
    for (const char* algorithm : {"RSA:2048", "ED25519"}) {
        CertificateForm form;
        form.algorithm = algorithm;
        const Identity signer = certificates_.issue(trustedRoot(), algorithm, form);
        const std::string path = files_.writeFile("file", "some code");
        ASSERT_TRUE(sign(path, request(&signer)).ok());
        const Data first = contentOf(path);
        ASSERT_TRUE(sign(path, request(&signer, "com.example.other")).ok());
        EXPECT_NE(contentOf(path), first);
        ASSERT_TRUE(sign(path, request(&signer)).ok());
        EXPECT_EQ(contentOf(path), first);
    }
}

TEST_F(SigningAFile, ReplacesAnOlderSignature) {
    const std::string path = signedFile("file", "some code", "com.example.old");
    ASSERT_TRUE(sign(path, request(&signer(), "com.example.new")).ok());
    EXPECT_EQ((*judged(path))->identifier, "com.example.new");
    ASSERT_TRUE(strip(path).ok());
    EXPECT_EQ(textOf(contentOf(path)), "some code");
}

TEST_F(SigningAFile, KeepsModeOwnerAndAttributes) {
    const std::string path = files_.writeFile("file", "some code");
    const bool isRoot = ::geteuid() == 0;
    if (isRoot) {
        ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    }
    ASSERT_EQ(::chmod(path.c_str(), 04751), 0);
    const bool hasAttributes = ::setxattr(path.c_str(), "user.note", "kept", 4, 0) == 0;
    ASSERT_TRUE(sign(path, request(&signer())).ok());
    struct ::stat facts {};
    ASSERT_EQ(::stat(path.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777U, 04751U);
    EXPECT_EQ(facts.st_uid, isRoot ? 65534U : ::geteuid());
    char value[8]{};
    EXPECT_EQ(::getxattr(path.c_str(), "user.note", value, sizeof value), hasAttributes ? 4 : -1);
}

TEST_F(SigningAFile, SignsWhatALinkLeadsToAndLeavesTheLink) {
    const std::string path = files_.writeFile("folder/file", "some code");
    ASSERT_EQ(::symlink("folder/file", files_.at("link").c_str()), 0);
    ASSERT_TRUE(sign(files_.at("link"), request(&signer())).ok());
    EXPECT_TRUE(std::filesystem::is_symlink(files_.at("link")));
    EXPECT_TRUE(judged(path).ok());
}

TEST_F(SigningAFile, LeavesTheOldFileWhenItCannotBeDone) {
    using host::sys::Call;
    const std::string path = files_.writeFile("file", "some code");
    const SigningRequest request = this->request(&signer());
    for (const Call call : {Call::Write, Call::FileSync, Call::Rename, Call::ChangeMode}) {
        test::SysFaults faults;
        faults.failNth(call, 1, EIO);
        EXPECT_EQ(facts::statusOf(sign(path, request)), CodeStatus::NotWritable);
        EXPECT_EQ(textOf(contentOf(path)), "some code");
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(files_.path()), {}), 1);
    }
    test::SysFaults faults;
    faults.shorten(Call::Write, 3);
    faults.shorten(Call::Read, 3);
    faults.interrupt(Call::Rename, 2);
    ASSERT_TRUE(sign(path, request).ok());
    EXPECT_TRUE(judged(path).ok());
}

TEST_F(StrippingAFile, WithoutASignatureIsAnError) {
    EXPECT_EQ(facts::statusOf(strip(files_.writeFile("file", "some code"))), CodeStatus::Unsigned);
}

TEST_F(StrippingAFile, TakesASignatureAwayThatCannotBeRead) {
    const std::string path = signedFile("file", "some code");
    Data content = contentOf(path);
    content[9] ^= 0xFF;
    writeContent(path, content);
    EXPECT_EQ(statusOf(path), CodeStatus::SignatureMalformed);
    ASSERT_TRUE(strip(path).ok());
    EXPECT_EQ(textOf(contentOf(path)), "some code");
}

TEST_F(SigningTest, TheExportedOperationsSignVerifyDescribeAndStrip) {
    const std::string path = files_.writeFile("file", "some code");
    std::optional<Error> error;
    EXPECT_FALSE(verifyCode(path, &error));
    EXPECT_EQ(error, statusError(CodeStatus::Unsigned));
    EXPECT_EQ(describeCode(path), std::nullopt);
    error.reset();
    SigningRequest all = request(&signer());
    all.entitlements = bytesOf("<plist><dict/></plist>");
    ASSERT_TRUE(signCode(path, all, &error));
    EXPECT_TRUE(verifyCode(path, &error));
    std::optional<Dictionary> description = describeCode(path, &error);
    ASSERT_TRUE(description.has_value());
    EXPECT_EQ(error, std::nullopt);
    EXPECT_EQ(*find<std::string>(*description, "Identifier"), "com.example.tool");
    EXPECT_EQ(*find<std::string>(*description, "Anchor"), "trusted");
    EXPECT_EQ(find<Array>(*description, "Certificates")->size(), 2U);
    EXPECT_EQ(*find<bool>(*description, "Valid"), true);
    Data content = contentOf(path);
    content[0] ^= 1;
    writeContent(path, content);
    description = describeCode(path, &error);
    ASSERT_TRUE(description.has_value());
    EXPECT_EQ(*find<bool>(*description, "Valid"), false);
    EXPECT_EQ(*find<std::int64_t>(*description, "Status"), static_cast<std::int64_t>(CodeStatus::CodeAltered));
    EXPECT_EQ(*find<std::string>(*description, "Identifier"), "com.example.tool");
    EXPECT_EQ(find<Array>(*description, "Certificates"), nullptr);
    EXPECT_TRUE(stripSignature(path, &error));
    EXPECT_FALSE(stripSignature(path, &error));
    EXPECT_EQ(error, statusError(CodeStatus::Unsigned));
}

}  // namespace
}  // namespace ksw::facts
