#include "agent/values/background_item_archive.h"

#include <gtest/gtest.h>

#include "platform/archive/keyed_archive.h"

namespace {

using ksw::Data;
using ksw::UUID;
using ksw::archive::Coder;

std::shared_ptr<KSWBackgroundItem> roundTrip(const KSWBackgroundItem& item) {
    const auto archive = ksw::archive::archive(item, Coder::ServiceConnection);
    EXPECT_TRUE(archive.ok());
    ksw::archive::DecodeBudget budget(archive->size());
    const auto decoded =
        ksw::archive::unarchive<KSWBackgroundItem>(*archive, {.coder = Coder::ServiceConnection}, budget);
    EXPECT_TRUE(decoded.ok());
    return decoded->root;
}

TEST(ANewBackgroundItem, KeepsTheIdentifierItIsGiven) {
    const UUID identifier = UUID::random();
    const auto item = KSWBackgroundItem::initWithIdentifier(identifier, 0x3, Data{1}, -2);
    EXPECT_EQ(item->identifier(), identifier);
    EXPECT_EQ(item->type(), 0x3U);
    EXPECT_EQ(item->bookmark(), Data{1});
    EXPECT_EQ(item->userElection(), -2);
}

TEST(ANewBackgroundItem, WithoutIdentifierGetsANewOneAndElectionZero) {
    const auto item = KSWBackgroundItem::initWithType(0x3, Data{1});
    EXPECT_TRUE(item->identifier().has_value());
    EXPECT_NE(item->identifier(), KSWBackgroundItem::initWithType(0x3, Data{1})->identifier());
    EXPECT_EQ(item->userElection(), 0);
}

TEST(ADecodedBackgroundItem, HasAllFields) {
    const auto item = KSWBackgroundItem::initWithIdentifier(UUID::random(), 0x8, Data{1, 2}, 5);
    const auto decoded = roundTrip(*item);
    EXPECT_EQ(decoded->identifier(), item->identifier());
    EXPECT_EQ(decoded->bookmark(), (Data{1, 2}));
    EXPECT_EQ(decoded->userElection(), 5);
    EXPECT_EQ(decoded->type(), 0x8U);
}

TEST(ADecodedBackgroundItem, OfTypeZeroKeepsIt) {
    EXPECT_EQ(roundTrip(*KSWBackgroundItem::initWithType(0, std::nullopt))->type(), 0U);
}

TEST(ABackgroundItemsTable, HasItsKeysInTheirOrder) {
    std::vector<std::string_view> keys;
    for (const auto& row : ksw::archive::classInfo<KSWBackgroundItem>().fields) {
        keys.push_back(row.key.text());
    }
    EXPECT_EQ(keys, (std::vector<std::string_view>{"identifier", "bookmark", "userElection", "type"}));
}

}  // namespace
