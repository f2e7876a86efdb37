#include "platform/host/host_root.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <unistd.h>

#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

using test::ScopedVariable;

const std::string kOwnUid = std::to_string(::geteuid());

TEST(WithoutAHostRoot, PathsAreTheMachinesOwn) {
    const ScopedVariable root("KESTRELWOOD_ROOT", std::nullopt);
    EXPECT_EQ(hostPath("/etc/x"), "/etc/x");
    EXPECT_EQ(hostRootOwner(), 0U);
    EXPECT_EQ(systemServicePath("a"), "/run/kestrelwood/a");
    EXPECT_EQ(userServicePath(501, "a"), "/run/user/501/kestrelwood/a");
}

TEST(AnEmptyHostRoot, IsNone) {
    const ScopedVariable root("KESTRELWOOD_ROOT", "");
    EXPECT_EQ(hostPath("/etc/x"), "/etc/x");
}

class WithAHostRoot : public testing::Test {
protected:
    test::TempFolder folder_;
    ScopedVariable root_{"KESTRELWOOD_ROOT", folder_.path() + "/"};
    ScopedVariable runtime_{"XDG_RUNTIME_DIR", std::nullopt};
};

TEST_F(WithAHostRoot, EveryPathLiesBelowIt) {
    EXPECT_EQ(hostPath("/etc/x"), folder_.at("etc/x"));
    EXPECT_EQ(systemServicePath("a"), folder_.at("run/kestrelwood/a"));
    EXPECT_EQ(userServicePath(501, "a"), folder_.at("run/user/501/kestrelwood/a"));
    EXPECT_EQ(sessionServicePath("a"), folder_.at("run/user/" + kOwnUid + "/kestrelwood/a"));
}

TEST_F(WithAHostRoot, ServicesRunAsItsOwner) {
    EXPECT_EQ(hostRootOwner(), ::geteuid());
}

TEST_F(WithAHostRoot, ASessionsFolderLiesBelowItToo) {
    const ScopedVariable runtime("XDG_RUNTIME_DIR", "/run/user/7");
    EXPECT_EQ(sessionServicePath("a"), folder_.at("run/user/7/kestrelwood/a"));
}

TEST_F(WithAHostRoot, ASessionsFolderThatIsNamedFromOutsideIsFound) {
    const ScopedVariable runtime("XDG_RUNTIME_DIR", folder_.at("session"));
    EXPECT_EQ(sessionServicePath("a"), folder_.at("session/kestrelwood/a"));
}

TEST_F(WithAHostRoot, LinksInItsOwnPathAreResolved) {
    std::filesystem::create_symlink(folder_.makeFolder("real"), folder_.at("link"));
    const ScopedVariable root("KESTRELWOOD_ROOT", folder_.at("link"));
    EXPECT_EQ(hostPath("/x"), folder_.at("real/x"));
}

TEST_F(WithAHostRoot, ThatDoesNotExistNobodyPassesForItsOwner) {
    const ScopedVariable root("KESTRELWOOD_ROOT", folder_.at("none"));
    EXPECT_EQ(hostRootOwner(), kNoUser);
}

TEST(ASessionsFolder, IsNamedByTheEnvironmentWhenThatIsAbsolute) {
    const ScopedVariable root("KESTRELWOOD_ROOT", std::nullopt);
    {
        const ScopedVariable runtime("XDG_RUNTIME_DIR", "/somewhere");
        EXPECT_EQ(sessionServicePath("a"), "/somewhere/kestrelwood/a");
    }
    const ScopedVariable runtime("XDG_RUNTIME_DIR", "relative");
    EXPECT_EQ(sessionServicePath("a"), "/run/user/" + kOwnUid + "/kestrelwood/a");
}

TEST(AServiceName, IsOneFileNameOfPlainCharacters) {
    EXPECT_TRUE(isServiceName("com.velmont.kestrelwood.registrar"));
    EXPECT_TRUE(isServiceName(std::string(200, 'a')));
    EXPECT_FALSE(isServiceName(std::string(201, 'a')));
    for (const char* name : {"", ".", "..", ".hidden", "a/b", "a b", "caf\xc3\xa9", "a\n"}) {
        EXPECT_FALSE(isServiceName(name)) << name;
    }
}

}  // namespace
}  // namespace ksw::host
