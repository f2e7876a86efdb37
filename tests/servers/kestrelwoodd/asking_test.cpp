#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/servers/kestrelwoodd/daemon_inside.h"

namespace ksw::daemon::test {
namespace {

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;

class Asking : public testing::Test {
protected:
    Answer stored(const Caller& caller, KSWItemType type, std::string_view label, Uid uid) {
        return daemon_.askOf(&Operations::storedDisposition, caller, type, label, uid);
    }
    Answer effective(const Caller& caller, KSWItemType type, std::string_view label, Uid uid) {
        return daemon_.askOf(&Operations::effectiveDisposition, caller, type, label, uid);
    }
    Answer fetch(const Caller& caller, KSWItemType type, std::string_view label, Uid uid) {
        return daemon_.askOf(&Operations::fetch, caller, type, label, uid);
    }

    DaemonInside daemon_;
    const Caller owner_ = anOwner();
};

TEST_F(Asking, AboutARecordAnswersItsDispositions) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    for (const Answer& answer : {stored(owner_, kLegacyAgent, "my.agent", owner_.uid),
                                 effective(owner_, kLegacyAgent, "my.agent", owner_.uid)}) {
        EXPECT_EQ(answer.code, KSWErrorNone);
        EXPECT_EQ(answer.disposition, kLaunchable);
        EXPECT_EQ(answer.requirement, std::nullopt);
    }
}

TEST_F(Asking, AboutARegisteredDaemonOfAnUnknownMakerAnswersThatItMayNotLaunch) {
    daemon_.enterDaemon(kRoot, "my.daemon");
    const Answer answer = effective(owner_, kLegacyDaemon, "my.daemon", owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.disposition, KSWDispositionEnabled);
}

TEST_F(Asking, AboutAnUnknownItemAnswersWhatRegisteringItWouldGive) {
    EXPECT_EQ(stored(owner_, kLegacyAgent, "my.agent", owner_.uid).disposition, kLaunchable);
    EXPECT_EQ(effective(owner_, kLegacyAgent, "my.agent", owner_.uid).disposition, kLaunchable);
    EXPECT_EQ(stored(owner_, kLegacyDaemon, "my.daemon", owner_.uid).disposition, KSWDispositionEnabled);
    EXPECT_EQ(effective(owner_, kLegacyDaemon, "my.daemon", owner_.uid).disposition, KSWDispositionEnabled);
}

TEST_F(Asking, AboutAnUnknownItemStoresNothing) {
    effective(owner_, kLegacyAgent, "my.agent", owner_.uid);
    stored(owner_, kLegacyAgent, "my.agent", owner_.uid);
    EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
}

TEST_F(Asking, ForARecordHandsOutItsContainersToo) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const Answer answer = fetch(owner_, kLegacyAgent, "my.agent", owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorNone);
    ASSERT_NE(answer.item, nullptr);
    EXPECT_EQ(answer.item->identifier(), "8.my.agent");
    ASSERT_NE(answer.item->container(), nullptr);
    EXPECT_EQ(answer.item->container()->identifier(), "Unknown Developer");
}

TEST_F(Asking, ForARecordThatIsNotThereSaysSo) {
    const Answer answer = fetch(owner_, kLegacyAgent, "my.agent", owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorRecordNotFound);
    EXPECT_EQ(answer.item, nullptr);
}

TEST_F(Asking, FindsTheSystemsRecordWhereTheUserHasNone) {
    daemon_.enterAgent(kRoot, "shared", kEveryUser);
    EXPECT_EQ(fetch(owner_, kLegacyAgent, "shared", owner_.uid).item, daemon_.record(kEveryUser, "8.shared"));
}

TEST_F(Asking, FindsTheUsersOwnRecordBeforeTheSystems) {
    daemon_.enterAgent(kRoot, "shared", kEveryUser);
    daemon_.enterAgent(owner_, "shared", owner_.uid);
    EXPECT_EQ(fetch(owner_, kLegacyAgent, "shared", owner_.uid).item, daemon_.record(owner_.uid, "8.shared"));
}

TEST_F(Asking, DoesNotFindAnotherUsersRecord) {
    daemon_.enterAgent(kRoot, "private", anOther().uid);
    EXPECT_EQ(fetch(owner_, kLegacyAgent, "private", owner_.uid).code, KSWErrorRecordNotFound);
}

TEST_F(Asking, DoesNotTakeAUserItemForADaemonWhoseIdentifierItHas) {
    const Answer answer = daemon_.ask(&Operations::enter, owner_, KSWItemTypeUserItem, kNoURL,
                                      URL::fromString("16.my.daemon"), kNoConfiguration, owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorInvalidParameter);
    EXPECT_EQ(effective(owner_, kLegacyDaemon, "my.daemon", owner_.uid).disposition, KSWDispositionEnabled);
}

TEST_F(Asking, AboutAnItemInTheTrashAnswersThatItIsDisabled) {
    const std::string tool = daemon_.folder().writeFile(".local/share/Trash/files/tool", "x");
    Dictionary job = jobNamed("my.agent");
    job[std::string(KSWConfigExecutablePath)] = tool;
    const char* former = getenv("HOME");
    const std::string home = former == nullptr ? "" : former;
    setenv("HOME", daemon_.folder().path().c_str(), 1);
    const Answer answer = daemon_.ask(&Operations::effectiveDisposition, kRoot, kLegacyAgent, kNoURL,
                                      jobURL("my.agent"), job, owner_.uid);
    setenv("HOME", home.c_str(), 1);
    EXPECT_EQ(answer.disposition, KSWDispositionAllowed);
}

TEST_F(Asking, ForTheUsersNamesTheSystemAndNumbersTheNameless) {
    constexpr Uid kNameless = 3'999'999'999U;
    daemon_.enterDaemon(kRoot, "my.daemon");
    daemon_.enterAgent(kRoot, "a", kNameless);
    daemon_.enterAgent(kRoot, "b", 0);
    EXPECT_EQ(
        daemon_.operations().users(kRoot),
        (Dictionary{{"system", Value(kEveryUser)}, {"uid-3999999999", Value(kNameless)}, {"root", Value(0)}}));
}

TEST_F(Asking, ForTheUsersIsEmptyWithoutRecords) {
    EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
}

}  // namespace
}  // namespace ksw::daemon::test
