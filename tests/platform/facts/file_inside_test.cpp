// Which files lie in a bundle, and which application a path leads into.

#include "platform/facts/file_inside.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <utility>

#include "platform/host/file_facts.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::facts {
namespace {

class AFileInside : public testing::Test {
protected:
    AFileInside() {
        folder.writeFile("A.app/Contents/Linux/A", "");
        folder.writeFile("A.app.old/x", "");
        folder.writeFile("B.app/Contents/Linux/B", "");
        std::filesystem::create_directory_symlink("Linux", folder.at("A.app/Contents/alias"));
        std::filesystem::create_directory_symlink("../../B.app", folder.at("A.app/Contents/stray"));
        std::filesystem::create_directory_symlink(folder.at("A.app/Contents/Linux"),
                                                  folder.at("A.app/Contents/far"));
        std::filesystem::create_directory_symlink("A.app", folder.at("Link.app"));
    }
    std::string inside(const std::string& path, const std::string& bundle = "A.app") const {
        const auto file = fileInside(URL::fileURL(folder.at(bundle)), path);
        return file ? file->path().substr(folder.path().size()) : "";
    }
    std::string around(const std::string& path) const {
        const auto application = applicationAround(folder.at(path));
        return application ? application->path().substr(folder.path().size()) : "";
    }
    test::TempFolder folder;
};

TEST_F(AFileInside, IsFoundByItsRelativePath) {
    EXPECT_EQ(inside("Contents/Linux/A"), "/A.app/Contents/Linux/A");
    EXPECT_EQ(inside("Contents/alias/A"), "/A.app/Contents/alias/A");
    EXPECT_EQ(inside("Contents/missing/too"), "/A.app/Contents/missing/too");
    EXPECT_EQ(inside("Contents/./Linux/../Linux/A"), "/A.app/Contents/Linux/A");
    EXPECT_EQ(inside("..."), "/A.app/...");
    EXPECT_EQ(inside("Contents/Linux/A", "Link.app"), "/Link.app/Contents/Linux/A");
}

TEST_F(AFileInside, IsNoneWhenItsPathLeadsOutOrNowhere) {
    for (const char* path : {"", ".", "..", "./", "Contents/..", "../A.app.old/x", "../B.app", "../../etc/passwd",
                             "Contents/../../B.app", "/etc/passwd", "../A.app.old/missing"}) {
        EXPECT_EQ(inside(path), "") << path;
    }
}

TEST_F(AFileInside, IsNoneWhenItsPathIsLongerThanAny) {
    std::string path = "Contents/Linux/A";
    path.insert(0, 4'095 - path.size(), 'x');
    EXPECT_NE(inside(path), "");
    EXPECT_EQ(inside("x" + path), "");
}

TEST_F(AFileInside, IsNoneWhenALinkLeadsOut) {
    EXPECT_EQ(inside("Contents/stray"), "");
    EXPECT_EQ(inside("Contents/stray/Contents/Linux/B"), "");
    EXPECT_EQ(inside("Contents/stray/missing"), "") << "not there yet";
    EXPECT_EQ(inside("Contents/stray/../missing"), "");
    EXPECT_EQ(inside("Contents/far/A"), "") << "a copy of the bundle would lead there too";
}

TEST_F(AFileInside, IsToldWithoutTheKernelsHelp) {
    for (const int error : {ENOSYS, EPERM}) {
        for (const auto& [path, expected] :
             {std::pair("Contents/Linux/A", "/A.app/Contents/Linux/A"),
              std::pair("Contents/alias/A", "/A.app/Contents/alias/A"), std::pair("missing", "/A.app/missing"),
              std::pair("Contents/stray", ""), std::pair("Contents/stray/Contents/Linux/B", "")}) {
            test::SysFaults faults;
            faults.failNth(host::sys::Call::Open, 2, error);
            EXPECT_EQ(inside(path), expected) << path;
        }
    }
}

TEST_F(AFileInside, IsReadAsItWasFound) {
    const auto read = [](const FoundFile& file) { return host::readFile(file.readingURL.path(), 100); };
    const URL bundle = URL::fileURL(folder.at("A.app"));
    folder.writeFile("A.app/Contents/note", "inside");
    const auto note = findInside(bundle, "Contents/note");
    const auto missing = findInside(bundle, "Contents/later");
    std::filesystem::rename(folder.at("A.app/Contents/note"), folder.at("A.app/Contents/moved"));
    std::filesystem::create_symlink(folder.writeFile("secret", "outside"), folder.at("A.app/Contents/note"));
    std::filesystem::create_symlink(folder.at("secret"), folder.at("A.app/Contents/later"));
    ASSERT_TRUE(note && missing);
    EXPECT_EQ(*read(*note), Data({'i', 'n', 's', 'i', 'd', 'e'}));
    EXPECT_FALSE(read(*missing)) << "was not there when it was found to be inside";
}

TEST_F(AFileInside, IsNoneWhenTheKernelWouldComeToAnother) {
    EXPECT_EQ(inside("Contents/stray/../Linux/A"), "") << "up from where the link leads";
    EXPECT_EQ(inside("Contents/missing/../Linux/A"), "") << "nothing yet, and anything later";
}

TEST_F(AFileInside, MayLieInABundleThatIsNotThere) {
    EXPECT_EQ(inside("Contents/x", "Missing.app"), "/Missing.app/Contents/x");
    EXPECT_EQ(inside("../x", "Missing.app"), "");
}

TEST_F(AFileInside, MayLieInABundleWhosePathHasDots) {
    EXPECT_EQ(inside("Contents/Linux/A", "./B.app/.././A.app"), "/A.app/Contents/Linux/A");
    EXPECT_EQ(inside("../B.app", "./A.app"), "");
    EXPECT_EQ(inside("Linux/B", "A.app/Contents/stray/../A.app/Contents"), "") << "the kernel comes to another";
    EXPECT_EQ(inside("x", "Missing.app/../A.app"), "") << "the kernel comes to none";
}

TEST_F(AFileInside, IsNoneInWhatIsNoPlace) {
    EXPECT_EQ(fileInside(*URL::fromString("https://example.com/A.app"), "x"), std::nullopt);
    EXPECT_EQ(fileInside(URL::fileURL("A.app"), "x"), std::nullopt);
}

TEST_F(AFileInside, OfAnItemIsInItsContainerWhenItsURLIsRelative) {
    const URL container = URL::fileURL(folder.at("A.app"));
    EXPECT_EQ(fileOfItem(URL::fileURL("Contents/Linux/A"), container)->path(), folder.at("A.app/Contents/Linux/A"));
    EXPECT_EQ(fileOfItem(URL::fileURL("../B.app"), container), std::nullopt);
    EXPECT_EQ(fileOfItem(URL::fileURL("/etc/passwd"), container), URL::fileURL("/etc/passwd"));
    EXPECT_EQ(fileOfItem(URL::fileURL("x"), std::nullopt), URL::fileURL("x"));
}

TEST_F(AFileInside, HasTheOutermostApplicationAround) {
    EXPECT_EQ(around("A.app"), "/A.app");
    EXPECT_EQ(around("A.app/"), "/A.app");
    EXPECT_EQ(around("A.app/Contents/Linux/A"), "/A.app");
    EXPECT_EQ(around("A.app/Contents/missing"), "/A.app");
    EXPECT_EQ(around("Link.app/Contents/Linux/A"), "/Link.app");
    EXPECT_EQ(around("A.app.old/x"), "");
}

TEST_F(AFileInside, HasNoApplicationAroundThatItsPathLeavesAgain) {
    EXPECT_EQ(around("A.app/../B.app/Contents/Linux/B"), "");
    EXPECT_EQ(around("A.app/Contents/stray"), "");
    EXPECT_EQ(around("A.app/.."), "");
}

}  // namespace
}  // namespace ksw::facts
