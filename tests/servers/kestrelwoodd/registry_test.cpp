#include "servers/kestrelwoodd/registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/base/limits.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"

namespace ksw::daemon::test {
namespace {

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;
constexpr Uid kOwner = 4501;

ItemPointer itemOf(KSWItemType type, const std::string& identifier, KSWDisposition disposition = kLaunchable) {
    const ItemPointer item = KSWItem::initWithType(type, identifier);
    item->setDisposition(disposition);
    item->setGeneration(1);
    return item;
}

ItemPointer knownDeveloper() {
    const ItemPointer developer = itemOf(KSWItemTypeDeveloper, "Maker", KSWDispositionAllowed);
    developer->setName("Maker");
    developer->setDeveloperName("Maker");
    return developer;
}

TEST(TheFirstDisposition, LetsEverythingLaunchThatIsNoDaemon) {
    EXPECT_EQ(initialDisposition(KSWItemTypeAgent, nullptr, History::Whole), kLaunchable);
    EXPECT_EQ(initialDisposition(KSWItemTypeUserItem, nullptr, History::Whole), kLaunchable);
}

TEST(TheFirstDisposition, OfADaemonWaitsForApproval) {
    EXPECT_EQ(initialDisposition(KSWItemTypeDaemon, nullptr, History::Whole), KSWDispositionEnabled);
    EXPECT_EQ(initialDisposition(kLegacyDaemon, knownDeveloper().get(), History::Whole), KSWDispositionEnabled);
}

TEST(TheFirstDisposition, OfADaemonBesideAnAllowedOneLetsItLaunch) {
    const ItemPointer developer = knownDeveloper();
    const ItemPointer daemon = itemOf(KSWItemTypeDaemon, "16.a");
    daemon->setContainer(developer);
    EXPECT_EQ(initialDisposition(KSWItemTypeDaemon, developer.get(), History::Whole), kLaunchable);
    const ItemPointer agent = itemOf(KSWItemTypeAgent, "8.b", KSWDispositionEnabled);
    agent->setContainer(developer);
    EXPECT_EQ(initialDisposition(KSWItemTypeDaemon, developer.get(), History::Whole), KSWDispositionEnabled);
}

TEST(TheFirstDisposition, OfADaemonOfAnUnknownMakerIsNoOthersConcern) {
    const ItemPointer developer = newUnknownDeveloper(UUID::random());
    const ItemPointer daemon = itemOf(KSWItemTypeDaemon, "16.a");
    daemon->setContainer(developer);
    EXPECT_EQ(initialDisposition(KSWItemTypeDaemon, developer.get(), History::Whole), KSWDispositionEnabled);
}

TEST(TheFirstDisposition, OfEverythingWaitsForApprovalOnceRecordsWereLost) {
    const ItemPointer developer = knownDeveloper();
    const ItemPointer daemon = itemOf(KSWItemTypeDaemon, "16.a");
    daemon->setContainer(developer);
    for (const KSWItemType type : {KSWItemTypeAgent, KSWItemTypeUserItem, KSWItemTypeApp, KSWItemTypeDaemon}) {
        EXPECT_EQ(initialDisposition(type, developer.get(), History::Lost), KSWDispositionEnabled);
    }
}

ItemRow rowUnder(const ItemPointer& container, const ItemPointer& item) {
    Result<ItemRow> row = rowOf(kOwner, *item);
    EXPECT_TRUE(row.ok());
    row->container = container == nullptr ? std::nullopt : container->uuid();
    return *row;
}

TEST(AFamily, OfAKnownMakerIsLoadedWithAllItsLevels) {
    DaemonInside daemon;
    const ItemPointer developer = knownDeveloper();
    const ItemPointer app = itemOf(KSWItemTypeApp, "2.app");
    const ItemPointer agent = itemOf(KSWItemTypeAgent, "8.agent");
    daemon.put({rowUnder(nullptr, developer), rowUnder(developer, app), rowUnder(app, agent)});
    const ItemPointer loaded = daemon.record(kOwner, "8.agent");
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(loaded->container()->identifier(), "2.app");
    EXPECT_EQ(loaded->container()->container()->identifier(), "Maker");
    EXPECT_EQ(daemon.registry().records().find(kOwner, *agent->uuid()).item, loaded);
}

TEST(AFamily, OfAKnownMakerWithADamagedMemberIsJudgedByNobody) {
    DaemonInside daemon;
    const ItemPointer developer = knownDeveloper();
    daemon.put({rowUnder(nullptr, developer), rowUnder(developer, itemOf(KSWItemTypeAgent, "8.agent")),
                rowUnder(developer, itemOf(KSWItemTypeAgent, "8.damaged", KSWDispositionEnabled))});
    daemon.damage("UPDATE items SET record = x'00' WHERE identifier = '8.damaged'");
    EXPECT_EQ(daemon.record(kOwner, "8.agent"), nullptr);
    EXPECT_TRUE(daemon.registry().records().find(kOwner, "8.agent").isDamaged);
}

/// Items each in the one before; the last has `containers` above it.
std::vector<ItemRow> chainOf(std::size_t containers) {
    std::vector<ItemRow> rows;
    ItemPointer above;
    for (std::size_t depth = 0; depth <= containers; ++depth) {
        const ItemPointer item = itemOf(KSWItemTypeApp, "2." + std::to_string(depth));
        rows.push_back(rowUnder(above, item));
        above = item;
    }
    return rows;
}

TEST(AFamily, MayBeAsDeepAsTheLimitAndNoDeeper) {
    DaemonInside daemon;
    daemon.put(chainOf(limits::kContainerChainMax));
    const std::string last = "2." + std::to_string(limits::kContainerChainMax);
    EXPECT_NE(daemon.record(kOwner, last), nullptr);
    DaemonInside another;
    another.put(chainOf(limits::kContainerChainMax + 1));
    EXPECT_EQ(another.record(kOwner, last), nullptr);
    EXPECT_TRUE(another.registry().records().find(kOwner, last).isDamaged);
}

TEST(AUser, MayHaveSoManyRecordsAndNoMore) {
    DaemonInside daemon;
    const ItemPointer developer = newUnknownDeveloper(UUID::random());
    std::vector<ItemRow> rows{rowUnder(nullptr, developer)};
    for (std::size_t number = 2; number < limits::kRecordsPerUidMax; ++number) {
        rows.push_back(rowUnder(developer, itemOf(KSWItemTypeAgent, "8.agent." + std::to_string(number))));
    }
    daemon.put(rows);
    EXPECT_EQ(daemon.enterAgent(kRoot, "the.last", kOwner).code, KSWErrorNone);
    EXPECT_EQ(daemon.enterAgent(kRoot, "one.more", kOwner).code, KSWErrorGeneric);
    EXPECT_EQ(daemon.record(kOwner, "8.one.more"), nullptr);
    EXPECT_EQ(daemon.enterAgent(kRoot, "anothers", kOwner + 1).code, KSWErrorNone);
}

TEST(AUser, MayHaveSoManyBytesOfRecordsAndNoMore) {
    DaemonInside daemon;
    Dictionary job;
    job[std::string(KSWConfigExecutablePath)] = "/" + std::string(limits::kFieldMax - 1, 'x');
    const auto enter = [&](std::size_t number, Uid uid) {
        const std::string label = "large." + std::to_string(number);
        job[std::string(KSWConfigLabel)] = label;
        return daemon.ask(&Operations::enter, kRoot, kLegacyAgent, kNoURL, jobURL(label), job, uid);
    };
    // All labels have three digits, so all records are of one size.
    ASSERT_EQ(enter(100, kOwner).code, KSWErrorNone);
    const ItemPointer developer = daemon.record(kOwner, "Unknown Developer");
    const ItemPointer first = daemon.record(kOwner, "8.large.100");
    const std::size_t size = rowUnder(developer, first).record.size();
    const std::size_t left = limits::kRecordBytesPerUidMax - rowUnder(nullptr, developer).record.size();
    std::vector<ItemRow> rows;
    for (std::size_t number = 101; number < 100 + left / size - 1; ++number) {
        const ItemPointer item = copyOfRecord(*first);
        item->setUuid(UUID::random());
        item->setIdentifier("8.large." + std::to_string(number));
        rows.push_back(rowUnder(developer, item));
    }
    daemon.put(rows);
    EXPECT_EQ(enter(998, kOwner).code, KSWErrorNone);
    EXPECT_EQ(enter(999, kOwner).code, KSWErrorGeneric);
    EXPECT_EQ(enter(999, kOwner + 1).code, KSWErrorNone);
}

TEST(TheRecords, ArePublishedWholeWhileOthersAsk) {
    constexpr int kItems = 40;
    DaemonInside daemon;
    daemon.enterAgent(kRoot, "0", kOwner);
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> askers;
    for (int thread = 0; thread < 3; ++thread) {
        askers.emplace_back([&] {
            while (!done) {
                const Answer answer =
                    daemon.askOf(&Operations::effectiveDisposition, kRoot, kLegacyAgent, "0", kOwner);
                const Answer fetched = daemon.askOf(&Operations::fetch, kRoot, kLegacyAgent, "0", kOwner);
                const ItemPointer developer = fetched.item == nullptr ? nullptr : fetched.item->container();
                const bool isWhole =
                    developer != nullptr && developer->memberOfEmbeddedItems(fetched.item) != nullptr;
                wrong += answer.disposition == kLaunchable && isWhole ? 0 : 1;
            }
        });
    }
    for (int number = 1; number <= kItems; ++number) {
        EXPECT_EQ(daemon.enterAgent(kRoot, std::to_string(number), kOwner).code, KSWErrorNone);
    }
    done = true;
    for (std::thread& asker : askers) {
        asker.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(daemon.record(kOwner, "Unknown Developer")->countOfEmbeddedItems(), std::size_t{kItems + 1});
}

}  // namespace
}  // namespace ksw::daemon::test
