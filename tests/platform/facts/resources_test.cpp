#include "platform/facts/resources.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <sys/stat.h>

#include "platform/host/sys_call.h"
#include "tests/support/environment.h"
#include "tests/support/host_root.h"

namespace ksw::facts {
namespace {

class ResourcesOfAHost : public testing::Test {
protected:
    const test::TempFolder& folder() const { return root_.folder(); }

    test::HostRoot root_;
};

TEST_F(ResourcesOfAHost, AreFoundByTheIdentifierOfTheirBundle) {
    EXPECT_EQ(resourceFolder("com.velmont.quarrystone.Kestrelwood"),
              folder().at("usr/share/kestrelwood/Resources"));
    for (const char* other : {"", "com.velmont.quarrystone", "com.velmont.quarrystone.kestrelwood", "../"}) {
        EXPECT_EQ(resourceFolder(other), std::nullopt) << other;
    }
}

TEST_F(ResourcesOfAHost, AreFoundInABundlesDirectory) {
    EXPECT_EQ(resourceFolderAtPath("/opt/Some.bundle"), folder().at("opt/Some.bundle/Contents/Resources"));
}

TEST_F(ResourcesOfAHost, StandBelowTheMachinesOwnRootWithoutAnother) {
    const test::ScopedVariable none("KESTRELWOOD_ROOT", std::nullopt);
    EXPECT_EQ(resourceFolder(kFrameworkBundle), "/usr/share/kestrelwood/Resources");
    EXPECT_EQ(resourceFolderAtPath("/opt/Some.bundle"), "/opt/Some.bundle/Contents/Resources");
}

TEST_F(ResourcesOfAHost, HoldInternalContentWhereTheSubsystemsSwitchIs) {
    EXPECT_FALSE(hasInternalContent("com.velmont.kestrelwood"));
    folder().writeFile("usr/share/kestrelwood/internal/com.velmont.kestrelwood", "");
    EXPECT_TRUE(hasInternalContent("com.velmont.kestrelwood"));
    EXPECT_FALSE(hasInternalContent("com.velmont.other"));
}

TEST_F(ResourcesOfAHost, AreReadAsDictionariesUpToASize) {
    const std::string text = "<plist><dict><key>k</key><string>v</string></dict></plist>";
    folder().writeFile("table.plist", text);
    const auto read = readResource(folder().path(), "table", text.size());
    ASSERT_TRUE(read.ok());
    EXPECT_EQ(*read, (Dictionary{{"k", "v"}}));
    const auto longer = readResource(folder().path(), "table", text.size() - 1);
    ASSERT_FALSE(longer.ok());
    EXPECT_TRUE(host::sys::isErrno(longer.error(), EFBIG));
}

TEST_F(ResourcesOfAHost, AreNotReadWhenTheyAreNoDictionaries) {
    const auto readText = [&](const std::string& text) {
        folder().writeFile("table.plist", text);
        return readResource(folder().path(), "table", 1000);
    };
    EXPECT_EQ(readText("<plist><array/></plist>").error(), Error(FormatError::WrongType, "not a dictionary"));
    EXPECT_EQ(readText("").error().code(), static_cast<std::int64_t>(FormatError::Malformed));
    EXPECT_EQ(readText("bplist00").error().code(), static_cast<std::int64_t>(FormatError::Malformed));
}

TEST_F(ResourcesOfAHost, AreRegularFiles) {
    ASSERT_EQ(::mkfifo(folder().at("pipe.plist").c_str(), 0600), 0);
    folder().makeFolder("folder.plist");
    EXPECT_TRUE(host::sys::isErrno(readResource(folder().path(), "pipe", 10).error(), EINVAL));
    EXPECT_TRUE(host::sys::isErrno(readResource(folder().path(), "folder", 10).error(), EINVAL));
    EXPECT_TRUE(host::sys::isErrno(readResource(folder().path(), "absent", 10).error(), ENOENT));
}

}  // namespace
}  // namespace ksw::facts
