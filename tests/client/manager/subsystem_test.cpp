// The switches of other parts of the system, in C++ and in C.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/ksw_subsystem.h>

#include "tests/client/manager/answering.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kSeeDaemonsLog =
    "_reply: connection failed, check logs from kestrelwoodd for details. Error: ";
constexpr const char* kCheckEntitlement =
    "_reply: connection failed, check entitlement of the calling process. Error: ";

class ASwitch : public ClientTest {
protected:
    ASwitch() {
        // The process's own manager may have been left with the connection of an earlier test.
        KSWManager::shared().UIDs();
        log_.clear();
    }

    void serve(std::int64_t code, bool value) {
        answer(daemon_, methods::kGetHaveEnablementStatus, have_, code, value);
        answer(daemon_, methods::kGetEnablementStatus, got_, code, value);
        answer(daemon_, methods::kSetEnablementStatus, set_, code);
        answer(daemon_, methods::kResetEnablementStatus, reset_, code);
        daemon_.start();
    }
    std::vector<std::string> debugLines() const { return log_.at(host::LogLevel::Debug); }

    /// What an error line says, and that its text of the code is private.
    void expectServiceError(const std::string& name) {
        const auto lines = toldLines(log_);
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].level, host::LogLevel::Error);
        EXPECT_EQ(lines[0].fullForm, name + ": service error: record not found (-95)");
        EXPECT_EQ(lines[0].publicForm, name + ": service error: <private> (-95)");
    }

    SeenBy<methods::kGetHaveEnablementStatus> have_;
    SeenBy<methods::kGetEnablementStatus> got_;
    SeenBy<methods::kSetEnablementStatus> set_;
    SeenBy<methods::kResetEnablementStatus> reset_;
    ScriptedDaemon daemon_;
    const std::tuple<std::optional<std::string>, Uid> asked_{"KSWSubsystemCron", 7};
};

TEST_F(ASwitch, BelongsToTheSystemTheCallingUserOrNobody) {
    EXPECT_EQ(UIDForSubsystem(KSWSubsystemCron), 4294967294U);
    EXPECT_EQ(UIDForSubsystem(KSWSubsystemGlimpse), ::getuid());
    EXPECT_EQ(UIDForSubsystem("KSWSubsystemOther"), 4294967295U);
    EXPECT_EQ(UIDForSubsystem(std::nullopt), 4294967295U);
    EXPECT_EQ(UIDForSubsystem(std::string("KSWSubsystem") + "Cron"), 4294967294U);
}

TEST_F(ASwitch, HasTheSameNamesInC) {
    EXPECT_STREQ(ksw_subsystem_cron, "KSWSubsystemCron");
    EXPECT_STREQ(ksw_subsystem_glimpse, "KSWSubsystemGlimpse");
    EXPECT_EQ(KSWSubsystemCron, ksw_subsystem_cron);
    EXPECT_EQ(KSWSubsystemGlimpse, ksw_subsystem_glimpse);
}

TEST_F(ASwitch, IsAskedForUnderTheUserWhoIsGiven) {
    serve(0, true);
    bool answer = false;
    EXPECT_EQ(KSWHaveEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, &answer), 0);
    EXPECT_TRUE(answer);
    EXPECT_EQ(have_.only(), asked_);
    answer = false;
    EXPECT_EQ(KSWGetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, &answer), 0);
    EXPECT_TRUE(answer);
    EXPECT_EQ(got_.only(), asked_);
    EXPECT_THAT(debugLines(), ElementsAre("KSWHaveEnablementStatusForSubsystemAndUID: entered",
                                          "KSWGetEnablementStatusForSubsystemAndUID: entered"));
    EXPECT_THAT(toldLines(log_), IsEmpty());
    EXPECT_EQ(log_.lines().at(0).activity, "");
}

TEST_F(ASwitch, ThatIsNotKnownIsAskedForAsItIs) {
    serve(0, false);
    bool answer = true;
    EXPECT_EQ(KSWGetEnablementStatusForSubsystemAndUID("no such thing", kNoUser, &answer), 0);
    EXPECT_FALSE(answer);
    EXPECT_EQ(std::get<0>(got_.only()), "no such thing");
    EXPECT_EQ(std::get<1>(got_.only()), kNoUser);
}

TEST_F(ASwitch, ThatTheDaemonDoesNotTellLeavesTheAnswerAsItWas) {
    serve(-95, true);
    bool answer = false;
    EXPECT_EQ(KSWHaveEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, &answer), -95);
    EXPECT_FALSE(answer);
    expectServiceError("KSWHaveEnablementStatusForSubsystemAndUID");
    log_.clear();
    EXPECT_EQ(KSWGetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, &answer), -95);
    EXPECT_FALSE(answer);
    expectServiceError("KSWGetEnablementStatusForSubsystemAndUID");
}

TEST_F(ASwitch, WithoutAUserIsThatOfItsOwnUser) {
    serve(0, true);
    EXPECT_TRUE(KSWGetEnablementStatusForSubsystem(KSWSubsystemCron));
    EXPECT_EQ(std::get<1>(got_.only()), kEveryUser);
}

TEST_F(ASwitch, WithoutAUserIsOffWhenTheDaemonAnswersAnError) {
    serve(-1, true);
    EXPECT_FALSE(KSWGetEnablementStatusForSubsystem(KSWSubsystemGlimpse));
    EXPECT_EQ(std::get<1>(got_.only()), ::getuid());
}

TEST_F(ASwitch, IsSet) {
    serve(0, false);
    EXPECT_EQ(KSWSetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, true), 0);
    EXPECT_EQ(set_.only(), std::tuple_cat(std::tuple(true), asked_));
    EXPECT_THAT(debugLines(), ElementsAre("KSWSetEnablementStatusForSubsystemAndUID: entered"));
    EXPECT_THAT(toldLines(log_), IsEmpty());
    KSWSetEnablementStatusForSubsystem(KSWSubsystemCron, false);
    EXPECT_EQ(set_.all().at(1), std::tuple(false, std::optional<std::string>("KSWSubsystemCron"), kEveryUser));
}

TEST_F(ASwitch, ThatMayNotBeSetAnswersTheDaemonsCode) {
    serve(-95, false);
    EXPECT_EQ(KSWSetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, true), -95);
    expectServiceError("KSWSetEnablementStatusForSubsystemAndUID");
}

TEST_F(ASwitch, IsReset) {
    serve(0, false);
    EXPECT_TRUE(KSWResetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7));
    EXPECT_EQ(reset_.only(), asked_);
    EXPECT_THAT(debugLines(), ElementsAre("KSWResetEnablementStatusForSubsystemAndUID: entered"));
    EXPECT_THAT(toldLines(log_), IsEmpty());
}

TEST_F(ASwitch, ThatMayNotBeResetIsLoggedInTheCallbacksName) {
    serve(-95, false);
    EXPECT_FALSE(KSWResetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7));
    expectServiceError("KSWResetEnablementStatusForSubsystemAndUID_reply");
}

TEST_F(ASwitch, WithoutADaemonIsUnknownAndStillCountsAsSet) {
    bool answer = true;
    EXPECT_EQ(KSWHaveEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, &answer), -1);
    EXPECT_EQ(KSWGetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, &answer), -1);
    EXPECT_TRUE(answer);
    EXPECT_EQ(KSWSetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, true), 0);
    EXPECT_FALSE(KSWResetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7));
    EXPECT_FALSE(KSWGetEnablementStatusForSubsystem(KSWSubsystemCron));
}

TEST_F(ASwitch, WithoutADaemonIsLoggedInEachFunctionsOwnWords) {
    bool answer = true;
    KSWHaveEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, &answer);
    KSWGetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, &answer);
    KSWSetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7, true);
    KSWResetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 7);
    std::vector<std::string> texts = log_.at(host::LogLevel::Error);
    EXPECT_THAT(
        texts, ElementsAre(StartsWith(std::string("KSWHaveEnablementStatusForSubsystemAndUID") + kSeeDaemonsLog),
                           "KSWHaveEnablementStatusForSubsystemAndUID: service error: generic (-1)",
                           StartsWith(std::string("KSWGetEnablementStatusForSubsystemAndUID") + kCheckEntitlement),
                           "KSWGetEnablementStatusForSubsystemAndUID: service error: generic (-1)",
                           StartsWith(std::string("KSWSetEnablementStatusForSubsystemAndUID") + kSeeDaemonsLog),
                           StartsWith(std::string("KSWResetEnablementStatusForSubsystemAndUID") + kSeeDaemonsLog)));
}

TEST_F(ASwitch, InCKeepsTheConventionsOfEach) {
    serve(0, true);
    bool answer = false;
    EXPECT_EQ(ksw_have_enablement_status_for_subsystem_and_uid(ksw_subsystem_cron, 7, &answer), 0);
    EXPECT_TRUE(answer);
    answer = false;
    EXPECT_EQ(ksw_get_enablement_status_for_subsystem_and_uid(ksw_subsystem_cron, 7, &answer), 0);
    EXPECT_TRUE(answer);
    EXPECT_EQ(ksw_set_enablement_status_for_subsystem_and_uid(ksw_subsystem_cron, 7, true), 0);
    EXPECT_EQ(ksw_reset_enablement_status_for_subsystem_and_uid(ksw_subsystem_cron, 7), 1);
    EXPECT_EQ(have_.only(), asked_);
    EXPECT_EQ(got_.only(), asked_);
    EXPECT_EQ(set_.only(), std::tuple_cat(std::tuple(true), asked_));
    EXPECT_EQ(reset_.only(), asked_);
}

TEST_F(ASwitch, InCAnswersTheLowBitsOfTheCode) {
    serve(0x1'0000'0005, true);
    bool answer = false;
    EXPECT_EQ(ksw_have_enablement_status_for_subsystem_and_uid("a", 7, &answer), 5);
    EXPECT_EQ(ksw_get_enablement_status_for_subsystem_and_uid("a", 7, &answer), 5);
    EXPECT_EQ(ksw_set_enablement_status_for_subsystem_and_uid("a", 7, false), 5);
    EXPECT_EQ(ksw_reset_enablement_status_for_subsystem_and_uid("a", 7), 0);
    EXPECT_FALSE(answer);
}

TEST_F(ASwitch, InCWithoutATextIsAskedForWithoutOne) {
    serve(0, false);
    EXPECT_EQ(ksw_set_enablement_status_for_subsystem_and_uid(nullptr, 7, true), 0);
    EXPECT_EQ(std::get<1>(set_.only()), std::nullopt);
}

class TheNameOfASubsystem : public ClientTest {
protected:
    TheNameOfASubsystem() {
        root_.folder().writeFile("usr/share/kestrelwood/Resources/en/Localizable.plist",
                                 "<plist><dict><key>KSW_SUBSYSTEM_CRON</key><string>Jobs</string>"
                                 "<key>KSW_SUBSYSTEM_GLIMPSE</key><string>Previews</string></dict></plist>");
    }
};

TEST_F(TheNameOfASubsystem, StandsInTheTableOrIsItsKey) {
    EXPECT_EQ(KSWLocalizedNameForSubsystem(KSWSubsystemCron), "Jobs");
    EXPECT_EQ(KSWLocalizedNameForSubsystem(KSWSubsystemGlimpse), "Previews");
    EXPECT_EQ(KSWLocalizedNameForSubsystem("other"), "KSW_SUBSYSTEM_UNKNOWN");
    EXPECT_EQ(KSWLocalizedNameForSubsystem(std::nullopt), "KSW_SUBSYSTEM_UNKNOWN");
}

}  // namespace
}  // namespace ksw::test
