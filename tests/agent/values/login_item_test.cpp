#include "agent/values/login_item_archive.h"

#include <gtest/gtest.h>

#include "platform/archive/keyed_archive.h"

namespace {

using ksw::Data;
using ksw::UUID;
using ksw::archive::Coder;
using Pointer = std::shared_ptr<KSWLoginItem>;

Pointer roundTrip(const KSWLoginItem& item) {
    const auto archive = ksw::archive::archive(item, Coder::ServiceConnection);
    EXPECT_TRUE(archive.ok());
    ksw::archive::DecodeBudget budget(archive->size());
    const auto decoded =
        ksw::archive::unarchive<KSWLoginItem>(*archive, {.coder = Coder::ServiceConnection}, budget);
    EXPECT_TRUE(decoded.ok());
    return decoded->root;
}

TEST(ANewLoginItem, NeverTakesItsIdentifierFromTheCaller) {
    const UUID given = UUID::random();
    const auto item = KSWLoginItem::initWithType(0x2, given, Data{1}, true);
    EXPECT_TRUE(item->identifier().has_value());
    EXPECT_NE(item->identifier(), given);
    EXPECT_EQ(item->type(), 0x2U);
    EXPECT_EQ(item->bookmark(), Data{1});
    EXPECT_TRUE(item->hidden());
}

TEST(ANewLoginItem, IsVisibleUnlessToldOtherwise) {
    EXPECT_FALSE(KSWLoginItem::initWithType(0x2, std::nullopt, std::nullopt)->hidden());
}

TEST(ANewLoginItem, OfABookmarkHasTypeZero) {
    const auto item = KSWLoginItem::initWithBookmark(Data{1, 2}, true);
    EXPECT_EQ(item->type(), 0U);
    EXPECT_TRUE(item->hidden());
    EXPECT_TRUE(item->identifier().has_value());
    EXPECT_EQ(item->installerBookmark(), std::nullopt);
}

TEST(ADecodedLoginItem, HasAllFields) {
    const auto item = KSWLoginItem::initWithType(0x4, std::nullopt, Data{1, 2}, true);
    item->setInstallerBookmark(Data{3});
    const auto decoded = roundTrip(*item);
    EXPECT_EQ(decoded->identifier(), item->identifier());
    EXPECT_EQ(decoded->bookmark(), (Data{1, 2}));
    EXPECT_EQ(decoded->installerBookmark(), Data{3});
    EXPECT_EQ(decoded->type(), 0x4U);
    EXPECT_TRUE(decoded->hidden());
}

TEST(ADecodedLoginItem, HasNoBookmarksWhenTheSourceHadNone) {
    const auto decoded = roundTrip(*KSWLoginItem::initWithBookmark(std::nullopt, false));
    EXPECT_EQ(decoded->bookmark(), std::nullopt);
    EXPECT_EQ(decoded->installerBookmark(), std::nullopt);
    EXPECT_FALSE(decoded->hidden());
}

TEST(ADecodedLoginItem, OfTypeZeroIsAUserItem) {
    const auto item = KSWLoginItem::initWithBookmark(Data{1}, false);
    EXPECT_EQ(item->type(), 0U);
    EXPECT_EQ(roundTrip(*item)->type(), 1U);
}

TEST(ALoginItemsTable, HasItsKeysInTheirOrder) {
    std::vector<std::string_view> keys;
    for (const auto& row : ksw::archive::classInfo<KSWLoginItem>().fields) {
        keys.push_back(row.key.text());
    }
    EXPECT_EQ(keys,
              (std::vector<std::string_view>{"identifier", "bookmark", "installerBookmark", "type", "hidden"}));
}

TEST(TwoLoginItems, AreIdenticalWithTheSameBytesAndFlag) {
    const auto item = KSWLoginItem::initWithBookmark(Data{1}, false);
    EXPECT_TRUE(item->isIdenticalToLoginItem(item));
    EXPECT_TRUE(item->isIdenticalToLoginItem(KSWLoginItem::initWithType(0x4, std::nullopt, Data{1})));
    EXPECT_FALSE(item->isIdenticalToLoginItem(KSWLoginItem::initWithBookmark(Data{2}, false)));
    EXPECT_FALSE(item->isIdenticalToLoginItem(KSWLoginItem::initWithBookmark(Data{1}, true)));
    EXPECT_FALSE(item->isIdenticalToLoginItem(nullptr));
}

TEST(ALoginItem, HashesToZero) {
    EXPECT_EQ(KSWLoginItem::initWithBookmark(Data{1}, false)->hash(), 0U);
}

}  // namespace
