#include "platform/host/user_folders.h"

#include <gtest/gtest.h>

#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

class TheFoldersOfAUser : public testing::Test {
protected:
    test::TempFolder root_;
    test::ScopedVariable rootVariable_{"KESTRELWOOD_ROOT", root_.path()};
    test::ScopedVariable home_{"HOME", "/home/user"};
    test::ScopedVariable data_{"XDG_DATA_HOME", std::nullopt};
    test::ScopedVariable state_{"XDG_STATE_HOME", std::nullopt};
    test::ScopedVariable config_{"XDG_CONFIG_HOME", std::nullopt};
};

TEST_F(TheFoldersOfAUser, LieInTheHomeBelowTheHostRoot) {
    EXPECT_EQ(userDataFolder(), root_.at("home/user/.local/share"));
    EXPECT_EQ(userStateFolder(), root_.at("home/user/.local/state"));
    EXPECT_EQ(userConfigFolder(), root_.at("home/user/.config"));
}

TEST_F(TheFoldersOfAUser, LieWhereTheEnvironmentSays) {
    const test::ScopedVariable data("XDG_DATA_HOME", "/data");
    const test::ScopedVariable state("XDG_STATE_HOME", root_.at("state"));
    EXPECT_EQ(userDataFolder(), root_.at("data"));
    EXPECT_EQ(userStateFolder(), root_.at("state"));
}

TEST_F(TheFoldersOfAUser, LieInTheHomeWhenTheEnvironmentNamesNoAbsolutePath) {
    const test::ScopedVariable data("XDG_DATA_HOME", "data");
    EXPECT_EQ(userDataFolder(), root_.at("home/user/.local/share"));
}

}  // namespace
}  // namespace ksw::host
