#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <thread>

#include "platform/base/limits.h"
#include "servers/kestrelwoodd/served_methods.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"
#include "tests/support/sanitized.h"

namespace ksw::daemon::test {
namespace {

const std::optional<std::string> kCron = "KSWSubsystemCron";
const std::optional<std::string> kGlimpse = "KSWSubsystemGlimpse";

/// A daemon that one user and the administrator ask about settings.
class Settings : public testing::Test {
protected:
    Report fetch(const Caller& caller, Uid uid) {
        return daemon_.housekeeping().perform(&Housekeeping::fetchSettings, Rule::Ask, caller, uid);
    }
    Report save(const Caller& caller, const SettingsPointer& settings, Uid uid) {
        return daemon_.housekeeping().perform(&Housekeeping::saveSettings, Rule::Change, caller, settings, uid);
    }
    Report have(const std::optional<std::string>& subsystem, Uid uid) {
        return daemon_.housekeeping().perform(&Housekeeping::haveEnablement, Rule::Ask, kRoot, subsystem, uid);
    }
    Report get(const std::optional<std::string>& subsystem, Uid uid) {
        return daemon_.housekeeping().perform(&Housekeeping::enablement, Rule::Ask, kRoot, subsystem, uid);
    }
    std::int64_t set(bool isEnabled, const std::optional<std::string>& subsystem, Uid uid) {
        return daemon_.housekeeping()
            .perform(&Housekeeping::setEnablement, Rule::Change, kRoot, isEnabled, subsystem, uid)
            .code;
    }
    std::int64_t reset(const std::optional<std::string>& subsystem, Uid uid) {
        return daemon_.housekeeping()
            .perform(&Housekeeping::resetEnablement, Rule::Change, kRoot, subsystem, uid)
            .code;
    }

    DaemonInside daemon_;
    const Caller owner_ = anOwner();
};

TEST_F(Settings, OfAUserWithoutAnyAreNewOnes) {
    const Report report = fetch(owner_, owner_.uid);
    ASSERT_EQ(report.code, KSWErrorNone);
    EXPECT_EQ(report.settings->generation(), 0);
    EXPECT_FALSE(report.settings->rosterMigrated());
    EXPECT_EQ(report.settings->enablementStatusByIdentifier(), Dictionary());
}

TEST_F(Settings, AreKeptOneGenerationFurtherAcrossAStart) {
    const SettingsPointer settings = fetch(owner_, owner_.uid).settings;
    settings->setRosterMigrated(true);
    settings->setAlmanacItemsImported(true);
    (*settings->enablementStatusByIdentifier())["com.example"] = Value(7);
    ASSERT_EQ(save(owner_, settings, owner_.uid).code, KSWErrorNone);
    daemon_.restart();
    const SettingsPointer kept = fetch(owner_, owner_.uid).settings;
    EXPECT_TRUE(kept->rosterMigrated());
    EXPECT_FALSE(kept->pellucidLoginItemsMigrated());
    EXPECT_TRUE(kept->almanacItemsImported());
    EXPECT_EQ(kept->generation(), 1);
    EXPECT_EQ(kept->enablementStatusByIdentifier(), (Dictionary{{"com.example", Value(7)}}));
}

TEST_F(Settings, OfAnotherGenerationAreRefusedAndChangeNothing) {
    const SettingsPointer settings = fetch(owner_, owner_.uid).settings;
    ASSERT_EQ(save(owner_, settings, owner_.uid).code, KSWErrorNone);
    settings->setRosterMigrated(true);
    for (const std::int64_t generation : {0, 2, -1}) {
        settings->setGeneration(generation);
        EXPECT_EQ(save(owner_, settings, owner_.uid).code, KSWErrorInvalidGeneration);
    }
    EXPECT_FALSE(fetch(owner_, owner_.uid).settings->rosterMigrated());
    EXPECT_EQ(fetch(owner_, owner_.uid).settings->generation(), 1);
}

TEST_F(Settings, BelongToOneUserEach) {
    ASSERT_EQ(save(owner_, fetch(owner_, owner_.uid).settings, owner_.uid).code, KSWErrorNone);
    EXPECT_EQ(fetch(kRoot, anOther().uid).settings->generation(), 0);
    EXPECT_EQ(fetch(anOther(), owner_.uid).code, KSWErrorPermissionDenied);
    EXPECT_EQ(fetch(anOther(), owner_.uid).settings, nullptr);
    EXPECT_EQ(save(anOther(), KSWUserSettings::init(), owner_.uid).code, KSWErrorPermissionDenied);
    EXPECT_EQ(fetch(kRoot, kNoUser).code, KSWErrorInvalidParameter);
    EXPECT_EQ(save(kRoot, KSWUserSettings::init(), kNoUser).code, KSWErrorInvalidParameter);
    EXPECT_EQ(save(kRoot, nullptr, 0).code, KSWErrorInvalidParameter);
}

TEST_F(Settings, MayTakeAFieldAndNoMore) {
    const SettingsPointer settings = KSWUserSettings::init();
    (*settings->enablementStatusByIdentifier())["x"] = Value(std::string(limits::kFieldMax - 1'000, 'x'));
    EXPECT_EQ(save(owner_, settings, owner_.uid).code, KSWErrorNone);
    settings->setGeneration(1);
    (*settings->enablementStatusByIdentifier())["x"] = Value(std::string(limits::kFieldMax, 'x'));
    EXPECT_EQ(save(owner_, settings, owner_.uid).code, KSWErrorInvalidParameter);
}

TEST_F(Settings, ThatAreDamagedAreNewOnes) {
    ASSERT_EQ(save(owner_, KSWUserSettings::init(), owner_.uid).code, KSWErrorNone);
    daemon_.damage("UPDATE settings SET record = x'00'");
    EXPECT_EQ(fetch(owner_, owner_.uid).settings->generation(), 0);
}

TEST_F(Settings, AreNotKeptWhenTheDiskTakesNothing) {
    daemon_.restartWithPages(1);
    const SettingsPointer settings = KSWUserSettings::init();
    (*settings->enablementStatusByIdentifier())["x"] = Value(std::string(60'000, 'x'));
    EXPECT_EQ(save(owner_, settings, owner_.uid).code, KSWErrorGeneric);
    EXPECT_EQ(fetch(owner_, owner_.uid).settings->generation(), 0);
}

TEST_F(Settings, ThatTwoWritersSaveAtOnceLoseNoSaveThatWasAcknowledged) {
    const bool isLong = ::secure_getenv("KESTRELWOOD_TEST_ALL_SAVES") != nullptr;
    const int saves = isLong ? 10'000 : ksw::test::sized(200, 50);
    struct Tally {
        std::set<std::int64_t> generations;
        int refused = 0;
    };
    const auto write = [&](const std::string& name, Tally& tally) {
        for (int number = 0; number < saves; ++number) {
            const SettingsPointer settings = fetch(owner_, owner_.uid).settings;
            (*settings->enablementStatusByIdentifier())[name] =
                Value(static_cast<std::int64_t>(tally.generations.size() + 1));
            const std::int64_t code = save(owner_, settings, owner_.uid).code;
            if (code == KSWErrorNone) {
                tally.generations.insert(settings->generation() + 1);
            } else {
                ASSERT_EQ(code, KSWErrorInvalidGeneration);
                ++tally.refused;
            }
        }
    };
    Tally one;
    Tally other;
    std::thread writer([&] { write("one", one); });
    write("other", other);
    writer.join();
    EXPECT_EQ(one.generations.size() + static_cast<std::size_t>(one.refused), static_cast<std::size_t>(saves));
    EXPECT_EQ(other.generations.size() + static_cast<std::size_t>(other.refused), static_cast<std::size_t>(saves));
    daemon_.restart();
    const SettingsPointer last = fetch(owner_, owner_.uid).settings;
    std::set<std::int64_t> all = one.generations;
    all.merge(other.generations);
    EXPECT_TRUE(other.generations.empty());
    EXPECT_EQ(last->generation(), static_cast<std::int64_t>(all.size()));
    EXPECT_EQ(*all.begin(), 1);
    EXPECT_EQ(*all.rbegin(), last->generation());
    const auto savesOf = [&](std::string_view name) {
        const std::int64_t* number = find<std::int64_t>(*last->enablementStatusByIdentifier(), name);
        return number == nullptr ? 0 : *number;
    };
    EXPECT_EQ(savesOf("one") + savesOf("other"), last->generation());
}

TEST_F(Settings, HoldTheSwitchesOfSubsystems) {
    EXPECT_EQ(have(kCron, kEveryUser).code, KSWErrorNone);
    EXPECT_FALSE(have(kCron, kEveryUser).flag);
    EXPECT_EQ(get(kCron, kEveryUser).code, KSWErrorRecordNotFound);
    ASSERT_EQ(set(true, kCron, kEveryUser), KSWErrorNone);
    ASSERT_EQ(set(false, kGlimpse, owner_.uid), KSWErrorNone);
    daemon_.restart();
    EXPECT_TRUE(have(kCron, kEveryUser).flag);
    EXPECT_TRUE(get(kCron, kEveryUser).flag);
    EXPECT_TRUE(have(kGlimpse, owner_.uid).flag);
    EXPECT_EQ(get(kGlimpse, owner_.uid).code, KSWErrorNone);
    EXPECT_FALSE(get(kGlimpse, owner_.uid).flag);
    EXPECT_FALSE(have(kGlimpse, anOther().uid).flag);
    const SettingsPointer settings = fetch(owner_, owner_.uid).settings;
    EXPECT_EQ(settings->enablementStatusByIdentifier(), (Dictionary{{*kGlimpse, Value(0)}}));
    EXPECT_EQ(settings->generation(), 1);
}

TEST_F(Settings, OfAClientThatHasNotSeenASwitchAreRefused) {
    const SettingsPointer settings = fetch(owner_, owner_.uid).settings;
    ASSERT_EQ(set(true, kGlimpse, owner_.uid), KSWErrorNone);
    EXPECT_EQ(save(owner_, settings, owner_.uid).code, KSWErrorInvalidGeneration);
    EXPECT_TRUE(get(kGlimpse, owner_.uid).flag);
}

TEST_F(Settings, ForgetASwitchThatIsReset) {
    EXPECT_EQ(reset(kGlimpse, owner_.uid), KSWErrorNone);
    ASSERT_EQ(set(true, kGlimpse, owner_.uid), KSWErrorNone);
    EXPECT_EQ(reset(kGlimpse, owner_.uid), KSWErrorNone);
    EXPECT_FALSE(have(kGlimpse, owner_.uid).flag);
    EXPECT_EQ(get(kGlimpse, owner_.uid).code, KSWErrorRecordNotFound);
}

TEST_F(Settings, TakeSwitchesOfSubsystemsThatHaveAName) {
    EXPECT_EQ(set(true, "any", owner_.uid), KSWErrorNone);
    EXPECT_EQ(set(true, std::string(Housekeeping::kSubsystemMax, 'x'), owner_.uid), KSWErrorNone);
    const std::optional<std::string> unusable[] = {std::nullopt, "",
                                                   std::string(Housekeeping::kSubsystemMax + 1, 'x')};
    for (const auto& subsystem : unusable) {
        EXPECT_EQ(set(true, subsystem, owner_.uid), KSWErrorInvalidParameter);
        EXPECT_EQ(reset(subsystem, owner_.uid), KSWErrorInvalidParameter);
        EXPECT_EQ(have(subsystem, owner_.uid).code, KSWErrorInvalidParameter);
        EXPECT_EQ(get(subsystem, owner_.uid).code, KSWErrorInvalidParameter);
    }
    EXPECT_EQ(set(true, "any", kNoUser), KSWErrorInvalidParameter);
    EXPECT_EQ(have("any", kNoUser).code, KSWErrorInvalidParameter);
}

TEST_F(Settings, AnswerASwitchThatAClientHasWrittenInItsOwnWay) {
    const SettingsPointer settings = KSWUserSettings::init();
    *settings->enablementStatusByIdentifier() = {
        {"bool", Value(true)}, {"double", Value(0.5)}, {"none", Value(0)}, {"text", Value("on")}};
    ASSERT_EQ(save(owner_, settings, owner_.uid).code, KSWErrorNone);
    EXPECT_TRUE(get("bool", owner_.uid).flag);
    EXPECT_TRUE(get("double", owner_.uid).flag);
    EXPECT_FALSE(get("none", owner_.uid).flag);
    EXPECT_EQ(get("text", owner_.uid).code, KSWErrorRecordNotFound);
}

TEST_F(Settings, OfTheDaemonSayWhetherItAlwaysPosts) {
    const auto set = [this](const Caller& caller, bool posts) {
        return daemon_.housekeeping().perform(&Housekeeping::setAlwaysPosts, Rule::Manage, caller, posts).flag;
    };
    const auto posts = [this] {
        return daemon_.housekeeping().perform(&Housekeeping::alwaysPosts, Rule::List, owner_).flag;
    };
    EXPECT_FALSE(posts());
    EXPECT_FALSE(set(owner_, true));
    EXPECT_FALSE(posts());
    EXPECT_TRUE(set(kRoot, true));
    EXPECT_TRUE(posts());
    daemon_.restart();
    EXPECT_TRUE(posts());
    EXPECT_TRUE(set(kRoot, false));
    EXPECT_FALSE(posts());
}

TEST_F(Settings, OfAStoreOfTheFirstSchemaAreNoneAndItsItemsAreThere) {
    daemon_.enterAgent(kRoot, "my.job", 0);
    daemon_.damage(
        "ALTER TABLE items DROP COLUMN own_disposition; ALTER TABLE items DROP COLUMN own_flags;"
        "DROP TABLE switches; CREATE TABLE enablement (subsystem TEXT NOT NULL, uid INTEGER NOT NULL,"
        " enabled INTEGER NOT NULL, PRIMARY KEY (subsystem, uid)) STRICT; PRAGMA user_version = 1");
    EXPECT_NE(daemon_.record(0, "8.my.job"), nullptr);
    EXPECT_EQ(set(true, kCron, kEveryUser), KSWErrorNone);
}

}  // namespace
}  // namespace ksw::daemon::test
