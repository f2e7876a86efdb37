#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/base/limits.h"
#include "platform/host/log_capture.h"
#include "tests/servers/kestrelwoodd/record_requests.h"

namespace ksw::daemon::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kAll = 0xFFF;
constexpr std::int64_t kJobs = 0x18;

class Listing : public WithRecords {};

TEST_F(Listing, HoldsTheUsersItemsAndThenTheSystems) {
    daemon_.enterDaemon(kRoot, "my.daemon");
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    daemon_.enterAgent(kRoot, "private", other_.uid);
    EXPECT_THAT(requests_.list(owner_, kJobs, owner_.uid).identifiers(), ElementsAre("8.my.agent", "16.my.daemon"));
}

TEST_F(Listing, OfEveryUserHoldsTheSystemsItemsOnly) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    daemon_.enterDaemon(kRoot, "my.daemon");
    EXPECT_THAT(requests_.list(kRoot, kJobs, kEveryUser).identifiers(), ElementsAre("16.my.daemon"));
}

TEST_F(Listing, SaysTheUserAndTheMaskAskedFor) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const ReceivedList list = requests_.list(owner_, 0x10008, owner_.uid);
    EXPECT_EQ(list.uid, owner_.uid);
    EXPECT_EQ(list.type, 0x10008);
    EXPECT_THAT(list.identifiers(), ElementsAre("8.my.agent"));
}

TEST_F(Listing, GoesByTheBaseKindAlone) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    EXPECT_THAT(requests_.list(owner_, 0x10000, owner_.uid).items, IsEmpty());
    EXPECT_THAT(requests_.list(owner_, 0x10, owner_.uid).items, IsEmpty());
    EXPECT_THAT(requests_.list(owner_, 0x20, owner_.uid).identifiers(), ElementsAre("Unknown Developer"));
    EXPECT_THAT(requests_.list(owner_, -1, owner_.uid).identifiers(),
                ElementsAre("Unknown Developer", "8.my.agent"));
    EXPECT_THAT(requests_.list(owner_, 0, owner_.uid).items, IsEmpty());
}

TEST_F(Listing, KeepsTheOrderInWhichTheItemsWereFirstRecorded) {
    for (const char* label : {"c", "a", "d", "b"}) {
        daemon_.enterAgent(owner_, label, owner_.uid);
    }
    requests_.remove(owner_, "8.a", owner_.uid);
    const ItemPointer changed = copyOf(daemon_.record(owner_.uid, "8.c"));
    ASSERT_EQ(requests_.update(owner_, changed, owner_.uid).code, KSWErrorRecordUpdated);
    daemon_.enterAgent(owner_, "a", owner_.uid);
    const auto expected = ElementsAre("8.c", "8.d", "8.b", "8.a");
    EXPECT_THAT(requests_.list(owner_, kJobs, owner_.uid).identifiers(), expected);
    daemon_.restart();
    EXPECT_THAT(requests_.list(owner_, kJobs, owner_.uid).identifiers(), expected);
}

ItemRow rowUnder(const ItemPointer& container, const ItemPointer& item, Uid uid) {
    Result<ItemRow> row = rowOf(uid, *item);
    EXPECT_TRUE(row.ok());
    row->container = container == nullptr ? std::nullopt : container->uuid();
    return *row;
}

TEST_F(Listing, KeepsTheOrderAcrossFamiliesToo) {
    const ItemPointer first = KSWItem::initWithType(KSWItemTypeDeveloper, "First");
    first->setDeveloperName("First");
    const ItemPointer second = KSWItem::initWithType(KSWItemTypeDeveloper, "Second");
    second->setDeveloperName("Second");
    daemon_.put({rowUnder(nullptr, first, owner_.uid), rowUnder(nullptr, second, owner_.uid),
                 rowUnder(second, anAgent("a"), owner_.uid), rowUnder(first, anAgent("b"), owner_.uid)});
    EXPECT_THAT(requests_.list(owner_, kAll, owner_.uid).identifiers(),
                ElementsAre("First", "Second", "8.a", "8.b"));
    daemon_.enterAgent(owner_, "c", owner_.uid);
    EXPECT_THAT(requests_.list(owner_, kAll, owner_.uid).identifiers(),
                ElementsAre("First", "Second", "8.a", "8.b", "Unknown Developer", "8.c"));
}

TEST_F(Listing, BringsContainersAndTheirChildren) {
    daemon_.enterAgent(owner_, "a", owner_.uid);
    daemon_.enterAgent(owner_, "b", owner_.uid);
    const ReceivedList list = requests_.list(owner_, 0x8, owner_.uid);
    ASSERT_EQ(list.items.size(), 2U);
    const ItemPointer developer = list.items.front()->container();
    ASSERT_NE(developer, nullptr);
    EXPECT_EQ(developer->identifier(), "Unknown Developer");
    EXPECT_EQ(developer->countOfEmbeddedItems(), 2U);
    EXPECT_EQ(developer->memberOfEmbeddedItems(list.items.front()).get(), list.items.front().get());
    EXPECT_EQ(list.items.back()->container(), developer);
}

TEST_F(Listing, OfAUserWithoutRecordsIsEmpty) {
    EXPECT_THAT(requests_.list(owner_, kAll, owner_.uid).items, IsEmpty());
}

TEST_F(Listing, LeavesDamagedRecordsOut) {
    daemon_.enterAgent(owner_, "damaged", owner_.uid);
    daemon_.enterAgent(owner_, "whole", owner_.uid);
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = '8.damaged'");
    EXPECT_THAT(requests_.list(owner_, kJobs, owner_.uid).identifiers(), ElementsAre("8.whole"));
}

TEST_F(Listing, ForAnotherUserOrTheSystemIsTheAdministrators) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    for (const auto& [caller, uid] : {std::pair(other_, owner_.uid), std::pair(owner_, kEveryUser)}) {
        const Answer answer = requests_.ask(caller, kAll, uid);
        EXPECT_EQ(answer.code, KSWErrorPermissionDenied);
        EXPECT_EQ(answer.list, nullptr);
    }
    EXPECT_THAT(requests_.list(kRoot, kJobs, owner_.uid).identifiers(), ElementsAre("8.my.agent"));
    EXPECT_EQ(requests_.ask(kRoot, kAll, kNoUser).code, KSWErrorInvalidParameter);
}

TEST_F(Listing, HoldsAsManyItemsAsAListMayHaveAndNoMore) {
    const ItemPointer developer = newUnknownDeveloper(UUID::random());
    std::vector<ItemRow> rows{rowUnder(nullptr, developer, owner_.uid)};
    for (std::size_t number = 1; number < limits::kListItemsMax; ++number) {
        const ItemPointer item = bareItem(KSWItemTypeAgent, "8." + std::to_string(number));
        item->setUuid(UUID::random());
        rows.push_back(rowUnder(developer, item, owner_.uid));
    }
    daemon_.put(rows);
    EXPECT_EQ(requests_.list(owner_, kAll, owner_.uid).items.size(), limits::kListItemsMax);
    daemon_.enterDaemon(kRoot, "one.more");
    const host::LogCapture log;
    const Answer answer = requests_.ask(owner_, 0x28, owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorGeneric);
    EXPECT_EQ(answer.list, nullptr);
    EXPECT_THAT(log.at(host::LogLevel::Error),
                ElementsAre(testing::HasSubstr("user " + std::to_string(owner_.uid) +
                                               " has 16385 items that match, more than a list may have")));
    EXPECT_EQ(requests_.list(owner_, kJobs, owner_.uid).items.size(), limits::kListItemsMax);
}

TEST_F(Listing, IsAsLargeAsAReplyMayCarryAndNoLarger) {
    const ItemPointer developer = newUnknownDeveloper(UUID::random());
    const auto sized = [](const std::string& label, std::size_t size) {
        const ItemPointer item = anAgent(label);
        item->setName(std::string(size, 'x'));
        return item;
    };
    constexpr std::size_t kLarge = 60'000;
    constexpr std::size_t kSmall = 300;
    std::vector<ItemRow> rows{rowUnder(nullptr, developer, owner_.uid),
                              rowUnder(developer, sized("small", kSmall), owner_.uid)};
    const std::size_t perItem = rowUnder(developer, sized("large.100", kLarge), owner_.uid).record.size();
    for (std::size_t number = 100; number < 99 + limits::kStringMax / perItem; ++number) {
        rows.push_back(rowUnder(developer, sized("large." + std::to_string(number), kLarge), owner_.uid));
    }
    daemon_.put(rows);
    const std::size_t left = limits::kStringMax - (*requests_.ask(owner_, kAll, owner_.uid).list)->size();
    ASSERT_LT(left, limits::kFieldMax - kSmall);
    const ItemPointer small = copyOf(daemon_.record(owner_.uid, "8.small"));
    small->setName(std::string(kSmall + left, 'x'));
    ASSERT_EQ(requests_.update(owner_, small, owner_.uid).code, KSWErrorRecordUpdated);
    EXPECT_EQ((*requests_.ask(owner_, kAll, owner_.uid).list)->size(), limits::kStringMax);
    small->setName(std::string(kSmall + left + 1, 'x'));
    small->setGeneration(1);
    ASSERT_EQ(requests_.update(owner_, small, owner_.uid).code, KSWErrorRecordUpdated);
    const host::LogCapture log;
    EXPECT_EQ(requests_.ask(owner_, kAll, owner_.uid).code, KSWErrorGeneric);
    EXPECT_THAT(log.at(host::LogLevel::Error),
                ElementsAre(testing::HasSubstr("has 16777217 bytes, more than a reply may carry")));
}

}  // namespace
}  // namespace ksw::daemon::test
