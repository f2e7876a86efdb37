// A store's file that says of a record that it has the highest generation there is: its changes go on from there.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "tests/servers/kestrelwoodd/daemon_inside.h"

namespace ksw::daemon::test {
namespace {

constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();

// An overflow would be no constant.
static_assert(nextGeneration(0) == 1);
static_assert(nextGeneration(-1) == 0);
static_assert(nextGeneration(kHighest) == kLowest);

class ARecordOfTheHighestGeneration : public testing::Test {
protected:
    ARecordOfTheHighestGeneration() {
        daemon_.enterAgent(owner_, "my.agent", owner_.uid);
        const ItemPointer item = copyOfRecord(*record());
        item->setGeneration(kHighest);
        Result<ItemRow> row = rowOf(owner_.uid, *item);
        EXPECT_TRUE(row.ok());
        row->container = record()->container()->uuid();
        daemon_.put({*row});
        EXPECT_EQ(record()->generation(), kHighest);
    }

    ItemPointer record() { return daemon_.record(owner_.uid, "8.my.agent"); }

    std::int64_t update(const ItemPointer& item) {
        return daemon_.registry().update(owner_.uid, {{item}}, Reach::Own).code;
    }

    /// Now, and when the store is read again.
    void expectTheLowest() {
        EXPECT_EQ(record()->generation(), kLowest);
        daemon_.restart();
        ASSERT_NE(record(), nullptr);
        EXPECT_EQ(record()->generation(), kLowest);
    }

    const Caller owner_ = anOwner();
    DaemonInside daemon_;
};

TEST_F(ARecordOfTheHighestGeneration, GoesOnFromTheLowestWhenItIsUpdated) {
    const ItemPointer item = copyOfRecord(*record());
    item->setEnabled(false);
    ASSERT_EQ(update(item), KSWErrorRecordUpdated);
    EXPECT_FALSE(record()->isEnabled());
    expectTheLowest();
    EXPECT_EQ(update(item), KSWErrorInvalidGeneration);
    item->setGeneration(kLowest);
    EXPECT_EQ(update(item), KSWErrorRecordUpdated);
    EXPECT_EQ(record()->generation(), kLowest + 1);
}

TEST_F(ARecordOfTheHighestGeneration, GoesOnFromTheLowestWhenItIsRegisteredAnew) {
    Dictionary configuration = jobNamed("my.agent");
    configuration[std::string(KSWConfigExecutablePath)] = Value("/opt/other-tool");
    const Answer answer = daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"),
                                      configuration, owner_.uid);
    ASSERT_EQ(answer.code, KSWErrorRecordUpdated);
    EXPECT_EQ(record()->executablePath(), "/opt/other-tool");
    expectTheLowest();
}

}  // namespace
}  // namespace ksw::daemon::test
