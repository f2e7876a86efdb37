// The daemon's database is cleaned, dumped and erased, and everybody is notified of everything or not.

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
constexpr const char* kCheckEntitlement = ": connection failed, check entitlement of the calling process. Error: ";

class Maintenance : public ClientTest {
protected:
    /// The daemon's threads end before what they have written to.
    void TearDown() override { daemon_.stop(); }

    std::vector<std::string> notices() const { return log_.at(host::LogLevel::Notice); }

    ScriptedDaemon daemon_;
    std::optional<Error> error_ = kBefore;
    const Authorization authorization_{Data{1, 2, 3}};
};

class GarbageCollection : public Maintenance {
protected:
    bool answered(std::int64_t code) {
        answer(daemon_, methods::kScheduleGarbageCollection, seen_, code);
        daemon_.start();
        return manager()->scheduleGarbageCollection();
    }

    SeenBy<methods::kScheduleGarbageCollection> seen_;
};

TEST_F(GarbageCollection, IsDueInFiveSeconds) {
    EXPECT_TRUE(answered(0));
    EXPECT_EQ(std::get<0>(seen_.only()), 5.0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(GarbageCollection, ThatIsRefusedIsNotLogged) {
    EXPECT_FALSE(answered(-97));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(GarbageCollection, IsNotDueByTheCodeThatOthersTakeForSuccess) {
    EXPECT_FALSE(answered(-93));
}

TEST_F(GarbageCollection, WithoutADaemonIsLoggedAsARegistrationIs) {
    EXPECT_FALSE(manager()->scheduleGarbageCollection());
    EXPECT_THAT(errors(), ElementsAre(StartsWith("registerItem: connection error: ")));
    EXPECT_EQ(log_.lines().at(0).activity, "");
}

class ADump : public Maintenance {
protected:
    std::optional<std::string> answered(const std::optional<std::string>& text, const std::optional<Error>& error) {
        answer(daemon_, methods::kDumpDatabase, seen_, text, error);
        daemon_.start();
        return manager()->dumpDatabaseWithAuthorization(authorization_, &error_);
    }

    SeenBy<methods::kDumpDatabase> seen_;
};

TEST_F(ADump, IsTheTextOfTheReplyAndLeavesTheErrorAsItWas) {
    EXPECT_EQ(answered("items\n", std::nullopt), "items\n");
    EXPECT_EQ(error_, kBefore);
    EXPECT_EQ(std::get<0>(seen_.only()), (Data{1, 2, 3}));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ADump, ThatIsRefusedHandsOutTheDaemonsErrorAndIsNotLogged) {
    EXPECT_EQ(answered(std::nullopt, KSWErrorWithCode(-97)), std::nullopt);
    EXPECT_EQ(error_, KSWErrorWithCode(-97));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ADump, MayHaveATextAndAnError) {
    EXPECT_EQ(answered("a part", KSWErrorWithCode(-1)), "a part");
    EXPECT_EQ(error_, KSWErrorWithCode(-1));
}

TEST_F(ADump, WithoutADaemonHandsOutTheConnectionsErrorAndIsLogged) {
    EXPECT_EQ(manager()->dumpDatabaseWithAuthorization(std::nullopt, &error_), std::nullopt);
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(std::string("dumpDatabase") + kCheckEntitlement)));
    EXPECT_EQ(log_.lines().at(0).activity, "");
    EXPECT_EQ(manager()->dumpDatabaseWithAuthorization(std::nullopt), std::nullopt);
}

class AnErasure : public Maintenance {
protected:
    bool answered(const std::optional<Error>& error) {
        answer(daemon_, methods::kEraseDatabase, seen_, error);
        daemon_.start();
        return manager()->eraseDatabaseWithAuthorization(authorization_, &error_);
    }

    SeenBy<methods::kEraseDatabase> seen_;
};

TEST_F(AnErasure, IsDoneWhenTheDaemonNamesNoError) {
    EXPECT_TRUE(answered(std::nullopt));
    EXPECT_EQ(error_, kBefore);
    EXPECT_EQ(std::get<0>(seen_.only()), (Data{1, 2, 3}));
    EXPECT_THAT(notices(), ElementsAre("eraseDatabase: erasing the KSW database"));
    EXPECT_THAT(log_.lines(), SizeIs(1));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.eraseDatabase");
}

TEST_F(AnErasure, ThatIsRefusedHandsOutTheDaemonsErrorAndIsNotLogged) {
    EXPECT_FALSE(answered(KSWErrorWithCode(-97)));
    EXPECT_EQ(error_, KSWErrorWithCode(-97));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(AnErasure, WithoutADaemonHandsOutTheConnectionsErrorAndIsLogged) {
    EXPECT_FALSE(manager()->eraseDatabaseWithAuthorization(authorization_, &error_));
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(std::string("eraseDatabase") + kCheckEntitlement)));
}

class TheAlwaysSwitch : public Maintenance {
protected:
    SeenBy<methods::kSetAlwaysPostNotifications> set_;
    SeenBy<methods::kGetAlwaysPostNotifications> got_;
};

TEST_F(TheAlwaysSwitch, IsSetAndTheDaemonsAnswerIsTheResult) {
    for (const bool reply : {true, false}) {
        ScriptedDaemon daemon;
        SeenBy<methods::kSetAlwaysPostNotifications> seen;
        answer(daemon, methods::kSetAlwaysPostNotifications, seen, reply);
        daemon.start();
        EXPECT_EQ(manager()->setAlwaysPostNotifications(!reply), reply);
        EXPECT_EQ(std::get<0>(seen.only()), !reply);
        daemon.stop();
    }
    EXPECT_THAT(notices(), ElementsAre("setAlwaysPostNotifications: false", "setAlwaysPostNotifications: true"));
    EXPECT_THAT(log_.lines(), SizeIs(2));
}

TEST_F(TheAlwaysSwitch, IsRead) {
    answer(daemon_, methods::kGetAlwaysPostNotifications, got_, true);
    daemon_.start();
    bool always = false;
    EXPECT_TRUE(manager()->getAlwaysPostNotifications(&always));
    EXPECT_TRUE(always);
    EXPECT_THAT(notices(), ElementsAre("getAlwaysPostNotifications:"));
    EXPECT_THAT(log_.lines(), SizeIs(1));
}

TEST_F(TheAlwaysSwitch, IsReadAlsoWhenItIsOff) {
    answer(daemon_, methods::kGetAlwaysPostNotifications, got_, false);
    daemon_.start();
    bool always = true;
    EXPECT_TRUE(manager()->getAlwaysPostNotifications(&always));
    EXPECT_FALSE(always);
}

TEST_F(TheAlwaysSwitch, WithoutADaemonIsNeitherSetNorRead) {
    for (bool always : {true, false}) {
        const bool before = always;
        EXPECT_FALSE(manager()->getAlwaysPostNotifications(&always));
        EXPECT_EQ(always, before);
    }
    EXPECT_FALSE(manager()->setAlwaysPostNotifications(true));
    EXPECT_THAT(errors(), ElementsAre(StartsWith(std::string("getAlwaysPostNotifications") + kCheckEntitlement),
                                      StartsWith(std::string("getAlwaysPostNotifications") + kCheckEntitlement),
                                      StartsWith(std::string("setAlwaysPostNotifications") + kCheckEntitlement)));
}

TEST_F(Maintenance, OfAManagerThatIsOffDoesNothingAndHasNoError) {
    root_.setFeature("ControlAutomaticAppLaunch", false);
    const auto off = manager();
    bool always = true;
    EXPECT_FALSE(off->scheduleGarbageCollection());
    EXPECT_EQ(off->dumpDatabaseWithAuthorization(authorization_, &error_), std::nullopt);
    EXPECT_EQ(error_, kBefore);
    EXPECT_FALSE(off->eraseDatabaseWithAuthorization(authorization_, &error_));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_FALSE(off->setAlwaysPostNotifications(true));
    EXPECT_FALSE(off->getAlwaysPostNotifications(&always));
    EXPECT_TRUE(always);
    EXPECT_EQ(off->mdmPayloadForIdentifier("a"), std::nullopt);
    off->setMDMPayload(std::nullopt, "a");
    off->stewardWillScanPath("/a");
    off->stewardDidScanPath("/a");
    off->noteLogoutForUID(501);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Maintenance, OnlyLogsWhatAUserDidWithANotification) {
    manager()->handleNotificationResponseWithIdentifier("n-1", "open");
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, host::LogLevel::Debug);
    EXPECT_EQ(lines[0].publicForm,
              "-[KSWManager handleNotificationResponseWithIdentifier:action:]: identifier=n-1, action=open");
}

}  // namespace
}  // namespace ksw::test
