// Items of files: their identifiers, names, dates and signatures.

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

#include "platform/host/file_facts.h"
#include "tests/support/signing_support.h"
#include "tests/support/temp_folder.h"

namespace {

using ksw::PathKind;
using ksw::URL;

constexpr std::string_view kJob =
    "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Label</key>"
    "<string>com.example.job</string></dict></plist>";

struct AnItemOfAFile : testing::Test {
    ksw::test::TempFolder files;
    const URL document = URL::fileURL(files.writeFile("my plan.txt", "x"));
    const URL job = URL::fileURL(files.writeFile("job.plist", kJob));
    const URL app = URL::fileURL(files.makeFolder("Tool.app"), PathKind::Directory);
    const URL address = *URL::fromString("https://example.com/a?b");
};

TEST_F(AnItemOfAFile, ThatAUserChoseIsIdentifiedByItsCanonicalFileURL) {
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeUserItem, document),
              "file://" + files.path() + "/my%20plan.txt");
    std::filesystem::create_symlink(files.at("my plan.txt"), files.at("link"));
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeUserItem, URL::fileURL(files.at("./link"))),
              "file://" + files.path() + "/my%20plan.txt");
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeUserItem, app), "file://" + files.path() + "/Tool.app");
}

TEST_F(AnItemOfAFile, ThatIsGoneHasNoIdentifier) {
    const URL gone = URL::fileURL(files.at("gone"));
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeUserItem, gone), std::nullopt);
    EXPECT_EQ(KSWItem::itemWithType(KSWItemTypeUserItem, gone), nullptr);
    EXPECT_EQ(KSWItem::initWithType(KSWItemTypeUserItem, gone), nullptr);
}

TEST_F(AnItemOfAFile, MayBeAnAddressInTheNetInstead) {
    const auto item = KSWItem::itemWithType(KSWItemTypeUserItem, address);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->identifier(), "https://example.com/a?b");
    EXPECT_EQ(item->name(), "https://example.com/a?b");
    EXPECT_EQ(item->url(), address);
    EXPECT_EQ(item->modificationDate(), 0);
}

TEST_F(AnItemOfAFile, ThatIsAJobIsIdentifiedByItsLabel) {
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeAgent, job), "8.com.example.job");
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeDaemon | KSWItemTypeLegacyBit, job), "16.com.example.job");
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeAgent, document), std::nullopt);
}

TEST_F(AnItemOfAFile, ThatIsNotSignedHasNoIdentifier) {
    for (const KSWItemType type : {0x2U, 0x4U, 0x40U, 0x80U, 0x100U, 0x200U, 0x400U, 0x800U}) {
        EXPECT_EQ(ItemIdentifierForURLAndType(type, app), std::nullopt) << type;
        EXPECT_EQ(KSWItem::itemWithType(type, app), nullptr) << type;
    }
}

TEST_F(AnItemOfAFile, OfNoSingleKindIsTheCallersError) {
    for (const KSWItemType type : {0x0U, 0x20U, 0xCU, 0xFFFU, 0x10000U}) {
        EXPECT_THROW(ItemIdentifierForURLAndType(type, document), std::invalid_argument) << type;
    }
    try {
        ItemIdentifierForURLAndType(0x10020, document);
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "ItemIdentifierForURLAndType: unrecognized base type: 32");
    }
}

TEST_F(AnItemOfAFile, HasTheFilesNameDateAndURL) {
    const auto item = KSWItem::itemWithType(KSWItemTypeUserItem, document);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->type(), KSWItemTypeUserItem);
    EXPECT_EQ(item->name(), "my plan.txt");
    EXPECT_EQ(item->url(), document);
    EXPECT_EQ(item->modificationDate(),
              ksw::host::fileFacts(files.at("my plan.txt"))->contentModificationDate.secondsSinceReference);
    EXPECT_NE(item->uuid(), std::nullopt);
    EXPECT_EQ(item->disposition(), 0U);
}

TEST_F(AnItemOfAFile, ThatIsAnApplicationIsNamedWithoutTheSuffix) {
    EXPECT_EQ(KSWItem::itemWithType(KSWItemTypeUserItem, app)->name(), "Tool");
    const URL fake = URL::fileURL(files.writeFile("Fake.app", ""));
    EXPECT_EQ(KSWItem::itemWithType(KSWItemTypeUserItem, fake)->name(), "Fake.app");
}

class AnItemOfSignedCode : public ksw::facts::SigningTest {
protected:
    /// An application with an entitlement to a sandbox.
    URL signedApplication() {
        const std::string path = ksw::facts::makeApplication(files_, "Tool.app", "com.example.bundle");
        ksw::SigningRequest sandboxed = request(&signer());
        sandboxed.requirement = "identifier \"com.example.tool\"";
        sandboxed.entitlements =
            ksw::facts::bytesOf("<plist><dict><key>com.velmont.security.app-sandbox</key><true/></dict></plist>");
        EXPECT_TRUE(ksw::facts::sign(path, sandboxed).ok());
        return URL::fileURL(path, PathKind::Directory);
    }
};

TEST_F(AnItemOfSignedCode, IsIdentifiedByItsSigningIdentifier) {
    const URL app = signedApplication();
    for (const KSWItemType type : {0x2U, 0x4U, 0x40U, 0x80U, 0x100U, 0x200U, 0x400U, 0x800U}) {
        const std::string identifier = std::to_string(type) + ".com.example.tool";
        EXPECT_EQ(ItemIdentifierForURLAndType(type, app), identifier);
        ASSERT_NE(KSWItem::itemWithType(type, app), nullptr);
        EXPECT_EQ(KSWItem::itemWithType(type, app)->identifier(), identifier);
    }
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeApp | KSWItemTypeManagedBit, app), "2.com.example.tool");
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeGlimpse, URL::fileURL(signedFile("tool", "some code"))),
              "2048.com.example.tool");
}

TEST_F(AnItemOfSignedCode, HasNoIdentifierWhenTheSignatureDoesNotHoldOrHasNoSigner) {
    const URL app = signedApplication();
    files_.writeFile("Tool.app/Contents/Info.plist", "<plist><dict></dict></plist>");
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeApp, app), std::nullopt);
    EXPECT_EQ(KSWItem::itemWithType(KSWItemTypeApp, app), nullptr);
    const std::string adHoc = ksw::facts::makeApplication(files_, "Another.app", "com.example.another");
    ASSERT_TRUE(ksw::facts::sign(adHoc, request(nullptr)).ok());
    EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeApp, URL::fileURL(adHoc)), std::nullopt);
}

TEST_F(AnItemOfSignedCode, HasWhatTheSignatureSays) {
    const URL app = signedApplication();
    for (const auto& item :
         {KSWItem::itemWithType(KSWItemTypeApp, app), KSWItem::itemWithType(KSWItemTypeUserItem, app)}) {
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->name(), "Tool");
        EXPECT_EQ(item->bundleIdentifier(), "com.example.bundle");
        EXPECT_EQ(item->teamIdentifier(), "TEAM000001");
        EXPECT_EQ(item->designatedRequirement(), "identifier \"com.example.tool\"");
        EXPECT_TRUE(item->isSandboxed());
        EXPECT_EQ(item->lightweightRequirement(), std::nullopt) << "a script is no native code";
        EXPECT_EQ(item->developerName(), "");
    }
    const URL program = URL::fileURL(signedProgram("/bin/true", "program"));
    EXPECT_NE(KSWItem::itemWithType(KSWItemTypeUserItem, program)->lightweightRequirement(), std::nullopt);
}

TEST_F(AnItemOfSignedCode, ThatIsAJobHasNothingOfIt) {
    const auto item = KSWItem::itemWithType(KSWItemTypeAgent, signedApplication(), "8.given");
    EXPECT_EQ(item->teamIdentifier(), std::nullopt);
    EXPECT_EQ(item->bundleIdentifier(), std::nullopt);
    EXPECT_EQ(item->flags(), 0U);
}

TEST_F(AnItemOfAFile, UnderAGivenIdentifierIsMadeOfAnyFile) {
    const URL gone = URL::fileURL(files.at("gone.txt"));
    const auto item = KSWItem::itemWithType(KSWItemTypeAgent | KSWItemTypeLegacyBit, gone, "8.given");
    EXPECT_EQ(item->identifier(), "8.given");
    EXPECT_EQ(item->name(), "gone.txt");
    EXPECT_EQ(item->modificationDate(), 0);
    EXPECT_EQ(item->flags(), KSWItemFlagLegacy);
}

}  // namespace
