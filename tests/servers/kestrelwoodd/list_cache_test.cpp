#include "servers/kestrelwoodd/list_cache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/servers/kestrelwoodd/record_requests.h"

namespace ksw::daemon::test {
namespace {

constexpr std::int64_t kAgents = 0x8;

class TheLists : public WithRecords {
protected:
    TheLists() { daemon_.enterAgent(owner_, "my.agent", owner_.uid); }

    static ListCache::Archive listOf(ListCache& cache, Uid uid, std::int64_t mask = kAgents) {
        Result<ListCache::Archive> list = cache.listOf(uid, mask);
        EXPECT_TRUE(list.ok());
        return list.ok() ? *list : nullptr;
    }
    ListCache::Archive list() { return listOf(cache_, owner_.uid); }

    ListCache cache_{daemon_.registry().records()};
};

TEST_F(TheLists, AreEncodedOnceAsLongAsNothingChanges) {
    const ListCache::Archive first = list();
    EXPECT_EQ(list(), first);
    EXPECT_NE(listOf(cache_, owner_.uid, 0xFFF), first);
    EXPECT_EQ(list(), first);
}

TEST_F(TheLists, AreEncodedAnewAfterAChangeOfTheUsersRecords) {
    const auto isEncodedAnewAfter = [this](const auto& change) {
        const ListCache::Archive before = list();
        change();
        return list() != before;
    };
    EXPECT_TRUE(isEncodedAnewAfter([this] { daemon_.enterAgent(owner_, "another", owner_.uid); }));
    EXPECT_TRUE(isEncodedAnewAfter(
        [this] { requests_.update(owner_, copyOf(daemon_.record(owner_.uid, "8.another")), owner_.uid); }));
    EXPECT_TRUE(isEncodedAnewAfter([this] { requests_.remove(owner_, "8.another", owner_.uid); }));
    EXPECT_FALSE(isEncodedAnewAfter([this] { requests_.remove(owner_, "8.another", owner_.uid); }));
    EXPECT_FALSE(isEncodedAnewAfter([this] { daemon_.enterAgent(owner_, "my.agent", owner_.uid); }));
}

TEST_F(TheLists, AreEncodedAnewAfterAChangeOfTheSystemsRecords) {
    const ListCache::Archive before = list();
    daemon_.enterAgent(kRoot, "shared", kEveryUser);
    EXPECT_EQ(receivedList(*list()).items.size(), 2U);
    EXPECT_EQ(receivedList(*before).items.size(), 1U);
}

TEST_F(TheLists, StayWhenAnotherUsersRecordsChange) {
    const ListCache::Archive before = list();
    daemon_.enterAgent(kRoot, "anothers", other_.uid);
    EXPECT_EQ(list(), before);
}

TEST_F(TheLists, AskedForLongestAgoAreForgottenWhenThereAreTooMany) {
    ListCache two(daemon_.registry().records(), 2);
    const ListCache::Archive first = listOf(two, owner_.uid, 0x8);
    const ListCache::Archive second = listOf(two, owner_.uid, 0x20);
    EXPECT_EQ(listOf(two, owner_.uid, 0x8), first);
    listOf(two, owner_.uid, 0x28);
    EXPECT_EQ(listOf(two, owner_.uid, 0x8), first);
    EXPECT_NE(listOf(two, owner_.uid, 0x20), second);
}

TEST_F(TheLists, AskedForLongestAgoAreForgottenWhenTheyAreTooLarge) {
    const ListCache::Archive first = list();
    const std::size_t size = (*first)->size();
    ListCache ofOne(daemon_.registry().records(), 16, size);
    const ListCache::Archive kept = listOf(ofOne, owner_.uid);
    EXPECT_EQ(listOf(ofOne, owner_.uid), kept);
    listOf(ofOne, other_.uid);
    EXPECT_NE(listOf(ofOne, owner_.uid), kept);
    ListCache ofNone(daemon_.registry().records(), 16, size - 1);
    EXPECT_NE(listOf(ofNone, owner_.uid), listOf(ofNone, owner_.uid));
}

TEST_F(TheLists, ThatSeveralThreadsWantAreNeverOlderThanAChangeBeforeThem) {
    constexpr int kChanges = 30;
    std::atomic<int> changed = 0;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> askers;
    for (int thread = 0; thread < 3; ++thread) {
        askers.emplace_back([&] {
            for (int seen = 0; seen < kChanges;) {
                seen = changed;
                wrong += receivedList(*list()).items.size() < static_cast<std::size_t>(seen) + 1 ? 1 : 0;
            }
        });
    }
    for (int number = 1; number <= kChanges; ++number) {
        daemon_.enterAgent(kRoot, "agent." + std::to_string(number), owner_.uid);
        changed = number;
    }
    for (std::thread& asker : askers) {
        asker.join();
    }
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace ksw::daemon::test
