// The names that people know items by.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include <kestrelwood/KSWFunctions.h>

#include "tests/model/item/items.h"
#include "tests/support/environment.h"
#include "tests/support/host_root.h"
#include "tests/support/temp_folder.h"

namespace {

using ksw::Dictionary;
using ksw::PathKind;
using ksw::URL;
using ksw::test::item;

std::string propertyList(const std::string& key, const std::string& text) {
    return "<plist version=\"1.0\"><dict><key>" + key + "</key><string>" + text + "</string></dict></plist>";
}

struct AName : testing::Test {
    ksw::test::TempFolder folder;
    const ksw::test::ScopedVariable language{"LANGUAGE", "de"};

    /// An application that calls itself so.
    URL application(const std::string& path, const std::string& name) {
        folder.writeFile(path + "/Contents/Info.plist", propertyList("QCBundleDisplayName", name));
        return URL::fileURL(folder.at(path), PathKind::Directory);
    }
    KSWItem::OptionalString nameOfJob(const std::string& executable) {
        return ItemNameForStewardPlist(
            Dictionary{{KSWConfigExecutablePath, executable}, {KSWConfigLabel, "label"}});
    }
};

TEST_F(AName, OfAFileIsTheOneThatItsFolderGivesIt) {
    EXPECT_EQ(ItemNameForURL(URL::fileURL(folder.writeFile("my 100% plan.txt", ""))), "my 100% plan.txt");
}

TEST_F(AName, OfAnApplicationIsItsOwn) {
    EXPECT_EQ(ItemNameForURL(application("A.app", "Werkzeug")), "Werkzeug");
    EXPECT_EQ(ItemNameForURL(URL::fileURL(folder.makeFolder("Plain.app"))), "Plain");
}

TEST_F(AName, OfAnApplicationIsInTheLanguageOfTheUser) {
    const URL url = application("A.app", "Tool");
    folder.writeFile("A.app/Contents/Resources/de/InfoPlist.plist",
                     propertyList("QCBundleDisplayName", "Werkzeug"));
    EXPECT_EQ(ItemNameForURL(url), "Werkzeug");
    const ksw::test::ScopedVariable english("LANGUAGE", "en");
    EXPECT_EQ(ItemNameForURL(url), "Tool");
}

TEST_F(AName, OfAFileThatIsGoneIsTheEndOfItsPath) {
    EXPECT_EQ(ItemNameForURL(URL::fileURL(folder.at("gone.app"))), "gone.app");
    EXPECT_EQ(ItemNameForURL(URL::fileURL(folder.at("a folder"), PathKind::Directory)), "a folder");
    EXPECT_EQ(ItemNameForURL(URL::fileURL(folder.at("caf\xe9"))), "caf\xEF\xBF\xBD");
}

TEST_F(AName, OfWhatIsNoFileIsItsURL) {
    EXPECT_EQ(ItemNameForURL(*URL::fromString("https://example.com/a?b#c")), "https://example.com/a?b#c");
    EXPECT_EQ(ItemNameForURL(*URL::fromString("b", *URL::fromString("https://example.com/a"))),
              "https://example.com/b");
}

TEST_F(AName, OfAJobIsItsExecutables) {
    EXPECT_EQ(nameOfJob(folder.writeFile("bin/tool", "")), "tool");
    EXPECT_EQ(nameOfJob("/nowhere/tool/"), "tool");
    EXPECT_EQ(nameOfJob("/"), "/");
    EXPECT_EQ(nameOfJob("Contents/Linux/tool"), "tool");
    EXPECT_EQ(nameOfJob("/opt/caf\xe9"), "caf\xEF\xBF\xBD");
}

TEST_F(AName, OfAJobWithoutExecutableIsItsLabel) {
    EXPECT_EQ(nameOfJob(""), "label");
    EXPECT_EQ(ItemNameForStewardPlist(Dictionary{{KSWConfigLabel, "label"}}), "label");
    EXPECT_EQ(ItemNameForStewardPlist(Dictionary{{KSWConfigExecutablePath, 1}, {KSWConfigLabel, "label"}}),
              "label");
}

TEST_F(AName, OfAJobWithoutExecutableAndLabelIsNone) {
    EXPECT_EQ(ItemNameForStewardPlist(Dictionary()), std::nullopt);
    EXPECT_EQ(ItemNameForStewardPlist(Dictionary{{KSWConfigLabel, 1}}), std::nullopt);
    EXPECT_EQ(ItemNameForStewardPlist(std::nullopt), std::nullopt);
}

TEST_F(AName, OfAJobInsideApplicationsIsThatOfTheOutermost) {
    application("Apps/A.app", "Outer");
    application("Apps/A.app/Helpers/B.app", "Inner");
    const std::string helper = folder.writeFile("Apps/A.app/Helpers/B.app/b", "");
    EXPECT_EQ(nameOfJob(helper), "Outer");
    // Whether the helper is there does not matter.
    std::filesystem::remove(helper);
    EXPECT_EQ(nameOfJob(helper), "Outer");
}

TEST_F(AName, OfAJobWhoseExecutableIsAnApplicationIsThatOfTheApplication) {
    application("A.app", "Outer");
    EXPECT_EQ(nameOfJob(folder.at("A.app")), "Outer");
}

TEST_F(AName, OfAJobPassesOverFilesThatAreCalledLikeApplications) {
    folder.writeFile("A.app", "");
    EXPECT_EQ(nameOfJob(folder.at("A.app/tool")), "tool");
    EXPECT_EQ(nameOfJob("/nowhere/A.app/tool"), "tool");
}

TEST_F(AName, OfAnItemInItsUsersLanguageIsThatOfItsFile) {
    const auto user = item(0x1, "file:///x");
    user->setName("Stored");
    EXPECT_EQ(user->localizedName(), "Stored");
    user->setUrl(application("A.app", "Werkzeug"));
    EXPECT_EQ(user->localizedName(), "Werkzeug");
    user->setUrl(URL::fileURL(folder.at("gone")));
    EXPECT_EQ(user->localizedName(), "Stored");
    user->setUrl(URL::fromString("https://example.com/"));
    EXPECT_EQ(user->localizedName(), "Stored");
    user->setName(std::nullopt);
    EXPECT_EQ(user->localizedName(), std::nullopt);
}

TEST_F(AName, OfALegacyItemIsThatOfItsExecutable) {
    const auto agent = item(KSWItemTypeLegacyBit | KSWItemTypeAgent, "8.a");
    agent->setName("Stored");
    agent->setUrl(URL::fileURL(folder.writeFile("job.plist", "")));
    EXPECT_EQ(agent->localizedName(), "job.plist");
    agent->setExecutablePath(application("A.app", "Werkzeug").path());
    EXPECT_EQ(agent->localizedName(), "Werkzeug");
    agent->setExecutablePath(folder.at("gone"));
    EXPECT_EQ(agent->localizedName(), "Stored");
}

TEST_F(AName, OfAnItemInItsApplicationIsThatOfItsFileThere) {
    const auto app = item(KSWItemTypeApp, "2.a");
    const auto login = item(KSWItemTypeLoginItem, "4.a");
    login->setName("Stored");
    login->setUrl(URL::fileURL("Contents/Helper.app"));
    EXPECT_EQ(login->localizedName(), "Stored");
    login->setContainer(app);
    EXPECT_EQ(login->localizedName(), "Stored");
    app->setUrl(application("A.app", "Outer"));
    application("A.app/Contents/Helper.app", "Helfer");
    EXPECT_EQ(login->localizedName(), "Helfer");
}

TEST_F(AName, OfAKnownDeveloperIsTheStoredOne) {
    const auto developer = item(KSWItemTypeDeveloper, "Example Works");
    developer->setDeveloperName("Example Works");
    developer->setName("Example Works");
    EXPECT_EQ(developer->localizedName(), "Example Works");
}

/// What the unknown developer is called by a process that starts with this language, and later on.
std::string namesOfUnknownDeveloper(const char* language) {
    const ksw::test::HostRoot root;
    const std::string resources = root.folder().makeFolder("usr/share/kestrelwood/Resources");
    std::filesystem::copy(KSW_SOURCE_DIR "/share/Resources", resources, std::filesystem::copy_options::recursive);
    const auto developer = item(KSWItemTypeDeveloper, "Unknown Developer");
    const ksw::test::ScopedVariable first("LANGUAGE", language);
    const std::string name = developer->localizedName().value_or("none");
    const ksw::test::ScopedVariable later("LANGUAGE", "en");
    std::filesystem::remove_all(resources);
    return name + ", " + developer->localizedName().value_or("none");
}

// In a process of its own, since one looks the name up once.
TEST_F(AName, OfTheUnknownDeveloperIsLookedUpOnceInAProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const bool isAsExpected =
                namesOfUnknownDeveloper("de_AT.UTF-8:en") == "Unbekannter Entwickler, Unbekannter Entwickler";
            std::_Exit(isAsExpected ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            const bool isAsExpected = namesOfUnknownDeveloper("eo") == "Unknown Developer, Unknown Developer";
            std::_Exit(isAsExpected ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(AName, OfTheUnknownDeveloperIsNoData) {
    const auto made = item(0x8, "8.a");
    made->setDeveloperName("Unknown Developer");
    EXPECT_EQ(made->developerName(), "");
    made->setDeveloperName("unknown developer");
    EXPECT_EQ(made->developerName(), "unknown developer");
    made->setName("Unknown Developer");
    EXPECT_EQ(made->name(), std::nullopt);
    made->setName("Unknown developer");
    EXPECT_EQ(made->name(), "Unknown developer");
}

}  // namespace
