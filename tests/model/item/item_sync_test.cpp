// Records of files that are moved, replaced and thrown away.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include <kestrelwood/KSWAdditions.h>

#include "platform/host/log_capture.h"
#include "tests/model/item/items.h"
#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"

namespace {

using ksw::PathKind;
using ksw::URL;
using ksw::host::LogCapture;
using ksw::host::LogLevel;
using ksw::test::item;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

/// An application with a record that is in line with it, and a login item in it.
struct ARecordWhoseFile : testing::Test {
    ksw::test::TempFolder folder;
    const ksw::test::ScopedVariable home{"HOME", folder.path()};
    const ksw::test::ScopedVariable data{"XDG_DATA_HOME", std::nullopt};
    const URL place = URL::fileURL(folder.makeFolder("Apps/A.app"), PathKind::Directory);
    const URL other = URL::fileURL(folder.at("Apps/B.app"), PathKind::Directory);
    KSWItem::Pointer app = item(KSWItemTypeApp, "2.a");
    KSWItem::Pointer login = item(KSWItemTypeLoginItem, "4.a");

    ARecordWhoseFile() {
        app->setUrl(place);
        app->setBookmark(__ksw_bookmarkDataWithURL(place));
        login->setUrl(URL::fileURL("Contents/Library/LoginItems/H.app"));
        login->setContainer(app);
    }

    void moveAway() { fs::rename(place.path(), other.path()); }
    /// Another folder in the place of the first, which has no second life as the same inode.
    void replace() {
        fs::create_directory(folder.at("new"));
        fs::remove_all(place.path());
        fs::rename(folder.at("new"), place.path());
    }

    /// Runs the operation; what it says of it, in order.
    std::vector<std::string> linesOfSync(KSWItem& synced, bool expected) {
        const LogCapture log;
        EXPECT_EQ(synced.syncURLAndBookmark(), expected);
        std::vector<std::string> lines;
        for (const std::string& line : log.at(LogLevel::Debug)) {
            if (line.starts_with("-[KSWItem")) {
                lines.push_back(line);
            }
        }
        return lines;
    }
    std::vector<std::string> linesOfSync(bool expected) { return linesOfSync(*app, expected); }

    /// What is said first of every application.
    static std::string line(const std::string& text) { return "-[KSWItem syncURLAndBookmark]: " + text; }
};

TEST_F(ARecordWhoseFile, IsWhereItWasResolvesToIt) {
    EXPECT_EQ(app->resolvedURL(), place);
    EXPECT_FALSE(app->isResolvedURLStale());
    const auto url = login->resolvedURL();
    ASSERT_TRUE(url);
    EXPECT_EQ(url->path(), place.path() + "/Contents/Library/LoginItems/H.app");
    EXPECT_FALSE(url->hasDirectoryPath());
    EXPECT_FALSE(login->isResolvedURLStale());
}

TEST_F(ARecordWhoseFile, WasMovedResolvesToTheNewPlaceAndIsStaleWithAllInIt) {
    moveAway();
    EXPECT_EQ(app->resolvedURL(), other);
    EXPECT_TRUE(app->isResolvedURLStale());
    app->setIsResolvedURLStale(false);
    const auto url = login->resolvedURL();
    ASSERT_TRUE(url);
    EXPECT_EQ(url->path(), other.path() + "/Contents/Library/LoginItems/H.app");
    EXPECT_TRUE(login->isResolvedURLStale());
    EXPECT_TRUE(app->isResolvedURLStale());
}

TEST_F(ARecordWhoseFile, WasMovedResolvesWhatIsKeptRelativeToTheOldPlace) {
    login->setUrl(URL::fileURL("Contents/H.app", place));
    moveAway();
    EXPECT_EQ(login->resolvedURL()->path(), other.path() + "/Contents/H.app");
}

TEST_F(ARecordWhoseFile, IsGoneResolvesToNothing) {
    app->setIsResolvedURLStale(true);
    login->setIsResolvedURLStale(true);
    fs::remove_all(place.path());
    EXPECT_EQ(login->resolvedURL(), std::nullopt);
    EXPECT_FALSE(login->isResolvedURLStale());
    EXPECT_EQ(app->resolvedURL(), std::nullopt);
    EXPECT_FALSE(app->isResolvedURLStale());
}

TEST_F(ARecordWhoseFile, WasThrownAwayResolvesToNothing) {
    folder.makeFolder(".local/share/Trash/files");
    fs::rename(place.path(), folder.at(".local/share/Trash/files/A.app"));
    EXPECT_EQ(app->resolvedURL(), std::nullopt);
}

TEST_F(ARecordWhoseFile, WasNeverBookmarkedResolvesToNothing) {
    app->setBookmark(std::nullopt);
    EXPECT_EQ(app->resolvedURL(), std::nullopt);
    app->setBookmark(ksw::Data{1, 2, 3});
    EXPECT_EQ(app->resolvedURL(), std::nullopt);
}

TEST_F(ARecordWhoseFile, IsALegacyOnesDoesNotResolve) {
    login->setType(KSWItemTypeLegacyBit | KSWItemTypeLoginItem);
    login->setIsResolvedURLStale(true);
    EXPECT_EQ(login->resolvedURL(), std::nullopt);
    EXPECT_TRUE(login->isResolvedURLStale());
}

TEST_F(ARecordWhoseFile, IsNamedFromTheRootNeedsNoParent) {
    const auto extension = item(KSWItemTypeLodestar, "64.a");
    const auto developer = item(KSWItemTypeDeveloper, "Example Works");
    extension->setUrl(place);
    EXPECT_EQ(extension->resolvedURL(), URL::fileURL(place.path()));
    extension->setContainer(developer);
    EXPECT_EQ(extension->resolvedURL(), URL::fileURL(place.path()));
    extension->setUrl(URL::fileURL("Contents/x"));
    EXPECT_EQ(extension->resolvedURL(), std::nullopt);
    extension->setUrl(URL::fromString("https://example.com/x"));
    EXPECT_EQ(extension->resolvedURL(), std::nullopt);
    extension->setUrl(std::nullopt);
    EXPECT_EQ(extension->resolvedURL(), std::nullopt);
}

TEST_F(ARecordWhoseFile, LiesUnderParentsThatLeadRoundInACircleResolvesToNothing) {
    const auto agent = item(KSWItemTypeAgent, "8.a");
    agent->setUrl(URL::fileURL("a"));
    login->setContainer(agent);
    agent->setContainer(login);
    EXPECT_EQ(agent->resolvedURL(), std::nullopt);
    agent->setContainer(agent);
    EXPECT_EQ(agent->resolvedURL(), std::nullopt);
    agent->setContainer(nullptr);
    login->setContainer(nullptr);
}

TEST_F(ARecordWhoseFile, IsAJobsIsLeftAlone) {
    for (KSWItemType type : {KSWItemTypeAgent, KSWItemTypeDaemon, KSWItemTypeLoginItem, KSWItemTypeDeveloper}) {
        const auto made = item(type, "an.id");
        made->setUrl(URL::fileURL(folder.at("gone")));
        made->setBookmark(app->bookmark());
        made->setIsResolvedURLStale(true);
        EXPECT_THAT(linesOfSync(*made, false), ElementsAre(line("identifier=an.id")));
        EXPECT_EQ(made->url(), URL::fileURL(folder.at("gone")));
        EXPECT_EQ(made->bookmark(), app->bookmark());
        EXPECT_TRUE(made->isResolvedURLStale());
    }
}

TEST_F(ARecordWhoseFile, IsInLineIsLeftAlone) {
    const auto bookmark = app->bookmark();
    EXPECT_THAT(linesOfSync(false), ElementsAre(line("identifier=2.a"), line("url=" + place.relativeString()),
                                                line("resolvedURL=" + place.relativeString())));
    EXPECT_EQ(app->url(), place);
    EXPECT_EQ(app->bookmark(), bookmark);
}

TEST_F(ARecordWhoseFile, WasMovedFollowsIt) {
    const auto bookmark = app->bookmark();
    moveAway();
    EXPECT_THAT(linesOfSync(true), ElementsAre(line("identifier=2.a"), line("url=" + place.relativeString()),
                                               line("resolvedURL=" + other.relativeString()),
                                               line("updating url to " + other.relativeString())));
    EXPECT_EQ(app->url(), other);
    EXPECT_NE(app->bookmark(), bookmark);
    EXPECT_FALSE(app->isResolvedURLStale());
    EXPECT_FALSE(app->syncURLAndBookmark());
    EXPECT_EQ(app->resolvedURL(), other);
    EXPECT_FALSE(app->isResolvedURLStale());
}

TEST_F(ARecordWhoseFile, IsElsewhereThanTheRecordSaysKeepsABookmarkThatIsFresh) {
    const auto bookmark = app->bookmark();
    app->setUrl(URL::fileURL(folder.at("gone")));
    EXPECT_TRUE(app->syncURLAndBookmark());
    EXPECT_EQ(app->url(), place);
    EXPECT_EQ(app->bookmark(), bookmark);
    app->setUrl(std::nullopt);
    EXPECT_THAT(linesOfSync(true), ElementsAre(line("identifier=2.a"), line("url=(null)"),
                                               line("resolvedURL=" + place.relativeString()),
                                               line("updating url to " + place.relativeString())));
    EXPECT_EQ(app->url(), place);
}

TEST_F(ARecordWhoseFile, WasReplacedGetsANewBookmark) {
    const auto bookmark = app->bookmark();
    replace();
    EXPECT_THAT(linesOfSync(true),
                ElementsAre(line("identifier=2.a"), line("url=" + place.relativeString()),
                            line("resolvedURL=" + place.relativeString()), line("updating bookmark")));
    EXPECT_EQ(app->url(), place);
    EXPECT_NE(app->bookmark(), bookmark);
    // What the last resolution said stays said until the next one.
    EXPECT_TRUE(app->isResolvedURLStale());
    EXPECT_FALSE(app->syncURLAndBookmark());
    EXPECT_FALSE(app->isResolvedURLStale());
}

TEST_F(ARecordWhoseFile, IsAnotherThanTheBookmarksGetsANewBookmark) {
    fs::create_directory(other.path());
    app->setUrl(other);
    EXPECT_TRUE(app->syncURLAndBookmark());
    EXPECT_EQ(app->url(), other);
    EXPECT_EQ(app->resolvedURL(), other);
}

TEST_F(ARecordWhoseFile, WasNeverBookmarkedGetsABookmark) {
    const auto user = item(KSWItemTypeUserItem, "file:///x");
    user->setUrl(URL::fileURL(folder.writeFile("plan.txt", "x")));
    EXPECT_TRUE(user->syncURLAndBookmark());
    EXPECT_EQ(user->resolvedURL(), user->url());
    EXPECT_FALSE(user->syncURLAndBookmark());
}

TEST_F(ARecordWhoseFile, IsNowhereIsLeftAlone) {
    const auto bookmark = app->bookmark();
    fs::remove_all(place.path());
    EXPECT_THAT(linesOfSync(false), ElementsAre(line("identifier=2.a"), line("url=" + place.relativeString()),
                                                line("resolvedURL=(null)")));
    EXPECT_EQ(app->url(), place);
    EXPECT_EQ(app->bookmark(), bookmark);
}

TEST_F(ARecordWhoseFile, IsNoFileIsLeftAlone) {
    const auto user = item(KSWItemTypeUserItem, "https://example.com/");
    user->setUrl(URL::fromString("https://example.com/"));
    user->setBookmark(__ksw_bookmarkDataWithURL(user->url()));
    EXPECT_FALSE(user->syncURLAndBookmark());
}

TEST_F(ARecordWhoseFile, IsNamedInTheLogOnlyWherePrivateWordsMayBe) {
    const LogCapture log;
    app->syncURLAndBookmark();
    std::vector<std::string> lines;
    for (const ksw::host::LogLine& said : log.lines()) {
        if (said.text.starts_with("%s: ")) {
            lines.push_back(said.publicForm);
        }
    }
    EXPECT_THAT(lines, ElementsAre(line("identifier=2.a"), line("url=<private>"), line("resolvedURL=<private>")));
}

}  // namespace
