// Which applications a user has, and which one an identifier means.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>

#include "platform/base/limits.h"
#include "platform/host/log_capture.h"
#include "tests/platform/facts/applications/applications_test_support.h"

namespace ksw::facts {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr Uid kStranger = 54321;  // of no database

using AnApplication = ApplicationsTest;

TEST_F(AnApplication, IsFoundByItsIdentifierInEachOfTheFolders) {
    for (const std::string path :
         {"/Applications/A.app", "/opt/B.app", "/usr/local/Applications/C.app", "/home/me/Applications/D.app"}) {
        add(path, "com.example." + path.substr(path.size() - 5, 1));
    }
    EXPECT_EQ(found("com.example.A"), at("/Applications/A.app"));
    EXPECT_EQ(found("com.example.B"), at("/opt/B.app"));
    EXPECT_EQ(found("com.example.C"), at("/usr/local/Applications/C.app"));
    EXPECT_EQ(found("com.example.D"), at("/home/me/Applications/D.app"));
    EXPECT_EQ(found("com.example.E"), "");
    EXPECT_EQ(found(""), "");
}

TEST_F(AnApplication, HasTheUrlOfADirectory) {
    add("/Applications/My Tool.app");
    EXPECT_EQ(registry_.find(kTool, user_)->url.relativeString(),
              "file://" + root_.folder().path() + "/Applications/My%20Tool.app/");
}

TEST_F(AnApplication, OfAUserIsNobodyElses) {
    add("/home/me/Applications/Tool.app");
    add("/Applications/Other.app", "com.example.other");
    EXPECT_NE(found(), "");
    EXPECT_EQ(foundFor(kStranger), "");
    EXPECT_EQ(foundFor(kStranger, "com.example.other"), at("/Applications/Other.app"));
    EXPECT_THAT(pathsOf(kStranger), ElementsAre(at("/Applications/Other.app")));
}

TEST_F(AnApplication, OfEveryUserIsTheSystems) {
    add("/home/me/Applications/Tool.app");
    add("/Applications/Other.app", "com.example.other");
    for (const Uid uid : {kEveryUser, kNoUser}) {
        EXPECT_EQ(foundFor(uid), "");
        EXPECT_EQ(foundFor(uid, "com.example.other"), at("/Applications/Other.app"));
    }
}

TEST_F(AnApplication, IsPreferredByItsFolderThenItsDepthThenItsName) {
    const std::vector<std::string> inOrder = {at("/Applications/B.app"),
                                              at("/Applications/A/A.app"),
                                              at("/Applications/A/B.app"),
                                              at("/Applications/A/A/A.app"),
                                              at("/opt/A.app"),
                                              at("/usr/local/Applications/A.app"),
                                              at("/home/me/Applications/A.app")};
    for (const std::string& path : inOrder) {
        add(path.substr(root_.folder().path().size()));
    }
    EXPECT_EQ(pathsOf(user_), inOrder);
    for (const std::string& path : inOrder) {
        EXPECT_EQ(found(), path);
        std::filesystem::remove_all(path);
        clock_.advance(std::chrono::seconds(1));
    }
    EXPECT_EQ(found(), "");
}

TEST_F(AnApplication, ThatIsNotThereWhollyIsAPlaceholder) {
    const std::string path = addPlaceholder("/Applications/Tool.app");
    EXPECT_EQ(foundFor(user_, kTool, Placeholders::LeftOut), "");
    EXPECT_EQ(foundFor(user_, kTool, Placeholders::Included), path);
    EXPECT_TRUE(registry_.all(user_).front()->isPlaceholder);
    addExecutable("/Applications/Tool.app", "Tool");
    EXPECT_EQ(foundFor(user_, kTool, Placeholders::LeftOut), "");
    clock_.advance(std::chrono::seconds(1));
    EXPECT_EQ(foundFor(user_, kTool, Placeholders::LeftOut), path);
    EXPECT_FALSE(registry_.all(user_).front()->isPlaceholder);
}

TEST_F(AnApplication, ThatIsWholeIsPreferredToAPlaceholder) {
    addPlaceholder("/Applications/Tool.app");
    const std::string whole = add("/home/me/Applications/Tool.app");
    EXPECT_EQ(foundFor(user_, kTool, Placeholders::Included), whole);
}

TEST_F(AnApplication, WhoseListNamesAnotherExecutableIsWholeWhenThatIsThere) {
    addPlaceholder("/Applications/Tool.app", kTool, "<key>QCBundleExecutable</key><string>other</string>");
    addExecutable("/Applications/Tool.app", "Tool");
    EXPECT_EQ(found(), "");
    addExecutable("/Applications/Tool.app", "other");
    clock_.advance(std::chrono::seconds(1));
    EXPECT_NE(found(), "");
}

TEST_F(AnApplication, WhoseExecutableIsAFolderOrALinkIsAPlaceholder) {
    addPlaceholder("/Applications/A.app", "a");
    root_.folder().makeFolder("Applications/A.app/Contents/Linux/A");
    addPlaceholder("/Applications/B.app", "b");
    addExecutable("/Applications/B.app", "real");
    std::filesystem::create_symlink("real", at("/Applications/B.app/Contents/Linux/B"));
    EXPECT_EQ(found("a"), "");
    EXPECT_EQ(found("b"), "");
}

TEST_F(AnApplication, HasANameForPeople) {
    add("/Applications/A.app", "a", "<key>QCBundleName</key><string>The A</string>");
    add("/Applications/B.app", "b",
        "<key>QCBundleName</key><string>The B</string><key>QCBundleDisplayName</key><string>B!</string>");
    add("/Applications/C D.app", "c");
    EXPECT_EQ(registry_.find("a", user_)->localizedName(), "The A");
    EXPECT_EQ(registry_.find("b", user_)->localizedName(), "B!");
    EXPECT_EQ(registry_.find("c", user_)->localizedName(), "C D");
}

TEST_F(AnApplication, WithoutASignatureHasNoTeam) {
    add("/Applications/Tool.app");
    EXPECT_EQ(registry_.find(kTool, user_)->team(), std::nullopt);
}

TEST_F(AnApplication, IsFoundWhateverBytesItsNameHas) {
    const std::string names[] = {"a\nb", "%2F%00", "\xFF\xFE", std::string(251, 'x'), "x y", "a.app.b"};
    for (std::size_t index = 0; index < std::size(names); ++index) {
        const std::string path = add("/Applications/" + names[index] + ".app", std::to_string(index));
        EXPECT_EQ(found(std::to_string(index)), path);
        clock_.advance(std::chrono::seconds(1));
    }
}

TEST_F(AnApplication, ThatLiesTooDeepIsNotFound) {
    static_assert(limits::kApplicationDepthMax == 3);
    add("/opt/a/b/Third.app", "third");
    add("/opt/a/b/c/Fourth.app", "fourth");
    EXPECT_NE(found("third"), "");
    EXPECT_EQ(found("fourth"), "");
}

TEST_F(AnApplication, InsideAnotherOrAHiddenFolderIsNotFound) {
    add("/Applications/Outer.app", "outer");
    add("/Applications/Outer.app/Inner.app", "inner");
    add("/Applications/.hidden/Tool.app", "hidden");
    EXPECT_THAT(pathsOf(user_), ElementsAre(at("/Applications/Outer.app")));
}

TEST_F(AnApplication, NeedsMoreInItsNameThanTheEnding) {
    addPlaceholder("/Applications/.app", "a");
    EXPECT_THAT(pathsOf(user_), IsEmpty());
}

TEST_F(AnApplication, BehindALinkIsNotFound) {
    const std::string elsewhere = add("/srv/Tool.app");
    const std::filesystem::path folder = root_.folder().makeFolder("Applications");
    std::filesystem::create_directory_symlink(elsewhere, folder / "Tool.app");
    std::filesystem::create_directory_symlink(at("/srv"), folder / "all");
    std::filesystem::create_directory_symlink("..", folder / "above");
    std::filesystem::create_directory_symlink("loop", folder / "loop");
    add("/Applications/Inner.app", "inner");
    std::filesystem::rename(folder / "Inner.app/Contents", at("/Contents"));
    std::filesystem::create_directory_symlink(at("/Contents"), folder / "Inner.app/Contents");
    EXPECT_THAT(pathsOf(user_), IsEmpty());
}

TEST_F(AnApplication, OfAUserBehindALinkInItsPlaceIsNotFound) {
    add("/srv/Tool.app");
    std::filesystem::create_directories(at("/home/me"));
    std::filesystem::create_directory_symlink(at("/srv"), at("/home/me/Applications"));
    EXPECT_EQ(found(), "");
}

TEST_F(AnApplication, OfTheSystemIsFoundInAFolderThatIsALink) {
    const std::string path = add("/srv/Tool.app");
    std::filesystem::create_directory_symlink("srv", at("/Applications"));
    EXPECT_EQ(found(), path);
}

/// What others may write: the mode, below what, and whether the application still counts.
struct Writable {
    std::string path;
    mode_t mode;
    bool counts;
};

TEST_F(AnApplication, DoesNotCountWhereOthersMayWrite) {
    const Writable cases[] = {{"/Applications", 0777, false},
                              {"/Applications", 01777, false},
                              {"/Applications", 0757, false},
                              {"/Applications/Tool.app", 0777, false},
                              {"/Applications/Tool.app/Contents", 0777, false},
                              {"/Applications/Tool.app/Contents/Info.plist", 0666, false},
                              {"/Applications/Tool.app", 0755, true},
                              {"/Applications/Tool.app", 0700, true}};
    for (const Writable& writable : cases) {
        add("/Applications/Tool.app");
        ASSERT_EQ(::chmod(at(writable.path).c_str(), writable.mode), 0);
        clock_.advance(std::chrono::seconds(1));
        EXPECT_EQ(!found().empty(), writable.counts) << writable.path << " " << std::oct << writable.mode;
        std::filesystem::remove_all(at("/Applications"));
    }
}

TEST_F(AnApplication, ThatOthersMayWriteIsNamedInTheLog) {
    const host::LogCapture log;
    const std::string path = add("/Applications/Tool.app");
    ASSERT_EQ(::chmod(path.c_str(), 0777), 0);
    EXPECT_EQ(found(), "");
    EXPECT_THAT(log.at(host::LogLevel::Info),
                Contains("Applications in " + path + " do not count: others may write it"));
}

TEST_F(AnApplication, MayBeWrittenByAGroupWithItsOwnersNumberOnly) {
    struct ::stat facts {};
    facts.st_uid = 1000;
    facts.st_mode = S_IFDIR | 0775;
    const Owners owners{1000, 0};
    facts.st_gid = 1000;
    EXPECT_TRUE(owners.own(facts));
    facts.st_gid = 100;
    EXPECT_FALSE(owners.own(facts));
    facts.st_mode = S_IFDIR | 0755;
    EXPECT_TRUE(owners.own(facts));
    facts.st_uid = 0;
    EXPECT_TRUE(owners.own(facts));
    facts.st_uid = 1001;
    EXPECT_FALSE(owners.own(facts));
}

/// An information property list, and whether it makes an application.
TEST_F(AnApplication, NeedsAReadableIdentifier) {
    const std::string longest(limits::kCodeIdentifierMax, 'i');
    const std::pair<std::string, bool> lists[] = {
        {listOf("good"), true},
        {listOf(longest), true},
        {listOf(longest + "i"), false},
        {listOf(""), false},
        {listOf("two&#10;lines"), false},
        {"<plist><dict><key>QCBundleIdentifier</key><integer>1</integer></dict></plist>", false},
        {"<plist><dict></dict></plist>", false},
        {"<plist><array></array></plist>", false},
        {"<plist>", false},
        {"", false},
        {std::string(64, '\0'), false},
        {listOf("padded") + std::string(limits::kPropertyListFileMax, ' '), false}};
    for (const auto& [list, isOne] : lists) {
        add("/Applications/Tool.app");
        root_.folder().writeFile("Applications/Tool.app/Contents/Info.plist", list);
        clock_.advance(std::chrono::seconds(1));
        EXPECT_EQ(pathsOf(user_).size(), isOne ? 1U : 0U) << list.substr(0, 100);
    }
}

TEST_F(AnApplication, WithAPipeOrAFolderInPlaceOfItsListIsNone) {
    root_.folder().makeFolder("Applications/A.app/Contents");
    ASSERT_EQ(::mkfifo(at("/Applications/A.app/Contents/Info.plist").c_str(), 0600), 0);
    root_.folder().makeFolder("Applications/B.app/Contents/Info.plist");
    root_.folder().makeFolder("Applications/C.app");
    root_.folder().writeFile("Applications/D.app", "no folder");
    EXPECT_THAT(pathsOf(user_), IsEmpty());
}

TEST_F(AnApplication, WithABinaryListIsFound) {
    add("/Applications/Tool.app");
    const std::string list = std::string("bplist00") + "\xD1\x01\x02" + "\x5F\x10\x12QCBundleIdentifier" + "\x51x" +
                             std::string("\x08\x0B\x20", 3) +
                             std::string("\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03", 16) +
                             std::string("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x22", 16);
    root_.folder().writeFile("Applications/Tool.app/Contents/Info.plist", list);
    EXPECT_NE(found("x"), "");
}

}  // namespace
}  // namespace ksw::facts
