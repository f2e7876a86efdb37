#include "platform/host/type_identifier.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>

#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

class AFilesType : public testing::Test {
protected:
    std::string_view typeOfFolder(const std::string& name) const {
        return *typeIdentifier(folder_.makeFolder(name));
    }

    test::TempFolder folder_;
};

TEST_F(AFilesType, TellsTheBundlesApart) {
    EXPECT_EQ(typeOfFolder("My.app"), "com.velmont.type.application");
    EXPECT_EQ(typeOfFolder("My.bundle"), "com.velmont.type.bundle");
    for (const char* name : {"My.app", "My.bundle/"}) {
        EXPECT_TRUE(conformsToBundle(*typeIdentifier(folder_.at(name)))) << name;
    }
}

TEST_F(AFilesType, OfAnyOtherFolderIsNoBundle) {
    EXPECT_EQ(typeOfFolder("My"), "com.velmont.type.folder");
    EXPECT_EQ(typeOfFolder("My.App"), "com.velmont.type.folder");
    EXPECT_EQ(typeOfFolder(".app"), "com.velmont.type.folder");
    EXPECT_EQ(*typeIdentifier("/"), "com.velmont.type.folder");
    EXPECT_FALSE(conformsToBundle("com.velmont.type.folder"));
}

TEST_F(AFilesType, OfAFileIsNoBundleWhateverItsName) {
    EXPECT_EQ(*typeIdentifier(folder_.writeFile("My.app", "")), "com.velmont.type.file");
    EXPECT_EQ(*typeIdentifier("/dev/null"), "com.velmont.type.special");
    EXPECT_FALSE(conformsToBundle("com.velmont.type.file"));
    EXPECT_FALSE(conformsToBundle("com.velmont.type.special"));
    EXPECT_FALSE(conformsToBundle(""));
}

TEST_F(AFilesType, IsThatOfWhatALinkLeadsToUnderTheLinksName) {
    folder_.makeFolder("My");
    ASSERT_EQ(::symlink("My", folder_.at("Link.app").c_str()), 0);
    EXPECT_EQ(*typeIdentifier(folder_.at("Link.app")), "com.velmont.type.application");
}

TEST_F(AFilesType, IsAnErrorWhenThereIsNoFile) {
    const Result<std::string_view> type = typeIdentifier(folder_.at("nothing.app"));
    ASSERT_FALSE(type.ok());
    EXPECT_EQ(type.error().domain(), kPosixErrorDomain);
    EXPECT_EQ(type.error().code(), ENOENT);
}

}  // namespace
}  // namespace ksw::host
