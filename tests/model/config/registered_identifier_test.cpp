// The identifiers of what is registered.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <thread>

#include <fcntl.h>
#include <stdio.h>

#include <kestrelwood/KSWFunctions.h>

#include "platform/host/log_capture.h"
#include "tests/support/signing_support.h"
#include "tests/support/temp_folder.h"

namespace {

using ksw::Dictionary;
using ksw::PathKind;
using ksw::URL;
using ksw::host::LogCapture;
using ksw::host::LogLevel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using OptionalURL = std::optional<URL>;
using OptionalString = std::optional<std::string>;

const OptionalURL kNone;
const Dictionary kLabelled{{KSWConfigLabel, "given.label"}};

std::string job(const std::string& label) {
    return "<plist version=\"1.0\"><dict><key>Label</key><string>" + label + "</string></dict></plist>";
}

struct ARegistrationsIdentifier : testing::Test {
    ksw::test::TempFolder folder;
    const LogCapture log;
    const std::string jobPath = folder.writeFile("job.plist", job("alone"));
    const OptionalURL alone = URL::fileURL(jobPath);
    const OptionalURL bundle = URL::fileURL(folder.makeFolder("A.app"), PathKind::Directory);
    const OptionalURL inside = URL::fileURL("Contents/job.plist");

    ARegistrationsIdentifier() { folder.writeFile("A.app/Contents/job.plist", job("inside")); }

    std::vector<std::string> errors() const { return log.at(LogLevel::Error); }
};

TEST_F(ARegistrationsIdentifier, OfAJobIsItsConfigurationsLabel) {
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x8, bundle, inside, kLabelled), "8.given.label");
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10, bundle, inside, kLabelled), "16.given.label");
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10008, kNone, alone, kLabelled), "8.given.label");
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10010, kNone, URL::fileURL("/gone"), kLabelled),
              "16.given.label");
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ARegistrationsIdentifier, OfALegacyJobWithoutLabelStandsInItsFile) {
    for (const std::optional<Dictionary>& config : {std::optional<Dictionary>(), std::optional(Dictionary()),
                                                    std::optional(Dictionary{{KSWConfigLabel, 1}})}) {
        EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10008, kNone, alone, config), "8.alone");
        EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10010, kNone, alone, config), "16.alone");
    }
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10010, kNone, URL::fileURL("/gone"), Dictionary()),
              std::nullopt);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ARegistrationsIdentifier, OfAJobInAnApplicationWithoutLabelStandsInItsFileThere) {
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x8, bundle, inside, std::nullopt), "8.inside");
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10, bundle, inside, Dictionary()), "16.inside");
}

TEST_F(ARegistrationsIdentifier, IsNeverOfAFileOutsideHoweverFoldersAndLinksChangePlaces) {
    constexpr int kChanges = 10'000;
    folder.writeFile("A.app/Contents/Library/job.plist", job("inside"));
    folder.writeFile("elsewhere/job.plist", job("outside"));
    std::filesystem::create_directory_symlink("../../elsewhere", folder.at("A.app/Contents/link"));
    const std::string shown = folder.at("A.app/Contents/Library");
    const std::string other = folder.at("A.app/Contents/link");
    std::atomic<int> changes = 0;
    std::thread changing([&] {
        for (; changes < kChanges; ++changes) {
            ::renameat2(AT_FDCWD, shown.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
        }
    });
    std::map<OptionalString, int> answers;
    while (changes < kChanges) {
        ++answers[ItemIdentifierWithRegistrationInfo(0x8, bundle, URL::fileURL("Contents/Library/job.plist"), {})];
    }
    changing.join();
    EXPECT_GT(answers["8.inside"], 0);
    EXPECT_EQ(answers.count("8.outside"), 0U);
}

TEST_F(ARegistrationsIdentifier, IsFoundInTheApplicationWhateverTheURLIsRelativeTo) {
    const OptionalURL elsewhere = URL::fileURL("Contents/job.plist", URL::fileURL("/gone/", PathKind::Directory));
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x8, bundle, elsewhere, std::nullopt), "8.inside");
    const OptionalURL withoutSlash = URL::fileURL(folder.at("A.app"));
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x8, withoutSlash, inside, std::nullopt), "8.inside");
    const OptionalURL net = URL::fromString("https://example.com/A.app");
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x8, net, inside, std::nullopt), std::nullopt);
}

TEST_F(ARegistrationsIdentifier, OfAUserItemIsItsCanonicalURL) {
    EXPECT_EQ(
        ItemIdentifierWithRegistrationInfo(0x1, kNone, URL::fileURL(folder.at("A.app/../job.plist")), kLabelled),
        "file://" + jobPath);
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x1, kNone, URL::fromString("https://example.com/"), std::nullopt),
              "https://example.com/");
}

TEST_F(ARegistrationsIdentifier, OfURLsThatDoNotGoWithTheTypeIsNoneAndSaidOnce) {
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x8, kNone, alone, kLabelled), std::nullopt);
    EXPECT_THAT(errors(),
                ElementsAre("ItemIdentifierWithRegistrationInfo: invalid parameter: type=agent, bundleURL=(null), "
                            "url=" +
                            jobPath + ", config={KSWConfigLabel = given.label}"));
}

TEST_F(ARegistrationsIdentifier, IsRefusedInTheLogWithoutPrivateWords) {
    ItemIdentifierWithRegistrationInfo(0x120008, bundle, std::nullopt, std::nullopt);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, "%s: invalid parameter: type=%{public}@, bundleURL=%@, url=%@, config=%@");
    EXPECT_EQ(log.lines()[0].publicForm,
              "ItemIdentifierWithRegistrationInfo: invalid parameter: type=profile added managed agent, "
              "bundleURL=<private>, url=<private>, config=<private>");
    EXPECT_EQ(
        log.lines()[0].fullForm,
        "ItemIdentifierWithRegistrationInfo: invalid parameter: type=profile added managed agent, bundleURL=" +
            folder.at("A.app") + ", url=(null), config=(null)");
}

TEST_F(ARegistrationsIdentifier, OfNoSingleKindIsNoneAndSaidOnce) {
    // The last go with their URLs, and are two kinds at once.
    for (const KSWItemType type : {0x0U, 0x20U, 0xCU, 0xFFFU, 0x10000U, 0x10018U, 0x1001CU}) {
        const LogCapture said;
        EXPECT_EQ(ItemIdentifierWithRegistrationInfo(type, kNone, alone, kLabelled), std::nullopt) << type;
        EXPECT_EQ(said.at(LogLevel::Error).size(), 1U) << type;
    }
}

TEST_F(ARegistrationsIdentifier, OfAnythingElseAsksForTheFilesSignature) {
    // Nobody has signed it.
    folder.makeFolder("A.app/Contents/H.app");
    const OptionalURL helper = URL::fileURL("Contents/H.app");
    for (const KSWItemType type : {0x4U, 0x80U, 0x800U, 0x40U, 0x100U, 0x200U, 0x400U, 0x10004U}) {
        EXPECT_EQ(ItemIdentifierWithRegistrationInfo(type, bundle, helper, kLabelled), std::nullopt) << type;
    }
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x2, bundle, kNone, kLabelled), std::nullopt);
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x40, kNone, bundle, kLabelled), std::nullopt);
    const auto lines = log.lines();
    EXPECT_TRUE(std::none_of(lines.begin(), lines.end(), [](const ksw::host::LogLine& line) {
        return line.text.starts_with("%s: invalid parameter");
    }));
}

class ASignedRegistrationsIdentifier : public ksw::facts::SigningTest {
protected:
    /// An application at a path of the test's folder.
    std::string signedApplication(const std::string& name, const std::string& identifier) {
        std::string path = ksw::facts::makeApplication(files_, name, "com.example.bundle");
        EXPECT_TRUE(ksw::facts::sign(path, request(&signer(), identifier)).ok());
        return path;
    }
};

TEST_F(ASignedRegistrationsIdentifier, IsTheOneThatItsCodeIsSignedWith) {
    const std::string helperPath = signedApplication("A.app/Contents/H.app", "com.example.helper");
    const OptionalURL bundle = URL::fileURL(signedApplication("A.app", "com.example.outer"), PathKind::Directory);
    const OptionalURL helper = URL::fileURL("Contents/H.app");
    const OptionalURL alone = URL::fileURL(helperPath);
    for (const KSWItemType kind : {0x4U, 0x40U, 0x80U, 0x100U, 0x200U, 0x400U, 0x800U}) {
        const std::string identifier = std::to_string(kind) + ".com.example.helper";
        EXPECT_EQ(ItemIdentifierWithRegistrationInfo(kind, bundle, helper, kLabelled), identifier);
        EXPECT_EQ(ItemIdentifierWithRegistrationInfo(kind, bundle, helper, std::nullopt), identifier);
    }
    for (const KSWItemType kind : {0x40U, 0x100U, 0x200U, 0x400U}) {
        EXPECT_EQ(ItemIdentifierWithRegistrationInfo(kind, kNone, alone, std::nullopt),
                  std::to_string(kind) + ".com.example.helper");
    }
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10004, bundle, helper, std::nullopt), "4.com.example.helper");
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10004, bundle, alone, std::nullopt), "4.com.example.helper");
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x2, bundle, kNone, kLabelled), "2.com.example.outer");
}

}  // namespace
