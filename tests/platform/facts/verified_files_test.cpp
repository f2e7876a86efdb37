#include "platform/facts/verified_files.h"

#include <unistd.h>

#include <filesystem>

#include "tests/support/signing_support.h"
#include "tests/support/sys_faults.h"

namespace ksw::facts {
namespace {

using AVerifiedFile = SigningTest;
using host::sys::Call;

/// Judges and answers how often something was read.
unsigned readsFor(Verifier& verifier, const std::string& path, CodeStatus status = {}) {
    test::SysFaults faults;
    EXPECT_EQ(statusOf(StaticCode::open(path, verifier)->facts()), status);
    return faults.count(Call::Read);
}

TEST_F(AVerifiedFile, IsNotReadAgain) {
    const std::string path = signedFile("file", "some code");
    const ForwardClock clock;
    Verifier verifier(clock);
    EXPECT_GT(readsFor(verifier, path), 0U);
    EXPECT_EQ(readsFor(verifier, path), 0U);
}

TEST_F(AVerifiedFile, IsReadAgainWhileItIsYoung) {
    const std::string path = signedFile("file", "some code");
    const ForwardClock clock(1);
    Verifier verifier(clock);
    EXPECT_GT(readsFor(verifier, path), 0U);
    EXPECT_GT(readsFor(verifier, path), 0U);
}

TEST_F(AVerifiedFile, IsReadAgainWhenItHasChanged) {
    const std::string path = signedFile("file", "some code");
    ForwardClock clock;
    Verifier verifier(clock);
    readsFor(verifier, path);
    EXPECT_EQ(readsFor(verifier, path), 0U);
    Data content = contentOf(path);
    content[0] ^= 1;
    writeContent(path, content);
    EXPECT_GT(readsFor(verifier, path, CodeStatus::CodeAltered), 0U);
    content[0] ^= 1;
    writeContent(path, content);
    clock.advance(10);
    EXPECT_GT(readsFor(verifier, path), 0U);
    // Another owner or mode changes the file's time of change.
    ASSERT_EQ(::chmod(path.c_str(), 0700), 0);
    EXPECT_GT(readsFor(verifier, path), 0U);
}

TEST_F(AVerifiedFile, IsReadAgainWhenItsNameStandsForAnother) {
    const std::string path = signedFile("file", "some code");
    const std::string other = signedFile("other", "some code", "com.example.other");
    const ForwardClock clock;
    Verifier verifier(clock);
    readsFor(verifier, path);
    std::filesystem::rename(other, path);
    EXPECT_EQ((*StaticCode::open(path, verifier)->facts())->identifier, "com.example.other");
}

TEST_F(AVerifiedFile, IsReadAgainWhenTheTrustedCertificatesChange) {
    const std::string path = signedFile("file", "some code");
    ForwardClock clock;
    Verifier verifier(clock);
    readsFor(verifier, path);
    EXPECT_EQ(readsFor(verifier, path), 0U);
    const std::string root = host_.folder().at("etc/kestrelwood/trust/root.pem");
    const Data certificate = contentOf(root);
    std::filesystem::remove(root);
    EXPECT_GT(readsFor(verifier, path, CodeStatus::NotTrusted), 0U);
    writeContent(root, certificate);
    clock.advance(10);
    EXPECT_GT(readsFor(verifier, path), 0U);
    EXPECT_EQ(readsFor(verifier, path), 0U);
    // In the place of the trusted one, under the same name.
    writeContent(root, contentOf(certificates_.root("stranger").certificate));
    EXPECT_GT(readsFor(verifier, path, CodeStatus::NotTrusted), 0U);
}

TEST_F(AVerifiedFile, IsReadAgainWhenNobodyAnswersForIt) {
    const std::string path = files_.writeFile("file", "some code");
    ASSERT_TRUE(sign(path, request(nullptr)).ok());
    const ForwardClock clock;
    Verifier verifier(clock);
    EXPECT_GT(readsFor(verifier, path), 0U);
    EXPECT_GT(readsFor(verifier, path), 0U);
}

TEST_F(AVerifiedFile, IsForgottenWhenACertificateExpires) {
    const std::string path = signedFile("file", "some code");
    ForwardClock clock;
    Verifier verifier(clock);
    readsFor(verifier, path);
    EXPECT_EQ(readsFor(verifier, path), 0U);
    clock.advance(31.0 * 24 * 60 * 60);
    readsFor(verifier, path, CodeStatus::Expired);
}

TEST_F(AVerifiedFile, IsForgottenWhenMoreWereVerifiedThanAreRemembered) {
    const std::string first = signedFile("first", "some code");
    const std::string second = signedFile("second", "some code");
    const std::string third = signedFile("third", "some code");
    const ForwardClock clock;
    Verifier verifier(clock, 2);
    readsFor(verifier, first);
    readsFor(verifier, second);
    EXPECT_EQ(readsFor(verifier, first), 0U);
    readsFor(verifier, third);
    EXPECT_EQ(readsFor(verifier, first), 0U);
    EXPECT_GT(readsFor(verifier, second), 0U);
}

TEST(VerifiedFiles, KeepAsManyAsTheyMay) {
    VerifiedFiles files(limits::kVerifiedFilesMax);
    for (std::uint64_t inode = 0; inode <= limits::kVerifiedFilesMax; ++inode) {
        EXPECT_EQ(files.size(), inode);
        files.remember({{1, inode, 0, 0, 0}, 0}, {});
    }
    EXPECT_EQ(files.size(), limits::kVerifiedFilesMax);
    EXPECT_FALSE(files.find({{1, 0, 0, 0, 0}, 0}, 0).has_value());
    EXPECT_TRUE(files.find({{1, 1, 0, 0, 0}, 0}, 0).has_value());
    EXPECT_FALSE(files.find({{1, 2, 0, 0, 0}, 1}, 0).has_value());
    EXPECT_FALSE(files.find({{1, 3, 1, 0, 0}, 0}, 0).has_value());
    EXPECT_FALSE(files.find({{1, 4, 0, 1, 0}, 0}, 0).has_value());
    EXPECT_FALSE(files.find({{1, 5, 0, 0, 1}, 0}, 0).has_value());
}

/// What came of verifying a file whose signature is so large.
Verified ofSize(std::size_t size) {
    Verified verified;
    verified.validity = {0, 1};
    verified.size = size;
    return verified;
}

TEST(VerifiedFiles, KeepNoMoreBytesThanTheyMay) {
    VerifiedFiles files(10, 100);
    const auto keeps = [&](std::uint64_t inode) { return files.find({{1, inode, 0, 0, 0}, 0}, 0).has_value(); };
    const auto remember = [&](std::uint64_t inode, std::size_t size) {
        files.remember({{1, inode, 0, 0, 0}, 0}, ofSize(size));
    };
    remember(1, 50);
    remember(2, 50);
    EXPECT_TRUE(keeps(1));
    remember(3, 1);
    EXPECT_TRUE(keeps(1));
    EXPECT_FALSE(keeps(2));
    remember(3, 50);  // in its own place
    EXPECT_TRUE(keeps(1));
    remember(4, 101);
    EXPECT_FALSE(keeps(4));
    EXPECT_EQ(files.size(), 2U);
    remember(5, 100);
    EXPECT_EQ(files.size(), 1U);
    EXPECT_TRUE(keeps(5));
}

}  // namespace
}  // namespace ksw::facts
