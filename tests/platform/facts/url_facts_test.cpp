#include <kestrelwood/KSWAdditions.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"

namespace ksw {
namespace {

class AFilesUrl : public testing::Test {
protected:
    AFilesUrl() {
        folder_.writeFile("Outer.app/Contents/Linux/outer", "");
        folder_.writeFile("Outer.app/Contents/Helpers/Inner.app/Contents/Linux/inner", "");
    }

    URL at(std::string_view name) const { return URL::fileURL(folder_.at(name)); }
    URL folderAt(std::string_view name) const { return URL::fileURL(folder_.at(name), PathKind::Directory); }

    test::TempFolder folder_;
    test::ScopedVariable home_{"HOME", folder_.makeFolder("home")};
    test::ScopedVariable data_{"XDG_DATA_HOME", std::nullopt};
    test::ScopedVariable language_{"LANGUAGE", "en"};
};

TEST_F(AFilesUrl, InANestedApplicationLeadsIntoTheOuterOne) {
    const std::string_view inner = "Outer.app/Contents/Helpers/Inner.app/Contents/Linux/inner";
    EXPECT_EQ(__ksw_outerAppURL(at(inner)), folderAt("Outer.app"));
    EXPECT_EQ(__ksw_outerAppURL(at("Outer.app/Contents/Helpers/Inner.app")), folderAt("Outer.app"));
    EXPECT_EQ(__ksw_outerAppURL(at("Outer.app")), folderAt("Outer.app"));
    EXPECT_EQ(__ksw_outerAppURL(at("Outer.app/Contents/none")), folderAt("Outer.app"));
}

TEST_F(AFilesUrl, OutsideOfApplicationsLeadsIntoNone) {
    EXPECT_EQ(__ksw_outerAppURL(at("home")), std::nullopt);
    EXPECT_EQ(__ksw_outerAppURL(URL::fileURL("/")), std::nullopt);
    folder_.writeFile("file.app", "");
    EXPECT_EQ(__ksw_outerAppURL(at("file.app")), std::nullopt);
    EXPECT_EQ(__ksw_outerAppURL(*URL::fromString("https://example.com" + folder_.at("Outer.app"))), std::nullopt);
}

TEST_F(AFilesUrl, OfAMainExecutableLeadsToItsApplication) {
    EXPECT_EQ(__ksw_innerAppURL(at("Outer.app/Contents/Linux/outer")), folderAt("Outer.app"));
    EXPECT_EQ(__ksw_innerAppURL(at("Outer.app/Contents/Helpers/Inner.app/Contents/Linux/inner")),
              folderAt("Outer.app/Contents/Helpers/Inner.app"));
    EXPECT_EQ(__ksw_innerAppURL(at("Outer.app/any/thing/here")), folderAt("Outer.app"));
}

TEST_F(AFilesUrl, ElsewhereIsNobodysExecutable) {
    EXPECT_EQ(__ksw_innerAppURL(at("Outer.app/Contents/outer")), std::nullopt);
    EXPECT_EQ(__ksw_innerAppURL(at("None.app/Contents/Linux/none")), std::nullopt);
    EXPECT_EQ(__ksw_innerAppURL(*URL::fromString("https://x" + folder_.at("Outer.app/Contents/Linux/outer"))),
              std::nullopt);
}

TEST_F(AFilesUrl, WithThreeComponentsOrFewerIsNobodysExecutable) {
    EXPECT_EQ(__ksw_innerAppURL(URL::fileURL("/a/b")), std::nullopt);
    EXPECT_EQ(__ksw_innerAppURL(URL::fileURL("/a")), std::nullopt);
    EXPECT_EQ(__ksw_innerAppURL(URL::fileURL("/")), std::nullopt);
}

TEST_F(AFilesUrl, TellsBundlesAndApplications) {
    EXPECT_TRUE(__ksw_isBundle(at("Outer.app")));
    EXPECT_TRUE(__ksw_isApplication(at("Outer.app")));
    folder_.makeFolder("Suite.bundle");
    EXPECT_TRUE(__ksw_isBundle(at("Suite.bundle")));
    EXPECT_FALSE(__ksw_isApplication(at("Suite.bundle")));
    EXPECT_FALSE(__ksw_isBundle(at("home")));
    folder_.writeFile("file.bundle", "");
    EXPECT_FALSE(__ksw_isBundle(at("file.bundle")));
    EXPECT_FALSE(__ksw_isBundle(at("none.app")));
    EXPECT_FALSE(__ksw_isApplication(at("none.app")));
    EXPECT_FALSE(__ksw_isBundle(*URL::fromString("https://x" + folder_.at("Outer.app"))));
}

TEST_F(AFilesUrl, HasALocalizedNameWhenTheFileIsThere) {
    EXPECT_EQ(__ksw_localizedName(at("Outer.app")), "Outer");
    EXPECT_EQ(__ksw_localizedName(at("Outer.app/Contents/Linux/outer")), "outer");
    EXPECT_EQ(__ksw_localizedName(at("none")), std::nullopt);
    EXPECT_EQ(__ksw_localizedName(*URL::fromString("https://x" + folder_.at("Outer.app"))), std::nullopt);
}

TEST_F(AFilesUrl, IsInTheTrashWhenThatContainsIt) {
    folder_.writeFile("home/.local/share/Trash/files/a", "");
    EXPECT_TRUE(__ksw_isInTrash(at("home/.local/share/Trash/files/a")));
    EXPECT_TRUE(__ksw_isInTrash(at("home/.local/share/Trash/files")));
    EXPECT_FALSE(__ksw_isInTrash(at("home/.local/share/Trash/files/none")));
    EXPECT_FALSE(__ksw_isInTrash(at("Outer.app")));
    EXPECT_FALSE(__ksw_isInTrash(*URL::fromString("https://x" + folder_.at("home/.local/share/Trash/files/a"))));
}

}  // namespace
}  // namespace ksw
