#include "platform/facts/code.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "platform/host/sys.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using StaticCodeAt = SigningTest;
using ASignedFile = SigningTest;
using ABundle = SigningTest;

TEST_F(StaticCodeAt, APathOfAnUnsignedFileIsUnsigned) {
    EXPECT_EQ(promptStatus(files_.writeFile("file", "some code")), CodeStatus::Unsigned);
    EXPECT_EQ(promptStatus(files_.writeFile("empty", "")), CodeStatus::Unsigned);
    EXPECT_EQ(promptStatus("/proc/self/exe"), CodeStatus::Unsigned);
    EXPECT_EQ(promptStatus("/proc/self/status"), CodeStatus::Unsigned);
}

TEST_F(StaticCodeAt, APathThatLeadsNowhereIsAnError) {
    EXPECT_EQ(promptStatus(files_.at("nothing")), CodeStatus::NotFound);
    EXPECT_EQ(promptStatus(""), CodeStatus::Parameter);
    EXPECT_EQ(promptStatus(std::string(5000, 'x')), CodeStatus::NotFound);
    EXPECT_EQ(promptStatus(files_.at(std::string("a\0b", 3))), CodeStatus::NotReadable);
    ASSERT_EQ(::symlink("loop", files_.at("loop").c_str()), 0);
    EXPECT_EQ(promptStatus(files_.at("loop")), CodeStatus::NotReadable);
}

TEST_F(StaticCodeAt, ASpecialFileIsNoCodeAndIsNotOpened) {
    ASSERT_EQ(::mkfifo(files_.at("pipe").c_str(), 0600), 0);
    EXPECT_EQ(promptStatus(files_.at("pipe")), CodeStatus::NotCode);
    const UniqueFd socket = *host::sys::socket(AF_UNIX, SOCK_STREAM);
    ASSERT_TRUE(host::sys::bindUnix(socket.get(), files_.at("socket")).ok());
    EXPECT_EQ(promptStatus(files_.at("socket")), CodeStatus::NotCode);
    EXPECT_EQ(promptStatus("/dev/null"), CodeStatus::NotCode);
    EXPECT_EQ(promptStatus("/dev/zero"), CodeStatus::NotCode);
    EXPECT_EQ(promptStatus(files_.path()), CodeStatus::NotCode);
    ASSERT_EQ(::symlink("pipe", files_.at("link").c_str()), 0);
    EXPECT_EQ(promptStatus(files_.at("link")), CodeStatus::NotCode);
}

TEST_F(StaticCodeAt, AnUnreadableFileIsNotPermitted) {
    const std::string path = files_.writeFile("file", "some code");
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    EXPECT_EQ(promptStatus(path), ::geteuid() == 0 ? CodeStatus::Unsigned : CodeStatus::NotPermitted);
}

TEST_F(StaticCodeAt, AHugeFileIsAnsweredAtOnce) {
    constexpr off_t kTebibyte = off_t{1} << 40U;
    const std::string path = files_.writeFile("huge", "");
    ASSERT_EQ(::truncate(path.c_str(), kTebibyte), 0);
    EXPECT_EQ(promptStatus(path), CodeStatus::Unsigned);
    // With a signature that fits its size, and that anybody could have made.
    CodeDirectory directory = directoryOf("");
    directory.format = "generic file";
    directory.codeSize = static_cast<std::uint64_t>(kTebibyte);
    const Data signature = *encodeSignature(CodeKind::Other, {*encodeDirectory(directory), std::nullopt});
    const UniqueFd file = *host::sys::open(path, O_WRONLY | O_APPEND);
    ASSERT_EQ(::write(file.get(), signature.data(), signature.size()), static_cast<ssize_t>(signature.size()));
    EXPECT_EQ(promptStatus(path), CodeStatus::TooLarge);
}

TEST_F(StaticCodeAt, ALinkIsTheCodeThatItLeadsTo) {
    signedFile("file", "some code");
    ASSERT_EQ(::symlink("file", files_.at("link").c_str()), 0);
    EXPECT_EQ(promptStatus(files_.at("link")), CodeStatus{});
}

TEST_F(StaticCodeAt, AnAdHocSignedFileIsValidButNobodysWork) {
    const std::string path = files_.writeFile("file", "some code");
    ASSERT_TRUE(sign(path, request(nullptr)).ok());
    const auto facts = judged(path);
    ASSERT_TRUE(facts.ok()) << facts.error().description();
    EXPECT_EQ((*facts)->source, "ad-hoc");
    EXPECT_EQ((*facts)->anchor, Anchor::None);
    EXPECT_TRUE((*facts)->chain.empty());
    EXPECT_EQ((*facts)->requirement, std::nullopt);
}

TEST_F(StaticCodeAt, APathMeetsARequirementOrNot) {
    const std::string path = signedFile("file", "some code");
    Verifier verifier;
    const StaticCode code = *StaticCode::open(path, verifier);
    EXPECT_EQ(code.path(), path);
    EXPECT_TRUE(code.checkValidity(Checks::WithoutResources).ok());
    const Requirement met = *Requirement::parse("anchor trusted and team TEAM000001");
    EXPECT_TRUE(code.checkValidity(Checks::WithoutResources, &met).ok());
    const Requirement maker = *Requirement::parse("anchor velmont");
    EXPECT_EQ(facts::statusOf(code.checkValidity(Checks::WithoutResources, &maker)), CodeStatus::RequirementNotMet);
    const Requirement own = *Requirement::parse(*(*code.facts())->requirement);
    EXPECT_TRUE(code.checkValidity(Checks::Default, &own).ok());
}

TEST_F(ASignedFile, CarriesEverythingThatItsSignerSaid) {
    const std::string path = files_.writeFile("script", "#!/bin/sh\n");
    SigningRequest all = request(&signer());
    all.entitlements = bytesOf("<plist><dict><key>key</key><true/></dict></plist>");
    all.requirement = "identifier com.example.tool";
    ASSERT_TRUE(sign(path, all).ok());
    const auto facts = judged(path);
    ASSERT_TRUE(facts.ok()) << facts.error().description();
    EXPECT_EQ((*facts)->format, "generic script");
    EXPECT_EQ((*facts)->entitlements, (Dictionary{{"key", true}}));
    EXPECT_EQ((*facts)->requirement, Requirement::parse(*all.requirement)->text());
    EXPECT_TRUE((*facts)->constraint.has_value());
}

TEST_F(ASignedFile, IsRefusedWithAnyBitOfWhatIsCoveredFlipped) {
    constexpr std::size_t kCodeSize = 64 * limits::kKiB;
    std::string code(kCodeSize, '\0');
    for (std::size_t index = 0; index < code.size(); ++index) {
        code[index] = static_cast<char>(index * 2654435761U >> 13U);
    }
    const std::string path = signedFile("file", code);
    const Data good = contentOf(path);
    // The code, and behind the array's head and the byte string's the directory, which is covered by the message.
    const Result<CodeFile> file = CodeFile::open(path);
    const std::size_t directorySize = readSignature(*file, *file->stamp())->directoryBytes.size();
    constexpr std::size_t kHeads = 1 + 3;
    const std::size_t bits = (kCodeSize + kHeads + directorySize) * 8;
    const std::size_t samples = std::size_t{1024} / kSlowness;
    const UniqueFd out = *host::sys::open(path, O_WRONLY);
    const bool isLong = ::secure_getenv("KESTRELWOOD_TEST_EVERY_BIT") != nullptr;
    const std::size_t step = isLong ? 1 : bits / samples | 1;  // odd, so that it comes to every bit of a byte
    const ForwardClock clock;
    Verifier verifier(clock);  // it reads the trusted certificates once
    for (std::size_t bit = 0; bit < bits; bit += step) {
        const std::uint8_t flipped = static_cast<std::uint8_t>(good[bit / 8] ^ 1U << bit % 8);
        ASSERT_EQ(::pwrite(out.get(), &flipped, 1, static_cast<off_t>(bit / 8)), 1);
        ASSERT_FALSE(verifier.judge(*file).ok()) << bit;
        ASSERT_EQ(::pwrite(out.get(), &good[bit / 8], 1, static_cast<off_t>(bit / 8)), 1);
    }
    EXPECT_TRUE(judged(path).ok());
}

TEST_F(ASignedFile, IsRefusedWhenItsTailIsAltered) {
    const std::string path = signedFile("file", "some code");
    const Data good = contentOf(path);
    for (std::size_t at = good.size() - kSignatureTailSize; at < good.size(); ++at) {
        Data bad = good;
        bad[at] ^= 1;
        writeContent(path, bad);
        EXPECT_FALSE(judged(path).ok()) << at;
    }
    Data longer = good;
    longer.push_back('\n');
    writeContent(path, longer);
    EXPECT_EQ(statusOf(path), CodeStatus::Unsigned);
}

TEST_F(ASignedFile, IsRefusedWhenAnotherFormIsClaimed) {
    CodeDirectory directory = directoryOf("some code");
    directory.format = "elf executable";
    EXPECT_EQ(statusOf(fileWith("file", "some code", *encodeDirectory(directory), std::nullopt)),
              CodeStatus::DirectoryMalformed);
    directory.format = "bundle with generic file";
    EXPECT_EQ(statusOf(fileWith("file", "some code", *encodeDirectory(directory), std::nullopt)),
              CodeStatus::DirectoryMalformed);
    directory = directoryOf("some code");
    directory.entitlements = bytesOf("no property list");
    EXPECT_EQ(statusOf(fileWith("file", "some code", *encodeDirectory(directory), std::nullopt)),
              CodeStatus::DirectoryMalformed);
    directory = directoryOf("some code");
    EXPECT_EQ(statusOf(fileWith("file", "some more code", *encodeDirectory(directory), std::nullopt)),
              CodeStatus::CodeAltered);
}

TEST_F(ASignedFile, CutShortWhileItIsJudgedIsAnError) {
    const std::string path = signedFile("file", std::string(100'000, '1'));
    const Result<CodeFile> file = CodeFile::open(path);
    const Result<FileStamp> stamp = file->stamp();
    ASSERT_EQ(::truncate(path.c_str(), 50'000), 0);
    EXPECT_EQ(facts::statusOf(readSignature(*file, *stamp)), CodeStatus::ChangedMeanwhile);
    EXPECT_EQ(facts::statusOf(sha256Of(*LibCrypto::shared(), *file, 100'000)), CodeStatus::ChangedMeanwhile);
}

/// The folders and files of an application.
std::string makeApplication(const test::TempFolder& folder, const std::string& information) {
    folder.writeFile("Tool.app/Contents/Info.plist", information);
    const std::string program = folder.writeFile("Tool.app/Contents/Linux/main", "#!/bin/sh\n");
    ::chmod(program.c_str(), 0755);
    return folder.at("Tool.app");
}

constexpr const char* kInformation =
    "<plist><dict><key>QCBundleExecutable</key><string>main</string>"
    "<key>QCBundleIdentifier</key><string>com.example.tool</string></dict></plist>";

TEST_F(ABundle, IsSignedThroughItsMainExecutable) {
    const std::string bundle = makeApplication(files_, kInformation);
    EXPECT_EQ(statusOf(bundle), CodeStatus::Unsigned);
    const Status status = sign(bundle, request(&signer()));
    ASSERT_TRUE(status.ok()) << status.error().description();
    for (const std::string& path : {bundle, bundle + "/", bundle + "/Contents/Linux/main"}) {
        const auto facts = judged(path);
        ASSERT_TRUE(facts.ok()) << facts.error().description();
        EXPECT_EQ((*facts)->format, "bundle with generic script");
        EXPECT_EQ(*find<std::string>(*(*facts)->informationPropertyList, "QCBundleIdentifier"), "com.example.tool");
    }
    ASSERT_TRUE(strip(bundle).ok());
    EXPECT_EQ(textOf(contentOf(bundle + "/Contents/Linux/main")), "#!/bin/sh\n");
}

TEST_F(ABundle, IsRefusedWithAnotherInformationPropertyList) {
    const std::string bundle = makeApplication(files_, kInformation);
    ASSERT_TRUE(sign(bundle, request(&signer())).ok());
    files_.writeFile("Tool.app/Contents/Info.plist", std::string(kInformation) + "\n");
    EXPECT_EQ(statusOf(bundle), CodeStatus::InformationAltered);
    files_.writeFile("Tool.app/Contents/Info.plist", kInformation);
    EXPECT_TRUE(judged(bundle).ok());
}

TEST_F(ABundle, IsRefusedWhenOnlyItsExecutableWasSigned) {
    const std::string bundle = makeApplication(files_, kInformation);
    ASSERT_TRUE(sign(bundle + "/Contents/Linux/main", request(&signer())).ok());
    EXPECT_EQ(statusOf(bundle), CodeStatus::InformationAltered);
}

TEST_F(ABundle, HasAnExecutableWithAPlainName) {
    for (const char* name : {"../main", "a/main", "..", ".", ""}) {
        const std::string bundle = makeApplication(files_, "<plist><dict><key>QCBundleExecutable</key><string>" +
                                                               std::string(name) + "</string></dict></plist>");
        EXPECT_EQ(statusOf(bundle), CodeStatus::BadBundle) << name;
    }
    const std::string bundle = makeApplication(files_, "<plist><dict></dict></plist>");
    EXPECT_EQ(statusOf(bundle), CodeStatus::BadBundle);
    files_.writeFile("Tool.app/Contents/Linux/Tool", "#!/bin/sh\n");
    EXPECT_EQ(statusOf(bundle), CodeStatus::Unsigned);
}

TEST_F(ABundle, WithoutItsPartsIsABadOne) {
    const std::string bundle = files_.makeFolder("Tool.app");
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    makeApplication(files_, "no property list");
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    makeApplication(files_, kInformation);
    EXPECT_EQ(promptStatus(bundle), CodeStatus::Unsigned);
    std::filesystem::remove(bundle + "/Contents/Linux/main");
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    ASSERT_EQ(::mkfifo((bundle + "/Contents/Linux/main").c_str(), 0600), 0);
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    std::filesystem::remove(bundle + "/Contents/Linux/main");
    std::filesystem::create_symlink("/bin/sh", bundle + "/Contents/Linux/main");
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    files_.writeFile("Tool.app/Contents/Info.plist", std::string(limits::kPropertyListFileMax + 1, ' '));
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
}

}  // namespace
}  // namespace ksw::facts
