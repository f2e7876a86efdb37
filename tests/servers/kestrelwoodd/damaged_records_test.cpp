#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/servers/kestrelwoodd/daemon_inside.h"

namespace ksw::daemon::test {
namespace {

/// A store in which an agent has been forbidden, and whose row has then been damaged.
class ADamagedRecord : public testing::Test {
protected:
    ADamagedRecord() {
        daemon_.enterAgent(kRoot, "damaged", kOwner);
        daemon_.enterAgent(kRoot, "whole", kOwner);
    }
    void damage(const std::string& what) {
        daemon_.damage("UPDATE items SET " + what + " WHERE identifier = '8.damaged'");
    }
    void expectUnknowable() {
        for (const Operations::Operation operation :
             {&Operations::enter, &Operations::enterQuietly, &Operations::fetch, &Operations::refresh,
              &Operations::storedDisposition, &Operations::effectiveDisposition}) {
            const Answer answer = daemon_.askOf(operation, kRoot, kLegacyAgent, "damaged", kOwner);
            EXPECT_EQ(answer.code, KSWErrorGeneric);
            EXPECT_EQ(answer.disposition, 0U);
            EXPECT_EQ(answer.item, nullptr);
        }
        EXPECT_NE(daemon_.record(kOwner, "8.whole"), nullptr);
    }

    static constexpr Uid kOwner = 4501;
    DaemonInside daemon_;
};

TEST_F(ADamagedRecord, OfBytesThatAreNoArchiveNeverMayLaunch) {
    damage("record = x'FF00'");
    expectUnknowable();
}

TEST_F(ADamagedRecord, OfNoBytesNeverMayLaunch) {
    damage("record = x''");
    expectUnknowable();
}

TEST_F(ADamagedRecord, WhoseColumnsContradictItNeverMayLaunch) {
    for (const char* what : {"disposition = 0", "type = 8", "flags = 2", "generation = 9", "uuid = zeroblob(16)"}) {
        SCOPED_TRACE(what);
        damage(what);
        expectUnknowable();
    }
}

TEST_F(ADamagedRecord, WhoseContainerIsGoneNeverMayLaunch) {
    damage("container = zeroblob(16)");
    expectUnknowable();
}

TEST_F(ADamagedRecord, ThatIsItsOwnContainersContainerNeverMayLaunch) {
    daemon_.damage(
        "UPDATE items SET container = (SELECT uuid FROM items WHERE identifier = '8.whole')"
        " WHERE identifier = '8.damaged';"
        "UPDATE items SET container = (SELECT uuid FROM items WHERE identifier = '8.damaged')"
        " WHERE identifier = '8.whole'");
    EXPECT_EQ(daemon_.record(kOwner, "8.whole"), nullptr);
    EXPECT_EQ(daemon_.askOf(&Operations::effectiveDisposition, kRoot, kLegacyAgent, "whole", kOwner).code,
              KSWErrorGeneric);
}

TEST_F(ADamagedRecord, CanBeRemovedAndRegisteredAnew) {
    const URL job = daemon_.writeJob("job.plist", "damaged");
    damage("record = x'FF00'");
    EXPECT_EQ(daemon_.ask(&Operations::remove, kRoot, kLegacyAgent, kNoURL, job, kNoConfiguration, kOwner).code,
              KSWErrorNone);
    EXPECT_EQ(daemon_.enterAgent(kRoot, "damaged", kOwner).code, KSWErrorNone);
    daemon_.restart();
    EXPECT_NE(daemon_.record(kOwner, "8.damaged"), nullptr);
}

TEST_F(ADamagedRecord, StillCountsAmongItsUsersRecords) {
    damage("record = x'FF00'");
    EXPECT_EQ(daemon_.operations().users(kRoot).size(), 1U);
}

TEST_F(ADamagedRecord, OfTheUnknownDeveloperCostsItsItemsNothing) {
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = 'Unknown Developer'");
    EXPECT_NE(daemon_.record(kOwner, "8.damaged"), nullptr);
    EXPECT_EQ(daemon_.enterAgent(kRoot, "another", kOwner).code, KSWErrorNone);
    daemon_.restart();
    EXPECT_EQ(daemon_.record(kOwner, "Unknown Developer")->countOfEmbeddedItems(), 3U);
}

TEST_F(ADamagedRecord, HidesItsSystemsRecordOfThatName) {
    daemon_.enterAgent(kRoot, "damaged", kEveryUser);
    damage("record = CASE uid WHEN 4501 THEN x'FF' ELSE record END");
    EXPECT_EQ(daemon_.askOf(&Operations::effectiveDisposition, kRoot, kLegacyAgent, "damaged", kOwner).code,
              KSWErrorGeneric);
}

}  // namespace
}  // namespace ksw::daemon::test
