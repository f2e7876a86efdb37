#include <gtest/gtest.h>

#include <kestrelwood/KSWItem.h>

#include "tests/model/item/items.h"

namespace {

using ksw::ItemSet;
using ksw::test::item;

std::vector<std::string> identifiersIn(const ItemSet& set) {
    std::vector<std::string> identifiers;
    for (const auto& member : set) {
        identifiers.push_back(member->identifier().value_or("-"));
    }
    return identifiers;
}

using Names = std::vector<std::string>;

TEST(ASet, KeepsTheOrderAndTheFirstOfEqualItems) {
    const auto first = item(0x8, "b");
    const auto set = ItemSet::of({first, item(0x8, "a"), item(0x10, "b"), nullptr});
    EXPECT_EQ(identifiersIn(*set), (Names{"b", "a"}));
    EXPECT_EQ(*set->begin(), first);
}

TEST(ASet, HoldsItemsWithoutIdentifierByWhoTheyAre) {
    const auto without = item(0x8, std::nullopt);
    const auto set = ItemSet::of({without, item(0x8, std::nullopt), without});
    EXPECT_EQ(set->size(), 2U);
    EXPECT_EQ(set->member(without.get()), without);
    EXPECT_EQ(set->removing(without.get())->size(), 1U);
}

TEST(ASet, FindsTheMemberThatIsEqual) {
    const auto member = item(0x8, "a");
    const auto set = ItemSet::of({member});
    EXPECT_EQ(set->member(item(0x10, "a").get()), member);
    EXPECT_EQ(set->member(item(0x8, "b").get()), nullptr);
    EXPECT_EQ(set->member(nullptr), nullptr);
}

TEST(ASet, IsNeverChangedItself) {
    const auto set = ItemSet::of({item(0x8, "a"), item(0x8, "b")});
    EXPECT_EQ(identifiersIn(*set->adding(item(0x8, "c"))), (Names{"a", "b", "c"}));
    EXPECT_EQ(identifiersIn(*set->adding(item(0x8, "b"))), (Names{"a", "b"}));
    EXPECT_EQ(identifiersIn(*set->adding(nullptr)), (Names{"a", "b"}));
    EXPECT_EQ(identifiersIn(*set->removing(item(0x8, "a").get())), (Names{"b"}));
    EXPECT_EQ(identifiersIn(*set->intersecting(*ItemSet::of({item(0x8, "b"), item(0x8, "z")}))), (Names{"b"}));
    EXPECT_EQ(identifiersIn(*set), (Names{"a", "b"}));
}

TEST(TheChildren, AreReplacedWholeWhenOneIsAdded) {
    const auto parent = item(0x20, "Dev");
    const auto before = parent->embeddedItems();
    const auto child = item(0x8, "8.a");
    parent->addEmbeddedItemsObject(child);
    EXPECT_TRUE(before->empty());
    EXPECT_EQ(parent->countOfEmbeddedItems(), 1U);
    EXPECT_EQ(parent->memberOfEmbeddedItems(item(0x8, "8.a")), child);
}

TEST(TheChildren, AreReplacedWholeWhenOneIsRemoved) {
    const auto parent = item(0x20, "Dev");
    parent->addEmbeddedItemsObject(item(0x8, "8.a"));
    const auto before = parent->embeddedItems();
    parent->removeEmbeddedItemsObject(item(0x8, "8.a"));
    EXPECT_EQ(before->size(), 1U);
    EXPECT_EQ(parent->countOfEmbeddedItems(), 0U);
}

TEST(TheChildren, AreCutToThoseOfAnotherSet) {
    const auto parent = item(0x20, "Dev");
    parent->setEmbeddedItems(ItemSet::of({item(0x8, "a"), item(0x8, "b")}));
    parent->intersectEmbeddedItems(ItemSet::of({item(0x8, "b")}));
    EXPECT_EQ(identifiersIn(*parent->embeddedItems()), (Names{"b"}));
    parent->intersectEmbeddedItems(nullptr);
    EXPECT_TRUE(parent->embeddedItems()->empty());
}

TEST(TheChildren, OfAnItemWithoutASetAreNone) {
    KSWItem bare;
    EXPECT_EQ(bare.countOfEmbeddedItems(), 0U);
    EXPECT_EQ(bare.enumeratorOfEmbeddedItems().nextObject(), nullptr);
    EXPECT_EQ(bare.memberOfEmbeddedItems(item(0x8, "a")), nullptr);
    bare.removeEmbeddedItemsObject(item(0x8, "a"));
    bare.intersectEmbeddedItems(ItemSet::of({}));
    EXPECT_EQ(bare.embeddedItems(), nullptr);
    bare.addEmbeddedItemsObject(item(0x8, "a"));
    EXPECT_EQ(bare.countOfEmbeddedItems(), 1U);
}

TEST(AnEnumerator, WalksTheSetAsItWas) {
    const auto parent = item(0x20, "Dev");
    parent->setEmbeddedItems(ItemSet::of({item(0x8, "a"), item(0x8, "b")}));
    auto enumerator = parent->enumeratorOfEmbeddedItems();
    parent->setEmbeddedItems(nullptr);
    EXPECT_EQ(enumerator.nextObject()->identifier(), "a");
    EXPECT_EQ(enumerator.nextObject()->identifier(), "b");
    EXPECT_EQ(enumerator.nextObject(), nullptr);
    EXPECT_EQ(enumerator.nextObject(), nullptr);
}

TEST(AnEnumerator, IsARangeOfWhatIsStillToCome) {
    const auto parent = item(0x20, "Dev");
    parent->setEmbeddedItems({item(0x8, "a"), item(0x8, "b")});
    auto enumerator = parent->enumeratorOfEmbeddedItems();
    enumerator.nextObject();
    Names names;
    for (const auto& child : enumerator) {
        names.push_back(child->identifier().value());
    }
    EXPECT_EQ(names, (Names{"b"}));
    const auto none = KSWItem().enumeratorOfEmbeddedItems();
    EXPECT_EQ(none.begin(), none.end());
}

TEST(TheChildren, AreTakenFromAListAndFromBraces) {
    const auto parent = item(0x20, "Dev");
    parent->setEmbeddedItems(std::vector<KSWItem::Pointer>{item(0x8, "a"), item(0x8, "b"), item(0x8, "c")});
    EXPECT_EQ(parent->countOfEmbeddedItems(), 3U);
    parent->intersectEmbeddedItems(std::vector<KSWItem::Pointer>{item(0x8, "a"), item(0x8, "b")});
    EXPECT_EQ(parent->countOfEmbeddedItems(), 2U);
    parent->intersectEmbeddedItems({item(0x8, "b")});
    EXPECT_EQ(identifiersIn(*parent->embeddedItems()), (Names{"b"}));
    parent->setEmbeddedItems({});
    ASSERT_NE(parent->embeddedItems(), nullptr);
    EXPECT_TRUE(parent->embeddedItems()->empty());
}

}  // namespace
