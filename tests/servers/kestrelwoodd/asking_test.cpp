#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>

#include "tests/servers/kestrelwoodd/daemon_inside.h"
#include "tests/support/environment.h"
#include "tests/support/manual_clock.h"

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

/// An agent whose executable lies behind a link, which leads to a usual folder or into the trash.
class AnItemWhoseFileMoves : public testing::Test {
protected:
    AnItemWhoseFileMoves() : home_("HOME", daemon_.folder().path()), dataHome_("XDG_DATA_HOME", std::nullopt) {
        daemon_.folder().writeFile("usual/tool", "x");
        daemon_.folder().writeFile(".local/share/Trash/files/tool", "x");
        lead("usual");
        job_[std::string(KSWConfigExecutablePath)] = daemon_.folder().at("link/tool");
    }
    void lead(const std::string& folder) {
        unlink(daemon_.folder().at("link").c_str());
        EXPECT_EQ(symlink(daemon_.folder().at(folder).c_str(), daemon_.folder().at("link").c_str()), 0);
    }
    void useUsualPlace() { job_[std::string(KSWConfigExecutablePath)] = daemon_.folder().at("usual/tool"); }
    /// Lays a link into the trash where the usual folder was.
    void replaceUsualPlaceByTheTrash() {
        std::filesystem::rename(daemon_.folder().at("usual"), daemon_.folder().at("away"));
        std::filesystem::create_symlink(daemon_.folder().at(kTrash), daemon_.folder().at("usual"));
    }
    Answer ask(Operations::Operation operation) {
        return daemon_.ask(operation, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"), job_, owner_.uid);
    }
    KSWDisposition effective() { return ask(&Operations::effectiveDisposition).disposition; }

    static constexpr const char* kTrash = ".local/share/Trash/files";
    const Caller owner_ = anOwner();
    ksw::test::ManualClock clock_;
    DaemonInside daemon_{clock_};
    ksw::test::ScopedVariable home_;
    ksw::test::ScopedVariable dataHome_;
    Dictionary job_ = jobNamed("my.agent");
};

TEST_F(AnItemWhoseFileMoves, IntoTheTrashIsDisabled) {
    lead(kTrash);
    EXPECT_EQ(effective(), KSWDispositionAllowed);
    ASSERT_EQ(ask(&Operations::enter).code, KSWErrorNone);
    EXPECT_EQ(effective(), KSWDispositionAllowed);
    EXPECT_EQ(ask(&Operations::storedDisposition).disposition, kLaunchable);
}

TEST_F(AnItemWhoseFileMoves, WithoutARecordIsLookedAtEachTime) {
    EXPECT_EQ(effective(), kLaunchable);
    lead(kTrash);
    EXPECT_EQ(effective(), KSWDispositionAllowed);
}

TEST_F(AnItemWhoseFileMoves, BehindALinkIsLookedAtEachTime) {
    ask(&Operations::enter);
    EXPECT_EQ(effective(), kLaunchable);
    lead(kTrash);
    EXPECT_EQ(effective(), KSWDispositionAllowed);
    lead("usual");
    EXPECT_EQ(effective(), kLaunchable);
}

TEST_F(AnItemWhoseFileMoves, InATrashIsLookedAtEachTime) {
    job_[std::string(KSWConfigExecutablePath)] = daemon_.folder().at(std::string(kTrash) + "/other");
    ask(&Operations::enter);
    EXPECT_EQ(effective(), kLaunchable);
    daemon_.folder().writeFile(std::string(kTrash) + "/other", "x");
    EXPECT_EQ(effective(), KSWDispositionAllowed);
}

TEST_F(AnItemWhoseFileMoves, InAUsualPlaceIsLookedAtOnceASecond) {
    useUsualPlace();
    ask(&Operations::enter);
    EXPECT_EQ(effective(), kLaunchable);
    replaceUsualPlaceByTheTrash();
    clock_.advance(Judgement::kHoldsFor - std::chrono::milliseconds(1));
    EXPECT_EQ(effective(), kLaunchable);
    clock_.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(effective(), KSWDispositionAllowed);
}

TEST_F(AnItemWhoseFileMoves, IsLookedAtAgainWhenItsFamilyHasChanged) {
    useUsualPlace();
    ask(&Operations::enter);
    EXPECT_EQ(effective(), kLaunchable);
    replaceUsualPlaceByTheTrash();
    daemon_.enterAgent(owner_, "another", owner_.uid);
    EXPECT_EQ(effective(), KSWDispositionAllowed);
}

}  // namespace
}  // namespace ksw::daemon::test
