// What a manager is before it asks anything, whom it knows, and what its callers get when nobody answers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/host/activity.h"
#include "tests/client/manager/scripted_daemon.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr std::string_view kConnectionFailed =
    "KSWManager: connection failed, check entitlement of the calling process. Error: ";

class AManager : public ClientTest {};

TEST_F(AManager, OfModeZeroHasAConnectionToTheManagementDaemon) {
    ASSERT_NE(manager()->connection(), nullptr);
    EXPECT_EQ(manager()->connection()->serviceName(), "com.velmont.kestrelwood");
}

TEST_F(AManager, OfModeOneHasAConnectionToTheRoster) {
    const auto roster = KSWManager::initWithMode(1);
    ASSERT_NE(roster->connection(), nullptr);
    EXPECT_EQ(roster->connection()->serviceName(), "com.velmont.kestrelwood.roster");
}

TEST_F(AManager, OfAnyOtherModeHasNoConnection) {
    EXPECT_EQ(KSWManager::initWithMode(2)->connection(), nullptr);
    EXPECT_EQ(KSWManager::initWithMode(-1)->connection(), nullptr);
}

TEST_F(AManager, IsSharedAsOneObjectForEachMode) {
    EXPECT_EQ(&KSWManager::shared(), &KSWManager::shared());
    EXPECT_EQ(&KSWManager::sharedRosterManager(), &KSWManager::sharedRosterManager());
    EXPECT_NE(&KSWManager::shared(), &KSWManager::sharedRosterManager());
}

TEST_F(AManager, DialsNobodyWhenItIsMade) {
    ScriptedDaemon daemon;
    daemon.start();
    const auto made = manager();
    EXPECT_THAT(errors(), IsEmpty());
}

class AManagerWithItsFeatureOff : public ClientTest {
protected:
    AManagerWithItsFeatureOff() { root_.setFeature("ControlAutomaticAppLaunch", false); }
};

TEST_F(AManagerWithItsFeatureOff, HasNoConnectionAndAnswersEveryRequestWithNothing) {
    const auto inert = manager();
    EXPECT_EQ(inert->connection(), nullptr);
    EXPECT_THAT(inert->userIdentifiersAndUIDs(), IsEmpty());
    EXPECT_THAT(inert->UIDs(), IsEmpty());
    EXPECT_FALSE(inert->registerLaunchItemWithBundleURL(app_, 8, job_, configuration_, 501));
    EXPECT_FALSE(inert->registerLaunchItemWithAuditToken(AuditToken{}, 8, job_, configuration_));
    EXPECT_FALSE(inert->unregisterLaunchItemWithBundleURL(app_, 8, job_, 501));
    EXPECT_FALSE(inert->unregisterLaunchItemWithAuditToken(AuditToken{}, 8, job_));
    EXPECT_EQ(inert->invalidateLaunchItemWithBundleURL(app_, 8, job_, configuration_, 501), nullptr);
    EXPECT_FALSE(inert->canLaunchItemWithAppURL(app_, 8, job_, configuration_));
    std::int64_t disposition = 77;
    EXPECT_FALSE(inert->getItemDisposition(&disposition, app_, 8, job_, configuration_, 501));
    EXPECT_FALSE(inert->getEffectiveDisposition(&disposition, nullptr, app_, 8, job_, configuration_, 501));
    EXPECT_EQ(disposition, 77);
    EXPECT_EQ(inert->fetchItemWithAppURL(app_, 8, job_, configuration_, 501), nullptr);
    EXPECT_EQ(inert->registerItem(nullptr, app_, 8, job_, configuration_, 501), 0);
    EXPECT_EQ(inert->unregisterItemWithBundleURL(app_, 8, job_, 501), 0);
}

TEST_F(AManagerWithItsFeatureOff, OfTheRosterHasNoConnectionEither) {
    EXPECT_EQ(KSWManager::initWithMode(1)->connection(), nullptr);
}

TEST_F(AManagerWithItsFeatureOff, LogsNoConnectionFailure) {
    manager()->userIdentifiersAndUIDs();
    manager()->registerItem(nullptr, app_, 8, job_, configuration_, 501);
    EXPECT_THAT(errors(), IsEmpty());
}

class UIDs : public ClientTest {
protected:
    std::vector<Uid> of(Dictionary users) {
        ScriptedDaemon daemon;
        daemon.on(methods::kFetchUserIdentifiersAndUIDs,
                  [users](const ipc::RequestContext&, ipc::Responder<std::optional<Dictionary>> responder) {
                      responder.answer(users);
                  });
        daemon.start();
        return manager()->UIDs();
    }
};

TEST_F(UIDs, BeginWithTheSystemsAndListTheUsersAscending) {
    EXPECT_THAT(of({{"a", 502}, {"b", 501}, {"c", 4294967294}}), ElementsAre(4294967294U, 501U, 502U));
}

TEST_F(UIDs, BeginWithTheSystemsEvenWhenTheDaemonDidNotNameIt) {
    EXPECT_THAT(of({{"a", 501}}), ElementsAre(4294967294U, 501U));
}

TEST_F(UIDs, LeaveOutBothReservedNumbersInEitherForm) {
    EXPECT_THAT(of({{"a", -1}, {"b", -2}, {"c", 4294967295}, {"d", 501}}), ElementsAre(4294967294U, 501U));
}

TEST_F(UIDs, AreNoneWithoutUsers) {
    EXPECT_THAT(of({}), IsEmpty());
    EXPECT_THAT(of({{"system", 4294967294}}), IsEmpty());
}

TEST_F(UIDs, PassOverWhatIsNoNumber) {
    EXPECT_THAT(of({{"a", "501"}, {"b", 502}}), ElementsAre(4294967294U, 502U));
}

class AManagerWithoutADaemon : public ClientTest {
protected:
    /// Expects one line since the last call, which says that the connection failed, in this activity.
    void expectOneFailureLine(const std::string& activity) {
        const auto lines = log_.lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].activity, "KSWManager." + activity);
        EXPECT_EQ(lines[0].level, host::LogLevel::Error);
        EXPECT_EQ(lines[0].category, "main");
        EXPECT_THAT(lines[0].publicForm, StartsWith(std::string(kConnectionFailed)));
        EXPECT_THAT(lines[0].publicForm, HasSubstr("KSWConnectionErrorDomain"));
        log_.clear();
    }
};

TEST_F(AManagerWithoutADaemon, AnswersEmptyListsAndLogsOneLineEach) {
    const auto alone = manager();
    EXPECT_THAT(alone->userIdentifiersAndUIDs(), IsEmpty());
    expectOneFailureLine("getuserIdentifiersAndUIDs");
    EXPECT_THAT(alone->UIDs(), IsEmpty());
    expectOneFailureLine("getUIDs");
}

TEST_F(AManagerWithoutADaemon, AnswersFalseToRegistrationsAndLogsOneLineEach) {
    const auto alone = manager();
    EXPECT_FALSE(alone->registerLaunchItemWithBundleURL(app_, 8, job_, configuration_, 501));
    expectOneFailureLine("registerLaunchItemWithBundleURL");
    EXPECT_FALSE(alone->registerLaunchItemWithAuditToken(AuditToken{}, 8, job_, configuration_));
    expectOneFailureLine("registerLaunchItemWithAuditToken");
    EXPECT_FALSE(alone->unregisterLaunchItemWithBundleURL(app_, 8, job_, 501));
    expectOneFailureLine("unregisterLaunchItemWithBundleURL");
    EXPECT_FALSE(alone->unregisterLaunchItemWithAuditToken(AuditToken{}, 8, job_));
    expectOneFailureLine("unregisterLaunchItemWithAuditToken");
}

TEST_F(AManagerWithoutADaemon, HasNoItemAfterAnInvalidation) {
    EXPECT_EQ(manager()->invalidateLaunchItemWithBundleURL(app_, 8, job_, configuration_, 501), nullptr);
    expectOneFailureLine("invalidateLaunchItem");
}

TEST_F(AManagerWithoutADaemon, StaysInTheActivityThatItsCallerIsIn) {
    const host::ActivityScope scope("caller");
    manager()->UIDs();
    EXPECT_EQ(log_.lines().at(0).activity, "caller");
}

TEST_F(AManagerWithoutADaemon, FindsTheDaemonThatIsStartedLater) {
    const auto patient = manager();
    EXPECT_THAT(patient->UIDs(), IsEmpty());
    ScriptedDaemon daemon;
    daemon.on(methods::kFetchUserIdentifiersAndUIDs,
              [](const ipc::RequestContext&, ipc::Responder<std::optional<Dictionary>> responder) {
                  responder.answer(Dictionary{{"a", 501}});
              });
    daemon.start();
    EXPECT_THAT(patient->UIDs(), ElementsAre(4294967294U, 501U));
}

TEST_F(AManager, FindsARestartedDaemonWithItsNextRequest) {
    const auto handler = [](const ipc::RequestContext&, ipc::Responder<std::optional<Dictionary>> responder) {
        responder.answer(Dictionary{{"a", 501}});
    };
    const auto steady = manager();
    {
        ScriptedDaemon first;
        first.on(methods::kFetchUserIdentifiersAndUIDs, handler);
        first.start();
        EXPECT_THAT(steady->UIDs(), ElementsAre(4294967294U, 501U));
    }
    EXPECT_THAT(steady->UIDs(), IsEmpty());
    ScriptedDaemon second;
    second.on(methods::kFetchUserIdentifiersAndUIDs, handler);
    second.start();
    EXPECT_THAT(steady->UIDs(), ElementsAre(4294967294U, 501U));
}

}  // namespace
}  // namespace ksw::test
