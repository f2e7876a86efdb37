// A user's settings are fetched and saved.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/client/manager/answering.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kConnectionFailed =
    "KSWManager: connection failed, check entitlement of the calling process. Error: ";

std::shared_ptr<KSWUserSettings> stored() {
    auto settings = KSWUserSettings::init();
    settings->setAlmanacItemsImported(true);
    settings->setGeneration(7);
    settings->setEnablementStatusByIdentifier(Dictionary{{"KSWSubsystemGlimpse", true}});
    return settings;
}

class FetchedSettings : public ClientTest {
protected:
    std::shared_ptr<KSWUserSettings> answered(std::int64_t code, const std::shared_ptr<KSWUserSettings>& settings) {
        answer(daemon_, methods::kFetchUserSettings, seen_, code, settings);
        daemon_.start();
        return manager()->userSettingsForUID(501);
    }

    SeenBy<methods::kFetchUserSettings> seen_;
    ScriptedDaemon daemon_;
};

TEST_F(FetchedSettings, AreOfTheUserWhoWasAskedFor) {
    const auto settings = answered(0, stored());
    ASSERT_NE(settings, nullptr);
    EXPECT_EQ(settings->uid(), 501U);
    EXPECT_EQ(settings->generation(), 7);
    EXPECT_TRUE(settings->almanacItemsImported());
    EXPECT_FALSE(settings->rosterMigrated());
    EXPECT_EQ(settings->enablementStatusByIdentifier(), (Dictionary{{"KSWSubsystemGlimpse", true}}));
    EXPECT_EQ(std::get<0>(seen_.only()), 501U);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FetchedSettings, MayBeNoneThoughTheCodeSaysSuccess) {
    EXPECT_EQ(answered(0, nullptr), nullptr);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FetchedSettings, AreNoneWithAnyOtherCodeWhichIsLogged) {
    EXPECT_EQ(answered(-97, stored()), nullptr);
    EXPECT_THAT(errors(), ElementsAre("-[KSWManager userSettingsForUID:]_reply: error fetching settings: "
                                      "permission denied"));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.userSettingsForUID");
}

TEST_F(FetchedSettings, AreNoneWithoutADaemonWhichIsLoggedOnce) {
    EXPECT_EQ(manager()->userSettingsForUID(501), nullptr);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(kConnectionFailed)));
}

class SavedSettings : public ClientTest {
protected:
    bool savedWith(std::int64_t code) {
        answer(daemon_, methods::kSaveUserSettings, seen_, code);
        daemon_.start();
        return manager()->saveUserSettings(settings_);
    }

    SavedSettings() { settings_->setUid(501); }

    SeenBy<methods::kSaveUserSettings> seen_;
    ScriptedDaemon daemon_;
    std::shared_ptr<KSWUserSettings> settings_ = stored();
};

TEST_F(SavedSettings, ReachTheDaemonWithTheirOwnUser) {
    EXPECT_TRUE(savedWith(0));
    const auto [sent, uid] = seen_.only();
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(uid, 501U);
    EXPECT_EQ(sent->generation(), 7);
    EXPECT_TRUE(sent->almanacItemsImported());
    EXPECT_EQ(sent->uid(), 0U);
}

TEST_F(SavedSettings, HaveTheNextGeneration) {
    EXPECT_TRUE(savedWith(0));
    EXPECT_EQ(settings_->generation(), 8);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SavedSettings, CanBeSavedAgainWithoutBeingFetched) {
    const auto saver = manager();
    EXPECT_TRUE(savedWith(0));
    EXPECT_TRUE(saver->saveUserSettings(settings_));
    EXPECT_EQ(settings_->generation(), 9);
    EXPECT_EQ(std::get<0>(seen_.all().at(1))->generation(), 8);
}

TEST_F(SavedSettings, ThatAreOutOfDateKeepTheirGenerationAndAreLogged) {
    EXPECT_FALSE(savedWith(-94));
    EXPECT_EQ(settings_->generation(), 7);
    EXPECT_THAT(errors(), ElementsAre("-[KSWManager saveUserSettings:]_reply: error saving user settings: "
                                      "invalid record generation"));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.saveUserSettings");
}

TEST_F(SavedSettings, AreNotSavedByTheCodeThatOthersTakeForSuccess) {
    EXPECT_FALSE(savedWith(-93));
    EXPECT_EQ(settings_->generation(), 7);
}

TEST_F(SavedSettings, AreNotSavedWithoutADaemon) {
    EXPECT_FALSE(manager()->saveUserSettings(settings_));
    EXPECT_EQ(settings_->generation(), 7);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(kConnectionFailed)));
}

TEST_F(SavedSettings, MayBeNone) {
    settings_ = nullptr;
    EXPECT_TRUE(savedWith(0));
    EXPECT_EQ(seen_.only(), std::tuple(std::shared_ptr<KSWUserSettings>(), Uid{0}));
}

TEST_F(SavedSettings, AreNobodysConcernWithTheFeatureOff) {
    root_.setFeature("ControlAutomaticAppLaunch", false);
    EXPECT_EQ(manager()->userSettingsForUID(501), nullptr);
    EXPECT_FALSE(manager()->saveUserSettings(settings_));
    EXPECT_EQ(settings_->generation(), 7);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
}  // namespace ksw::test
