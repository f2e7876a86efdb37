#include "client/values/list_record.h"

#include <gtest/gtest.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"

namespace {

using ksw::Data;
using ksw::Error;
using ksw::FormatError;
using ksw::ListRecord;
using ksw::archive::Coder;
using ksw::archive::Cycles;
using Items = std::vector<std::shared_ptr<KSWItem>>;

KSWItem::Pointer item(const std::string& identifier, KSWItemType type = 0x8) {
    return KSWItem::itemWithType(type, identifier);
}

Data encode(const ListRecord& list) {
    const auto archive = ksw::archive::archive(list, Coder::Ordinary);
    EXPECT_TRUE(archive.ok());
    return *archive;
}

ksw::Result<ksw::archive::Unarchived<ListRecord>> decode(const Data& archive, Cycles cycles = Cycles::Allowed) {
    ksw::archive::DecodeBudget budget(archive.size());
    return ksw::archive::unarchive<ListRecord>(archive, {.cycles = cycles}, budget);
}

Items items(std::size_t count) {
    Items all;
    for (std::size_t number = 0; number < count; ++number) {
        all.push_back(item("8." + std::to_string(number)));
    }
    return all;
}

TEST(AListRecord, ArrivesWithUserTypeAndItems) {
    const auto list = decode(encode({4294967294, 0xFFF, {{item("8.a"), item("8.b")}, true}}));
    ASSERT_TRUE(list.ok());
    EXPECT_EQ(list->root->uid, 4294967294U);
    EXPECT_EQ(list->root->type, 0xFFF);
    ASSERT_EQ(list->root->items.items.size(), 2U);
    EXPECT_EQ(list->root->items.items[1]->identifier(), "8.b");
}

TEST(AListRecord, MayHaveNoItems) {
    const auto list = decode(encode({501, 8, {{}, true}}));
    ASSERT_TRUE(list.ok());
    EXPECT_TRUE(list->root->items.isThere);
}

TEST(AListRecord, WithoutItemsIsRefused) {
    EXPECT_EQ(decode(encode({501, 8, {}})).error(), Error(FormatError::WrongType, "root: items: missing"));
}

TEST(AListRecord, ComesWithTheItemsFamily) {
    const auto app = item("2.app", 0x2);
    const auto agent = item("8.a");
    agent->setContainer(app);
    const auto list = decode(encode({501, 8, {{agent}, true}}));
    ASSERT_TRUE(list.ok());
    const auto container = list->root->items.items.at(0)->container();
    ASSERT_NE(container, nullptr);
    EXPECT_EQ(container->memberOfEmbeddedItems(agent), list->root->items.items[0]);
}

TEST(AListRecord, WithFamiliesNeedsLeaveForCycles) {
    const auto app = item("2.app", 0x2);
    const auto agent = item("8.a");
    agent->setContainer(app);
    const auto list = decode(encode({501, 8, {{agent}, true}}), Cycles::Refused);
    ASSERT_FALSE(list.ok());
    EXPECT_EQ(list.error().domain(), ksw::kFormatErrorDomain);
}

TEST(AListRecord, HasAtMost16384Items) {
    EXPECT_EQ(ksw::limits::kListItemsMax, 16'384U);
    ListRecord list{501, 8, {items(ksw::limits::kListItemsMax), true}};
    EXPECT_TRUE(decode(encode(list)).ok());
    list.items.items.push_back(item("8.one-more"));
    EXPECT_EQ(decode(encode(list)).error(), Error(FormatError::LimitPassed, "root: items: more than 16384"));
}

TEST(AListRecord, IsNotMadeOfAnItem) {
    const auto archive = ksw::archive::archive(*item("8.a"), Coder::Ordinary);
    const auto list = decode(*archive);
    ASSERT_FALSE(list.ok());
    EXPECT_EQ(list.error().code(), static_cast<std::int64_t>(FormatError::WrongClass));
}

}  // namespace
