#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/base/limits.h"
#include "tests/servers/kestrelwoodd/record_requests.h"

namespace ksw::daemon::test {
namespace {

class Updating : public WithRecords {
protected:
    std::int64_t update(const ItemPointer& item) { return requests_.update(owner_, item, owner_.uid).code; }
    std::int64_t updateSet(const std::vector<ItemPointer>& items) {
        return requests_.updateSet(owner_, items, owner_.uid).code;
    }
    /// A client's copy of the user's record.
    ItemPointer enter(std::string_view label) { return copyOf(daemon_.enterAgent(owner_, label, owner_.uid).item); }
    ItemPointer record(std::string_view identifier) { return daemon_.record(owner_.uid, identifier); }
};

TEST_F(Updating, TakesAllThatTheClientSaysButWhatTheRecordIsKnownByAndWhoMadeIt) {
    const ItemPointer entered = enter("my.agent");
    const ItemPointer changed = anAgent("my.agent");
    changed->setUuid(entered->uuid());
    changed->setContainer(KSWItem::initWithType(KSWItemTypeApp, "2.app"));
    changed->setEmbeddedItems({anAgent("child")});
    ASSERT_EQ(update(changed), KSWErrorRecordUpdated);
    const ItemPointer expected = copyOf(changed);
    takeMaker(*expected, Maker());
    for (int start = 0; start < 2; ++start) {
        const ItemPointer updated = copyOf(record("8.my.agent"));
        EXPECT_EQ(updated->generation(), 1);
        updated->setGeneration(0);
        EXPECT_EQ(updated->flags(), changed->flags());
        EXPECT_EQ(updated->dumpVerboseDescription(), expected->dumpVerboseDescription());
        EXPECT_EQ(record("8.my.agent")->container()->identifier(), "Unknown Developer");
        EXPECT_EQ(record("8.my.agent")->countOfEmbeddedItems(), 0U);
        EXPECT_EQ(record("8.child"), nullptr);
        daemon_.restart();
    }
}

TEST_F(Updating, LeavesManagedWhatIsManagedAndNothingElse) {
    const ItemPointer item = enter("my.agent");
    item->setManaged(true);
    item->setType(kLegacyAgent | KSWItemTypeManagedBit);
    ASSERT_EQ(update(item), KSWErrorRecordUpdated);
    EXPECT_FALSE(record("8.my.agent")->isManaged());
    EXPECT_EQ(record("8.my.agent")->type(), kLegacyAgent);
    const ItemPointer managed = anAgent("managed");
    managed->setManaged(true);
    managed->setType(kLegacyAgent | KSWItemTypeManagedBit);
    Result<ItemRow> row = rowOf(owner_.uid, *managed);
    ASSERT_TRUE(row.ok());
    row->container = record("8.my.agent")->container()->uuid();
    daemon_.put({*row});
    const ItemPointer freed = copyOf(managed);
    freed->setManaged(false);
    freed->setType(kLegacyAgent);
    ASSERT_EQ(update(freed), KSWErrorRecordUpdated);
    EXPECT_TRUE(record("8.managed")->isManaged());
    EXPECT_EQ(record("8.managed")->type(), kLegacyAgent | KSWItemTypeManagedBit);
}

TEST_F(Updating, AgainNeedsTheNextGeneration) {
    const ItemPointer item = enter("my.agent");
    EXPECT_EQ(update(item), KSWErrorRecordUpdated);
    EXPECT_EQ(update(item), KSWErrorInvalidGeneration);
    item->setGeneration(2);
    EXPECT_EQ(update(item), KSWErrorInvalidGeneration);
    item->setGeneration(1);
    EXPECT_EQ(update(item), KSWErrorRecordUpdated);
    EXPECT_EQ(record("8.my.agent")->generation(), 2);
}

TEST_F(Updating, ShowsInWhatMayLaunch) {
    const ItemPointer item = enter("my.agent");
    const auto effective = [this] {
        return daemon_.askOf(&Operations::effectiveDisposition, owner_, kLegacyAgent, "my.agent", owner_.uid)
            .disposition;
    };
    EXPECT_TRUE(KSWDispositionIsLaunchable(effective()));
    item->setEnabled(false);
    ASSERT_EQ(update(item), KSWErrorRecordUpdated);
    EXPECT_FALSE(KSWDispositionIsLaunchable(effective()));
}

TEST_F(Updating, ARecordThatIsNotThereSaysSo) {
    EXPECT_EQ(update(anAgent("my.agent")), KSWErrorRecordNotFound);
    const ItemPointer anothers = copyOf(daemon_.enterAgent(kRoot, "anothers", other_.uid).item);
    EXPECT_EQ(update(anothers), KSWErrorRecordNotFound);
}

TEST_F(Updating, RefusesAnotherIdentifierOrKindBeforeAnotherGeneration) {
    const ItemPointer renamed = enter("my.agent");
    renamed->setIdentifier("8.another");
    renamed->setGeneration(9);
    EXPECT_EQ(update(renamed), KSWErrorInvalidParameter);
    const ItemPointer ofAnotherKind = copyOf(record("8.my.agent"));
    ofAnotherKind->setType(KSWItemTypeLoginItem);
    EXPECT_EQ(update(ofAnotherKind), KSWErrorInvalidParameter);
    const ItemPointer ofNoKind = std::make_shared<KSWItem>();
    ofNoKind->setUuid(renamed->uuid());
    ofNoKind->setIdentifier("8.my.agent");
    EXPECT_EQ(update(ofNoKind), KSWErrorInvalidParameter);
    EXPECT_EQ(record("8.my.agent")->generation(), 0);
}

TEST_F(Updating, RefusesWhatNamesNoRecord) {
    EXPECT_EQ(update(nullptr), KSWErrorInvalidParameter);
    const ItemPointer item = enter("my.agent");
    item->setUuid(std::nullopt);
    EXPECT_EQ(update(item), KSWErrorInvalidParameter);
    EXPECT_EQ(requests_.updateSet(owner_, std::nullopt, owner_.uid).code, KSWErrorInvalidParameter);
    EXPECT_EQ(requests_.updateSet(owner_, Data{1, 2, 3}, owner_.uid).code, KSWErrorInvalidParameter);
    EXPECT_EQ(requests_.updateSet(kRoot, std::vector<ItemPointer>{}, kNoUser).code, KSWErrorInvalidParameter);
}

TEST_F(Updating, RefusesAFieldThatIsTooLarge) {
    const ItemPointer item = enter("my.agent");
    item->setName(std::string(limits::kFieldMax + 1, 'x'));
    EXPECT_EQ(update(item), KSWErrorInvalidParameter);
    EXPECT_EQ(record("8.my.agent")->generation(), 0);
}

TEST_F(Updating, LeavesTheUnknownDeveloperUnknown) {
    enter("my.agent");
    const ItemPointer developer = copyOf(record("Unknown Developer"));
    developer->setAllowed(false);
    EXPECT_EQ(update(developer), KSWErrorRecordUpdated);
    EXPECT_EQ(record("8.my.agent")->container()->isAllowed(), false);
    developer->setGeneration(1);
    developer->setDeveloperName("Maker");
    EXPECT_EQ(update(developer), KSWErrorInvalidParameter);
}

TEST_F(Updating, ADamagedRecordIsRefused) {
    const ItemPointer item = enter("my.agent");
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = '8.my.agent'");
    EXPECT_EQ(update(item), KSWErrorGeneric);
}

TEST_F(Updating, ASetChangesAllOfIt) {
    const std::vector<ItemPointer> items{enter("a"), enter("b"), enter("c")};
    for (const ItemPointer& item : items) {
        item->setEnabled(false);
    }
    ASSERT_EQ(updateSet(items), KSWErrorRecordUpdated);
    for (int start = 0; start < 2; ++start) {
        for (const char* identifier : {"8.a", "8.b", "8.c"}) {
            EXPECT_EQ(record(identifier)->generation(), 1);
            EXPECT_FALSE(record(identifier)->isEnabled());
            EXPECT_EQ(record(identifier)->container(), record("Unknown Developer"));
        }
        EXPECT_EQ(record("Unknown Developer")->countOfEmbeddedItems(), 3U);
        daemon_.restart();
    }
}

TEST_F(Updating, ASetTakesTheItemsOfAListWithAllTheirRelatives) {
    enter("a");
    enter("b");
    const ReceivedList list = requests_.list(owner_, 0x8, owner_.uid);
    list.items.front()->setHidden(true);
    ASSERT_EQ(updateSet(list.items), KSWErrorRecordUpdated);
    EXPECT_TRUE(record("8.a")->isHidden());
    EXPECT_EQ(record("8.b")->generation(), 1);
    EXPECT_EQ(record("Unknown Developer")->generation(), 0);
}

TEST_F(Updating, ASetWithOneRefusedChangesNothing) {
    const ItemPointer good = enter("good");
    const ItemPointer stale = enter("stale");
    stale->setGeneration(5);
    const ItemPointer renamed = enter("renamed");
    renamed->setIdentifier("8.other");
    const std::vector<std::pair<ItemPointer, std::int64_t>> bad{{stale, KSWErrorInvalidGeneration},
                                                                {renamed, KSWErrorInvalidParameter},
                                                                {anAgent("unknown"), KSWErrorRecordNotFound}};
    for (const auto& [item, code] : bad) {
        EXPECT_EQ(updateSet({good, item}), code);
        EXPECT_EQ(updateSet({item, good}), code);
    }
    EXPECT_EQ(updateSet({good, good}), KSWErrorInvalidParameter);
    EXPECT_EQ(record("8.good")->generation(), 0);
    daemon_.restart();
    EXPECT_EQ(record("8.good")->generation(), 0);
}

TEST_F(Updating, ASetThatTheDiskRefusesChangesNothing) {
    const ItemPointer first = enter("first");
    const ItemPointer second = enter("second");
    daemon_.restartWithPages(40);
    for (const ItemPointer& item : {first, second}) {
        item->setName(std::string(limits::kFieldMax, 'x'));
    }
    EXPECT_EQ(updateSet({first, second}), KSWErrorGeneric);
    EXPECT_EQ(record("8.first")->generation(), 0);
    EXPECT_EQ(record("8.second")->generation(), 0);
}

TEST_F(Updating, AnEmptySetIsUpToDate) {
    const Answer answer = requests_.updateSet(owner_, std::vector<ItemPointer>{}, owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorRecordUpdated);
    EXPECT_TRUE(answer.changes.empty());
}

TEST_F(Updating, TheSystemsRecordsIsTheAdministrators) {
    const ItemPointer systems = copyOf(daemon_.enterDaemon(kRoot, "my.daemon").item);
    const ItemPointer shared = copyOf(daemon_.enterAgent(kRoot, "shared", kEveryUser).item);
    const ItemPointer own = enter("own");
    EXPECT_EQ(update(systems), KSWErrorPermissionDenied);
    EXPECT_EQ(update(shared), KSWErrorPermissionDenied);
    // What else is wrong with it is nobody's business who may not change it.
    shared->setGeneration(9);
    EXPECT_EQ(updateSet({own, shared}), KSWErrorPermissionDenied);
    EXPECT_EQ(updateSet({anAgent("unknown"), shared}), KSWErrorPermissionDenied);
    shared->setGeneration(0);
    EXPECT_EQ(record("8.own")->generation(), 0);
    systems->setAllowed(true);
    ASSERT_EQ(requests_.updateSet(kRoot, {own, systems, shared}, owner_.uid).code, KSWErrorRecordUpdated);
    EXPECT_EQ(record("8.own")->generation(), 1);
    EXPECT_TRUE(daemon_.record(kEveryUser, "16.my.daemon")->isAllowed());
    EXPECT_EQ(daemon_.record(kEveryUser, "8.shared")->generation(), 1);
}

TEST_F(Updating, ForAnotherUserIsTheAdministrators) {
    const ItemPointer item = enter("my.agent");
    for (const Uid uid : {owner_.uid, Uid{0}, kEveryUser}) {
        EXPECT_EQ(requests_.update(other_, item, uid).code, KSWErrorPermissionDenied);
        EXPECT_EQ(requests_.updateSet(other_, Data{1}, uid).code, KSWErrorPermissionDenied);
    }
    EXPECT_EQ(requests_.update(kRoot, item, owner_.uid).code, KSWErrorRecordUpdated);
}

TEST_F(Updating, OneRecordFromSeveralThreadsLetsOneOfEachGenerationWin) {
    constexpr int kThreads = 4;
    constexpr int kGenerations = 25;
    const ItemPointer item = enter("my.agent");
    std::atomic<int> updated = 0;
    std::atomic<int> stale = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, mine = copyOf(item)] {
            for (int generation = 0; generation < kGenerations; ++generation) {
                mine->setGeneration(generation);
                const std::int64_t code = update(mine);
                updated += code == KSWErrorRecordUpdated ? 1 : 0;
                stale += code == KSWErrorInvalidGeneration ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(updated, kGenerations);
    EXPECT_EQ(stale, (kThreads - 1) * kGenerations);
    EXPECT_EQ(record("8.my.agent")->generation(), kGenerations);
}

}  // namespace
}  // namespace ksw::daemon::test
