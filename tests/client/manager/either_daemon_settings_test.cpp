// One suite of requests about settings and switches, against a script and against the real daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWManager.h>

#include "platform/host/log_capture.h"
#include "tests/client/manager/settings_script.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

enum class Kind { Script, Real };

class SettingsOfEitherDaemon : public ::testing::TestWithParam<Kind> {
protected:
    SettingsOfEitherDaemon() {
        // The process's own manager may have been left with the connection of an earlier test.
        KSWManager::shared().UIDs();
        if (GetParam() == Kind::Script) {
            daemon_ = std::make_unique<SettingsScript>();
        } else {
            daemon_ = std::make_unique<RealDaemon>();
        }
        daemon_->start();
        manager_ = KSWManager::initWithMode(0);
        log_.clear();
    }

    std::shared_ptr<KSWUserSettings> fetched() { return manager_->userSettingsForUID(::getuid()); }
    std::vector<std::string> errors() const { return log_.at(host::LogLevel::Error); }

    std::unique_ptr<AnyDaemon> daemon_;
    std::shared_ptr<KSWManager> manager_;
    host::LogCapture log_;
};

INSTANTIATE_TEST_SUITE_P(Daemons, SettingsOfEitherDaemon, ::testing::Values(Kind::Script, Kind::Real),
                         [](const auto& kind) { return kind.param == Kind::Script ? "Script" : "Real"; });

TEST_P(SettingsOfEitherDaemon, AreNewForAUserWhoHasNone) {
    const auto settings = fetched();
    ASSERT_NE(settings, nullptr);
    EXPECT_EQ(settings->uid(), ::getuid());
    EXPECT_EQ(settings->generation(), 0);
    EXPECT_FALSE(settings->rosterMigrated());
    EXPECT_FALSE(settings->pellucidLoginItemsMigrated());
    EXPECT_FALSE(settings->almanacItemsImported());
}

TEST_P(SettingsOfEitherDaemon, AreTwoGenerationsFurtherWhenTheyAreSavedTwice) {
    const auto settings = fetched();
    settings->setRosterMigrated(true);
    EXPECT_TRUE(manager_->saveUserSettings(settings));
    settings->setAlmanacItemsImported(true);
    EXPECT_TRUE(manager_->saveUserSettings(settings));
    EXPECT_EQ(settings->generation(), 2);
    EXPECT_EQ(fetched()->generation(), 2);
    EXPECT_TRUE(fetched()->rosterMigrated());
    EXPECT_TRUE(fetched()->almanacItemsImported());
    EXPECT_FALSE(fetched()->pellucidLoginItemsMigrated());
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_P(SettingsOfEitherDaemon, ThatAreOutOfDateAreRefusedAndKeepTheirGeneration) {
    const auto first = fetched();
    const auto late = fetched();
    EXPECT_TRUE(manager_->saveUserSettings(first));
    late->setPellucidLoginItemsMigrated(true);
    EXPECT_FALSE(manager_->saveUserSettings(late));
    EXPECT_EQ(late->generation(), 0);
    EXPECT_FALSE(fetched()->pellucidLoginItemsMigrated());
    EXPECT_THAT(errors(), ElementsAre("-[KSWManager saveUserSettings:]_reply: error saving user settings: "
                                      "invalid record generation"));
}

TEST_P(SettingsOfEitherDaemon, SurviveADaemonThatStartsAnew) {
    const auto settings = fetched();
    settings->setRosterMigrated(true);
    EXPECT_TRUE(manager_->saveUserSettings(settings));
    daemon_->stop();
    daemon_->start();
    EXPECT_TRUE(fetched()->rosterMigrated());
    EXPECT_EQ(fetched()->generation(), 1);
}

TEST_P(SettingsOfEitherDaemon, HoldTheSwitchesOfSubsystems) {
    bool answer = true;
    EXPECT_EQ(KSWHaveEnablementStatusForSubsystemAndUID(KSWSubsystemGlimpse, ::getuid(), &answer), 0);
    EXPECT_FALSE(answer);
    EXPECT_EQ(KSWGetEnablementStatusForSubsystemAndUID(KSWSubsystemGlimpse, ::getuid(), &answer), -95);
    EXPECT_EQ(KSWSetEnablementStatusForSubsystemAndUID(KSWSubsystemGlimpse, ::getuid(), true), 0);
    EXPECT_TRUE(KSWGetEnablementStatusForSubsystem(KSWSubsystemGlimpse));
    EXPECT_EQ(KSWHaveEnablementStatusForSubsystemAndUID(KSWSubsystemGlimpse, ::getuid(), &answer), 0);
    EXPECT_TRUE(answer);
    EXPECT_EQ(fetched()->enablementStatusByIdentifier(), (Dictionary{{KSWSubsystemGlimpse, 1}}));
    EXPECT_TRUE(KSWResetEnablementStatusForSubsystemAndUID(KSWSubsystemGlimpse, ::getuid()));
    EXPECT_FALSE(KSWGetEnablementStatusForSubsystem(KSWSubsystemGlimpse));
    EXPECT_EQ(fetched()->generation(), 2);
}

TEST_P(SettingsOfEitherDaemon, OfTheSystemHoldTheSwitchOfCron) {
    KSWSetEnablementStatusForSubsystem(KSWSubsystemCron, true);
    EXPECT_TRUE(KSWGetEnablementStatusForSubsystem(KSWSubsystemCron));
    bool answer = true;
    EXPECT_EQ(KSWHaveEnablementStatusForSubsystemAndUID(KSWSubsystemCron, ::getuid(), &answer), 0);
    EXPECT_FALSE(answer);
}

TEST_P(SettingsOfEitherDaemon, AreBesideTheSwitchThatHasEveryNotificationPosted) {
    bool always = true;
    EXPECT_TRUE(manager_->getAlwaysPostNotifications(&always));
    EXPECT_FALSE(always);
    EXPECT_TRUE(manager_->setAlwaysPostNotifications(true));
    EXPECT_TRUE(manager_->getAlwaysPostNotifications(&always));
    EXPECT_TRUE(always);
}

}  // namespace
}  // namespace ksw::test
