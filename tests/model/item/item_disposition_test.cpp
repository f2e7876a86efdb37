#include <gtest/gtest.h>

#include <kestrelwood/KSWItem.h>

#include "platform/host/log_capture.h"
#include "tests/model/item/items.h"
#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"

namespace {

using ksw::URL;
using ksw::host::LogCapture;
using ksw::host::LogLevel;
using ksw::test::item;

constexpr KSWItemType kLegacyAgent = KSWItemTypeLegacyBit | KSWItemTypeAgent;
constexpr KSWItemType kLegacyDaemon = KSWItemTypeLegacyBit | KSWItemTypeDaemon;
// Where a user's trash keeps what was thrown away.
constexpr std::string_view kTrashed = ".local/share/Trash/files/";

/// A known developer who is allowed, with a folder for files beside.
struct TheEffectiveDisposition : testing::Test {
    ksw::test::TempFolder folder;
    const ksw::test::ScopedVariable home{"HOME", folder.path()};
    const ksw::test::ScopedVariable data{"XDG_DATA_HOME", std::nullopt};
    KSWItem::Pointer developer = item(0x20, "Dev");
    KSWItem::Pointer made = item(0x40, "64.a");

    TheEffectiveDisposition() {
        developer->setDeveloperName("Dev");
        developer->setAllowed(true);
    }

    std::string file(std::string_view name) { return folder.writeFile(name, ""); }
    std::string trashed(std::string_view name) { return file(std::string(kTrashed).append(name)); }
};

TEST_F(TheEffectiveDisposition, OfALonelyItemIsItsOwn) {
    for (KSWItemType type : {KSWItemTypeDeveloper, KSWItemTypeLodestar, kLegacyAgent}) {
        const auto lonely = item(type, "x");
        for (KSWDisposition disposition = 0; disposition <= 0x1F; ++disposition) {
            lonely->setDisposition(disposition);
            EXPECT_EQ(lonely->effectiveDisposition(), disposition & 0xF) << type << " " << disposition;
        }
    }
}

TEST_F(TheEffectiveDisposition, NeverHasPendingAuthorization) {
    made->setDisposition(0x1F);
    EXPECT_EQ(made->effectiveDisposition(), 0xFU);
}

TEST_F(TheEffectiveDisposition, OfATrashedDaemonIsNotEnabled) {
    const auto daemon = item(kLegacyDaemon, "16.a");
    daemon->setDisposition(0xB);
    daemon->setExecutablePath(trashed("daemon"));
    daemon->setContainer(developer);
    developer->setNotified(true);
    EXPECT_EQ(daemon->effectiveDisposition(), 0xAU);
    daemon->setExecutablePath(file("daemon"));
    EXPECT_EQ(daemon->effectiveDisposition(), 0xBU);
}

TEST_F(TheEffectiveDisposition, OfATrashedItemKeepsTheHiddenBit) {
    const auto user = item(0x1, "file:///x");
    user->setDisposition(0x7);
    user->setUrl(URL::fileURL(trashed("x")));
    EXPECT_EQ(user->effectiveDisposition(), 0x6U);
}

TEST_F(TheEffectiveDisposition, LooksForAnAgentsFileInItsApp) {
    const auto app = item(0x2, "2.app");
    const auto agent = item(0x8, "8.a");
    agent->setUrl(URL::fromString("Contents/a.plist"));
    agent->setContainer(app);
    agent->setDisposition(0x3);
    app->setDisposition(0x3);
    file("A.app/Contents/a.plist");
    app->setUrl(URL::fileURL(folder.at("A.app"), ksw::PathKind::Directory));
    EXPECT_EQ(agent->effectiveDisposition(), 0x3U);
    trashed("A.app/Contents/a.plist");
    app->setUrl(URL::fileURL(folder.at(std::string(kTrashed) + "A.app"), ksw::PathKind::Directory));
    EXPECT_EQ(agent->effectiveDisposition(), 0x2U);
}

TEST_F(TheEffectiveDisposition, OfALoginItemFollowsItsSiblings) {
    const auto loginItem = item(0x4, "4.a");
    const auto sibling = item(0x4, "4.b");
    developer->setUrl(URL::fileURL(folder.path(), ksw::PathKind::Directory));
    file("helper");
    loginItem->setUrl(URL::fromString("helper"));
    loginItem->setContainer(developer);
    sibling->setContainer(developer);
    loginItem->setDisposition(0x3);
    EXPECT_EQ(loginItem->effectiveDisposition(), 0x1U);
    sibling->setAllowed(true);
    EXPECT_EQ(loginItem->effectiveDisposition(), 0x3U);
    developer->setAllowed(false);
    EXPECT_EQ(loginItem->effectiveDisposition(), 0x1U);
}

TEST_F(TheEffectiveDisposition, OfAnExtensionIsAllowedByItsOwnBitAlone) {
    const auto glimpse = item(0x800, "2048.a");
    glimpse->setContainer(developer);
    item(0x4, "4.b")->setContainer(developer);
    developer->setAllowed(false);
    glimpse->setDisposition(0x3);
    EXPECT_EQ(glimpse->effectiveDisposition(), 0x3U);
    glimpse->setDisposition(0x1);
    developer->setAllowed(true);
    EXPECT_EQ(glimpse->effectiveDisposition(), 0x1U);
}

TEST_F(TheEffectiveDisposition, OfAnExtensionIsNotifiedByItsParent) {
    for (KSWItemType type : {0x40U, 0x80U, 0x100U, 0x200U, 0x400U, 0x800U}) {
        const auto extension = item(type, std::to_string(type));
        extension->setContainer(developer);
        EXPECT_EQ(extension->effectiveDisposition(), 0x0U) << type;
        developer->setNotified(true);
        EXPECT_EQ(extension->effectiveDisposition(), 0x8U) << type;
        developer->setNotified(false);
    }
}

TEST_F(TheEffectiveDisposition, IsNotifiedWhenASiblingIs) {
    const auto sibling = item(0x8, "8.b");
    made->setContainer(developer);
    sibling->setContainer(developer);
    sibling->setNotified(true);
    EXPECT_EQ(made->effectiveDisposition(), 0x8U);
}

TEST_F(TheEffectiveDisposition, BelowTheUnknownDeveloperIsJudgedAlone) {
    const auto agent = item(kLegacyAgent, "8.a");
    developer->setDeveloperName(std::nullopt);
    developer->setAllowed(false);
    developer->setNotified(true);
    agent->setContainer(developer);
    item(0x4, "4.b")->setContainer(developer);
    agent->setDisposition(0x3);
    EXPECT_EQ(agent->effectiveDisposition(), 0x3U);
    const auto child = item(0x8, "8.child");
    child->setContainer(agent);
    EXPECT_EQ(agent->effectiveDisposition(), 0x1U);
}

TEST_F(TheEffectiveDisposition, OfALegacyAgentWithoutExecutableAsksForNoFile) {
    const LogCapture log;
    const auto agent = item(kLegacyAgent, "8.a");
    agent->setUrl(URL::fileURL(trashed("a.plist")));
    agent->setDisposition(0x3);
    EXPECT_EQ(agent->effectiveDisposition(), 0x3U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(TheEffectiveDisposition, OfAnExtensionOrADeveloperAsksForNoFile) {
    const LogCapture log;
    for (KSWItemType type : {0x20U, 0x40U, 0x800U}) {
        const auto other = item(type, "x");
        other->setUrl(URL::fileURL(trashed("x")));
        other->setDisposition(0x1);
        EXPECT_EQ(other->effectiveDisposition(), 0x1U) << type;
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(TheEffectiveDisposition, OfAUserItemWithoutURLAsksForNoFile) {
    const LogCapture log;
    const auto user = item(0x1, "x");
    user->setDisposition(0x3);
    EXPECT_EQ(user->effectiveDisposition(), 0x3U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(TheEffectiveDisposition, SaysWhenAnItemHasNoPath) {
    const LogCapture log;
    const auto agent = item(0x8, "8.a");
    agent->setUrl(URL::fromString("a.plist"));
    agent->setContainer(developer);
    agent->setDisposition(0x3);
    EXPECT_EQ(agent->effectiveDisposition(), 0x3U);
    const std::string text =
        "effectiveDisposition: FATAL ERROR - fullPath is nil, container=" + developer->description() +
        ", item=" + agent->description();
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, LogLevel::Error);
    EXPECT_EQ(log.lines()[0].category, "main");
    EXPECT_EQ(log.lines()[0].fullForm, text);
    EXPECT_EQ(log.lines()[0].publicForm, text);
}

TEST_F(TheEffectiveDisposition, SaysWhenAnItemHasNeitherPathNorContainer) {
    const LogCapture log;
    const auto app = item(0x2, "2.a");
    app->setDisposition(0x3);
    EXPECT_EQ(app->effectiveDisposition(), 0x3U);
    EXPECT_EQ(
        log.at(LogLevel::Error),
        (std::vector<std::string>{"effectiveDisposition: FATAL ERROR - fullPath is nil, container=(null), item=" +
                                  app->description()}));
}

TEST_F(TheEffectiveDisposition, KeepsTheStoredBitWhenTheFileCannotBeExamined) {
    const LogCapture log;
    const auto user = item(0x1, "x");
    user->setUrl(URL::fileURL(folder.at("missing")));
    user->setDisposition(0x3);
    EXPECT_EQ(user->effectiveDisposition(), 0x3U);
    ASSERT_EQ(log.lines().size(), 2U);
    const std::string first = "effectiveDisposition: getRelationship failed, url=file://" + folder.at("missing") +
                              ", error: Error Domain=KSWPosixErrorDomain Code=2";
    EXPECT_EQ(log.lines()[0].level, LogLevel::Debug);
    EXPECT_EQ(log.lines()[0].fullForm.substr(0, first.size()), first);
    EXPECT_EQ(log.lines()[0].publicForm, log.lines()[0].fullForm);
    EXPECT_EQ(log.lines()[1].level, LogLevel::Debug);
    EXPECT_EQ(log.lines()[1].fullForm, "effectiveDisposition: getRelationship failed, item=" + user->description());
    EXPECT_EQ(log.lines()[1].publicForm, log.lines()[1].fullForm);
}

TEST_F(TheEffectiveDisposition, OfAUserItemThatIsNoFileLooksForNoneOfThatPath) {
    const LogCapture log;
    const auto user = item(0x1, "x");
    const std::string url = "https://example.com" + trashed("x");
    user->setUrl(URL::fromString(url));
    user->setDisposition(0x3);
    EXPECT_EQ(user->effectiveDisposition(), 0x3U);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[0].publicForm, "effectiveDisposition: getRelationship failed, url=" + url +
                                             ", error: Error Domain=KSWStatusErrorDomain Code=-50 \"" + url +
                                             ": not a file URL\"");
}

TEST_F(TheEffectiveDisposition, OfAnItemThatIsItsOwnContainerIsFound) {
    made->setDisposition(0x3);
    made->setContainer(made);
    EXPECT_EQ(made->effectiveDisposition(), 0x3U);
    made->setContainer(nullptr);
}

}  // namespace
