// Which bundle a running process comes from, and which URLs are those of bundles.

#include <gtest/gtest.h>

#include <kestrelwood/KSWFunctions.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/support/child_program.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::test {
namespace {

/// A folder with programs, each a copy of cat.
class AProgram : public testing::Test {
protected:
    std::string program(const std::string& name) const {
        std::ifstream cat("/bin/cat", std::ifstream::binary);
        std::string path = folder_.writeFile(name, std::string(std::istreambuf_iterator<char>(cat), {}));
        EXPECT_EQ(::chmod(path.c_str(), 0755), 0);
        return path;
    }

    TempFolder folder_;
};

TEST_F(AProgram, OfABundleHasThat) {
    for (const std::string bundle : {"My App.app", "My Suite.bundle"}) {
        const ChildCat cat(program(bundle + "/Contents/Linux/my"));
        std::optional<Error> error;
        const std::optional<URL> url = BundleURLForAuditToken(cat.token(), &error);
        EXPECT_EQ(url, URL::fileURL(folder_.at(bundle), PathKind::Directory));
        EXPECT_TRUE(QCURLConformsToBundle(url));
        EXPECT_EQ(error, std::nullopt);
    }
}

TEST_F(AProgram, OutsideOfAnyBundleHasItsOwnURL) {
    const std::string path = program("tool");
    const ChildCat cat(path);
    const std::optional<URL> url = BundleURLForAuditToken(cat.token());
    EXPECT_EQ(url, URL::fileURL(path));
    EXPECT_FALSE(QCURLConformsToBundle(url));
}

TEST_F(AProgram, BesideTheMainExecutableHasItsOwnURL) {
    for (const char* name :
         {"My.app/Contents/tool", "My.app/tool", "My.app/Contents/Linux/more/tool", "My/Contents/Linux/tool"}) {
        const std::string path = program(name);
        const ChildCat cat(path);
        EXPECT_EQ(BundleURLForAuditToken(cat.token()), URL::fileURL(path)) << name;
    }
}

TEST_F(AProgram, CannotSayThatItRunsOutOfAnImage) {
    const std::string path = program(".mount_Tool/tool");
    const std::string image = folder_.writeFile("Tool.AppImage", "");
    const ChildCat cat(path, {"APPIMAGE=" + image});
    EXPECT_EQ(BundleURLForAuditToken(cat.token()), URL::fileURL(path));
}

TEST_F(AProgram, ThatHasEndedHasNone) {
    ChildCat cat(program("tool"));
    const AuditToken token = cat.token();
    cat.end();
    std::optional<Error> error;
    EXPECT_EQ(BundleURLForAuditToken(token, &error), std::nullopt);
    EXPECT_EQ(error, Error(kStatusErrorDomain, -70030));
    EXPECT_EQ(BundleURLForAuditToken(token), std::nullopt);
}

TEST_F(AProgram, IsNotTakenForALaterOneWithItsNumber) {
    const ChildCat cat(program("tool"));
    AuditToken token = cat.token();
    token.words[7] ^= 1U;
    std::optional<Error> error;
    EXPECT_EQ(BundleURLForAuditToken(token, &error), std::nullopt);
    EXPECT_EQ(error, Error(kStatusErrorDomain, -70030));
}

TEST_F(AProgram, WhoseFileWasDeletedHasNone) {
    const std::string path = program("tool");
    const ChildCat cat(path);
    std::filesystem::remove(path);
    std::optional<Error> error;
    EXPECT_EQ(BundleURLForAuditToken(cat.token(), &error), std::nullopt);
    EXPECT_EQ(error, Error(kStatusErrorDomain, -70032));
}

TEST_F(AProgram, ThatMayNotBeLookedAtHasNone) {
    const ChildCat cat(program("tool"));
    const AuditToken token = cat.token();
    SysFaults faults;
    faults.failAll(host::sys::Call::Open, EACCES);
    std::optional<Error> error;
    EXPECT_EQ(BundleURLForAuditToken(token, &error), std::nullopt);
    EXPECT_EQ(error, Error(kStatusErrorDomain, -70002));
}

TEST(AURL, IsABundlesByItsName) {
    const TempFolder folder;
    for (const char* name : {"My.app", "My.bundle"}) {
        EXPECT_TRUE(QCURLConformsToBundle(URL::fileURL(folder.makeFolder(name)))) << name;
        EXPECT_TRUE(QCURLConformsToBundle(URL::fileURL(folder.at(name), PathKind::Directory))) << name;
    }
}

TEST(AURL, IsNoBundlesWithoutAFolder) {
    const TempFolder folder;
    EXPECT_FALSE(QCURLConformsToBundle(std::nullopt));
    EXPECT_FALSE(QCURLConformsToBundle(URL::fileURL(folder.path())));
    EXPECT_FALSE(QCURLConformsToBundle(URL::fileURL(folder.at("nothing.app"))));
    EXPECT_FALSE(QCURLConformsToBundle(URL::fileURL(folder.writeFile("file.app", ""))));
    EXPECT_FALSE(QCURLConformsToBundle(URL::fromString("https://example.com" + folder.makeFolder("My.app"))));
    EXPECT_FALSE(QCURLConformsToBundle(URL::fromString("")));
}

}  // namespace
}  // namespace ksw::test
