// What device management and the service manager tell the daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/client/manager/answering.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

const Error kBefore{"Before", 1};
const Dictionary kPayload{{"Rules", Array{Dictionary{{"RuleType", "Label"}}}}};
constexpr const char* kCheckEntitlement = ": connection failed, check entitlement of the calling process. Error: ";

class ManagedRequests : public ClientTest {
protected:
    /// The daemon's threads end before what they have written to.
    void TearDown() override { daemon_.stop(); }

    /// The only line at the debugging level, which is public as a whole.
    std::string debugLine() const {
        std::string text;
        for (const host::LogLine& line : log_.lines()) {
            if (line.level == host::LogLevel::Debug) {
                EXPECT_EQ(text, "");
                EXPECT_EQ(line.publicForm, line.fullForm);
                text = line.publicForm;
            }
        }
        return text;
    }

    ScriptedDaemon daemon_;
    std::optional<Error> error_ = kBefore;
};

class APayload : public ManagedRequests {
protected:
    SeenBy<methods::kMDMPayload> asked_;
    SeenBy<methods::kSetMDMPayload> set_;
};

TEST_F(APayload, IsTheOneUnderTheIdentifier) {
    answer(daemon_, methods::kMDMPayload, asked_, kPayload);
    daemon_.start();
    EXPECT_EQ(manager()->mdmPayloadForIdentifier("com.example.rules"), kPayload);
    EXPECT_EQ(std::get<0>(asked_.only()), "com.example.rules");
    EXPECT_EQ(debugLine(), "fetchMDMPayload: identifier=com.example.rules");
    EXPECT_THAT(log_.lines(), SizeIs(1));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.fetchMDMPayload");
}

TEST_F(APayload, IsAbsentWhenThereIsNone) {
    answer(daemon_, methods::kMDMPayload, asked_, std::nullopt);
    daemon_.start();
    EXPECT_EQ(manager()->mdmPayloadForIdentifier("com.example.rules"), std::nullopt);
    EXPECT_THAT(toldLines(log_), IsEmpty());
}

TEST_F(APayload, IsAbsentWithoutADaemon) {
    EXPECT_EQ(manager()->mdmPayloadForIdentifier("a"), std::nullopt);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(std::string("fetchMDMPayload") + kCheckEntitlement)));
}

TEST_F(APayload, IsSetWithItsIdentifierAndWhetherItTakesEffectAtOnce) {
    answer(daemon_, methods::kSetMDMPayload, set_, std::nullopt);
    daemon_.start();
    manager()->setMDMPayload(kPayload, "com.example.rules", true);
    EXPECT_EQ(set_.only(),
              std::tuple(std::optional(kPayload), std::optional<std::string>("com.example.rules"), true));
    EXPECT_EQ(debugLine(), "setMDMPayload: identifier=com.example.rules");
    EXPECT_THAT(toldLines(log_), IsEmpty());
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.setMDMPayload");
}

TEST_F(APayload, TakesNoEffectAtOnceUnlessItIsSaid) {
    answer(daemon_, methods::kSetMDMPayload, set_, std::nullopt);
    daemon_.start();
    manager()->setMDMPayload(kPayload, "com.example.rules");
    EXPECT_FALSE(std::get<2>(set_.only()));
}

TEST_F(APayload, ThatIsRefusedIsLogged) {
    const Error refusal = KSWErrorWithCode(-97);
    answer(daemon_, methods::kSetMDMPayload, set_, refusal);
    daemon_.start();
    manager()->setMDMPayload(std::nullopt, "a", false);
    EXPECT_THAT(errors(), ElementsAre("setMDMPayload: error: " + refusal.description()));
    EXPECT_EQ(std::get<0>(set_.only()), std::nullopt);
}

TEST_F(APayload, ThatReachesNobodyIsLoggedOnce) {
    manager()->setMDMPayload(kPayload, "a", false);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(std::string("setMDMPayload") + kCheckEntitlement)));
}

using JobMethod = std::remove_cvref_t<decltype(methods::kSubmitManagedJob)>;

struct JobRequest {
    const char* name;
    const char* argument;
    const JobMethod& method;
    bool (KSWManager::*send)(const std::optional<std::string>&, KSWManager::ErrorPlace);
};

class AManagedJob : public ManagedRequests, public ::testing::WithParamInterface<JobRequest> {
protected:
    bool send() { return (*manager().*GetParam().send)("job", &error_); }
    bool sendAnswered(const std::optional<Error>& error) {
        answer(daemon_, GetParam().method, seen_, error);
        daemon_.start();
        return send();
    }
    std::string name() const { return GetParam().name; }

    SeenArguments<JobMethod> seen_;
};

INSTANTIATE_TEST_SUITE_P(
    Requests, AManagedJob,
    ::testing::Values(JobRequest{"submitManagedJobAtPath", "jobPath", methods::kSubmitManagedJob,
                                 &KSWManager::submitManagedJobAtPath},
                      JobRequest{"removeManagedJobAtPath", "jobPath", methods::kRemoveManagedJobAtPath,
                                 &KSWManager::removeManagedJobAtPath},
                      JobRequest{"removeManagedJobWithLabel", "label", methods::kRemoveManagedJobWithLabel,
                                 &KSWManager::removeManagedJobWithLabel}),
    [](const auto& request) { return std::string(request.param.name); });

TEST_P(AManagedJob, IsDoneWhenTheDaemonNamesNoError) {
    EXPECT_TRUE(sendAnswered(std::nullopt));
    EXPECT_EQ(std::get<0>(seen_.only()), "job");
    EXPECT_EQ(error_, kBefore);
    EXPECT_EQ(debugLine(), name() + ": " + GetParam().argument + "=job");
    EXPECT_THAT(log_.lines(), SizeIs(1));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager." + name());
}

TEST_P(AManagedJob, ThatIsRefusedHandsOutTheDaemonsErrorWhichIsLogged) {
    const Error refusal("Any", 5, "why not");
    EXPECT_FALSE(sendAnswered(refusal));
    EXPECT_EQ(error_, refusal);
    EXPECT_THAT(errors(), ElementsAre(name() + ": error: " + refusal.description()));
}

TEST_P(AManagedJob, WithoutADaemonHandsOutTheConnectionsErrorWhichIsLoggedOnce) {
    EXPECT_FALSE(send());
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(name() + kCheckEntitlement)));
}

TEST_P(AManagedJob, OfAManagerThatIsOffIsNotDoneAndHasNoError) {
    root_.setFeature("ControlAutomaticAppLaunch", false);
    EXPECT_FALSE(send());
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(errors(), IsEmpty());
}

class ANote : public ManagedRequests {};

TEST_F(ANote, OfAScanHasThePathAndIsNotLogged) {
    SeenBy<methods::kStewardWillScanPath> will;
    SeenBy<methods::kStewardDidScanPath> did;
    answer(daemon_, methods::kStewardWillScanPath, will);
    answer(daemon_, methods::kStewardDidScanPath, did);
    daemon_.start();
    const auto teller = manager();
    teller->stewardWillScanPath("/Library/Agents");
    EXPECT_EQ(std::get<0>(will.only()), "/Library/Agents");
    EXPECT_THAT(did.all(), IsEmpty());
    teller->stewardDidScanPath("/Library/Daemons");
    EXPECT_EQ(std::get<0>(did.only()), "/Library/Daemons");
    EXPECT_THAT(log_.lines(), IsEmpty());
    daemon_.stop();
}

TEST_F(ANote, OfAScanThatReachesNobodyIsLoggedInTheManagersNameAndInNoActivity) {
    manager()->stewardWillScanPath("/a");
    manager()->stewardDidScanPath("/a");
    EXPECT_THAT(errors(), ElementsAre(StartsWith(std::string("KSWManager") + kCheckEntitlement),
                                      StartsWith(std::string("KSWManager") + kCheckEntitlement)));
    EXPECT_EQ(log_.lines().at(0).activity, "");
}

TEST_F(ANote, OfALogoutHasTheUserAndIsNotLogged) {
    SeenBy<methods::kNoteLogout> seen;
    answer(daemon_, methods::kNoteLogout, seen, 0);
    daemon_.start();
    manager()->noteLogoutForUID(501);
    EXPECT_EQ(std::get<0>(seen.only()), 501U);
    EXPECT_THAT(log_.lines(), IsEmpty());
    daemon_.stop();
}

TEST_F(ANote, OfALogoutThatIsRefusedIsLogged) {
    SeenBy<methods::kNoteLogout> seen;
    answer(daemon_, methods::kNoteLogout, seen, -97);
    daemon_.start();
    manager()->noteLogoutForUID(501);
    ASSERT_THAT(log_.lines(), SizeIs(1));
    EXPECT_EQ(log_.lines()[0].level, host::LogLevel::Error);
    EXPECT_EQ(log_.lines()[0].fullForm, "noteLogoutForUID: uid=501, error: permission denied");
    EXPECT_EQ(log_.lines()[0].publicForm, "noteLogoutForUID: uid=501, error: <private>");
    daemon_.stop();
}

TEST_F(ANote, OfALogoutThatReachesNobodyIsLogged) {
    manager()->noteLogoutForUID(501);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(std::string("noteLogoutForUID") + kCheckEntitlement)));
}

TEST_F(ManagedRequests, ToRefreshManagedItemsAskNobody) {
    manager()->refreshManagedItems();
    EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
}  // namespace ksw::test
