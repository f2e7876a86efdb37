#include <gtest/gtest.h>

#include <kestrelwood/KSWItem.h>

#include "tests/model/item/items.h"

namespace {

using ksw::test::fullItem;
using ksw::test::item;

struct Special : KSWItem {};

TEST(ANewItem, HasARandomUUIDItsIdentifierAndAnEmptySetOfChildren) {
    const auto first = KSWItem::initWithType(0x8, "8.a");
    const auto second = KSWItem::initWithType(0x8, "8.a");
    EXPECT_TRUE(first->uuid().has_value());
    EXPECT_NE(first->uuid(), second->uuid());
    EXPECT_EQ(first->identifier(), "8.a");
    ASSERT_NE(first->embeddedItems(), nullptr);
    EXPECT_TRUE(first->embeddedItems()->empty());
}

TEST(ANewItem, HasNothingElse) {
    const auto made = item(0x8, "8.a");
    EXPECT_EQ(made->flags(), 0U);
    EXPECT_EQ(made->disposition(), 0U);
    EXPECT_EQ(made->name(), std::nullopt);
    EXPECT_EQ(made->developerName(), "");
    EXPECT_EQ(made->container(), nullptr);
    EXPECT_EQ(made->url(), std::nullopt);
    EXPECT_EQ(made->sha256(), std::nullopt);
    EXPECT_EQ(made->programArguments(), std::nullopt);
    EXPECT_EQ(made->modificationDate(), 0);
    EXPECT_EQ(made->generation(), 0);
    EXPECT_FALSE(made->isEditable());
    EXPECT_FALSE(made->canHide());
}

TEST(ANewItem, TakesItsTypeUnchecked) {
    EXPECT_EQ(item(0x18, "x")->type(), 0x18U);
    EXPECT_EQ(item(0, "x")->type(), 0U);
}

TEST(ANewItem, OfALegacyTypeHasTheLegacyFlag) {
    EXPECT_EQ(item(0x10008, "8.a")->flags(), KSWItemFlagLegacy);
    EXPECT_EQ(item(0x20008, "8.a")->flags(), 0U);
}

TEST(AFactory, MakesItemsOfTheClassItIsAskedFor) {
    const std::shared_ptr<Special> special = KSWItem::itemWithType<Special>(0x8, "8.a");
    EXPECT_EQ(special->type(), 0x8U);
    EXPECT_EQ(KSWItem::itemWithType(0x8, std::nullopt)->identifier(), std::nullopt);
}

TEST(ABareItem, HasNoUUIDAndNoSetOfChildren) {
    const KSWItem bare;
    EXPECT_EQ(bare.uuid(), std::nullopt);
    EXPECT_EQ(bare.identifier(), std::nullopt);
    EXPECT_EQ(bare.embeddedItems(), nullptr);
}

TEST(TwoItems, WithTheSameIdentifierAreEqualAndHashAlike) {
    const auto left = item(0x8, "8.a");
    const auto right = item(0x10, "8.a");
    EXPECT_NE(left->uuid(), right->uuid());
    EXPECT_TRUE(left->isEqual(right));
    EXPECT_TRUE(left->isEqual(*right));
    EXPECT_EQ(left->hash(), right->hash());
}

TEST(TwoItems, WithDifferentIdentifiersAreNotEqual) {
    EXPECT_FALSE(item(0x8, "8.a")->isEqual(item(0x8, "8.A")));
}

TEST(AnItem, EqualsAnItemOfASubclass) {
    EXPECT_TRUE(item(0x8, "8.a")->isEqual(KSWItem::itemWithType<Special>(0x8, "8.a")));
}

TEST(AnItem, WithoutIdentifierEqualsNothing) {
    const auto without = item(0x8, std::nullopt);
    EXPECT_FALSE(without->isEqual(item(0x8, std::nullopt)));
    EXPECT_FALSE(without->isEqual(without));
    EXPECT_FALSE(item(0x8, "8.a")->isEqual(without));
}

TEST(AnItem, DoesNotEqualNothing) {
    EXPECT_FALSE(item(0x8, "8.a")->isEqual(nullptr));
}

TEST(ACopy, HasTheSameUUIDAndNoFlags) {
    const auto source = item(0x10008, "8.a");
    source->setFlags(0x9);
    source->setIsResolvedURLStale(true);
    const auto copy = source->copy();
    EXPECT_EQ(copy->uuid(), source->uuid());
    EXPECT_EQ(copy->flags(), 0U);
    EXPECT_FALSE(copy->isResolvedURLStale());
    EXPECT_EQ(source->flags(), 0x9U);
}

TEST(ACopy, HasAllOtherValues) {
    const auto source = fullItem();
    const auto copy = source->copyWithZone();
    EXPECT_EQ(copy->type(), source->type());
    EXPECT_EQ(copy->identifier(), source->identifier());
    EXPECT_EQ(copy->url(), source->url());
    EXPECT_EQ(copy->sha256(), source->sha256());
    EXPECT_EQ(copy->executablePath(), source->executablePath());
    EXPECT_EQ(copy->programArguments(), source->programArguments());
    EXPECT_EQ(copy->name(), source->name());
    EXPECT_EQ(copy->developerName(), source->developerName());
    EXPECT_EQ(copy->teamIdentifier(), source->teamIdentifier());
    EXPECT_EQ(copy->designatedRequirement(), source->designatedRequirement());
    EXPECT_EQ(copy->lightweightRequirement(), source->lightweightRequirement());
    EXPECT_EQ(copy->bookmark(), source->bookmark());
    EXPECT_EQ(copy->bundleIdentifier(), source->bundleIdentifier());
    EXPECT_EQ(copy->associatedBundleIdentifiers(), source->associatedBundleIdentifiers());
    EXPECT_EQ(copy->generation(), source->generation());
    EXPECT_EQ(copy->modificationDate(), source->modificationDate());
    EXPECT_EQ(copy->executableModificationDate(), source->executableModificationDate());
    EXPECT_EQ(copy->disposition(), source->disposition());
    EXPECT_EQ(copy->isEditable(), source->isEditable());
    EXPECT_EQ(copy->canHide(), source->canHide());
}

TEST(ACopy, HasTheParentAndTheChildrenThatStillNameTheSource) {
    const auto parent = item(0x20, "Dev");
    const auto source = item(0x2, "2.a");
    const auto child = item(0x8, "8.c");
    source->setContainer(parent);
    child->setContainer(source);
    const auto copy = source->copy();
    EXPECT_EQ(copy->container(), parent);
    EXPECT_EQ(copy->countOfEmbeddedItems(), 1U);
    EXPECT_EQ(copy->memberOfEmbeddedItems(child), child);
    EXPECT_EQ(child->container(), source);
    EXPECT_EQ(parent->countOfEmbeddedItems(), 1U);
}

TEST(ACopy, ChangesApartFromItsSource) {
    const auto source = item(0x2, "2.a");
    const auto copy = source->copy();
    copy->setName("other");
    copy->addEmbeddedItemsObject(item(0x8, "8.c"));
    EXPECT_EQ(source->name(), std::nullopt);
    EXPECT_EQ(source->countOfEmbeddedItems(), 0U);
}

TEST(ACopy, OfASubclassIsAPlainItem) {
    const auto copy = KSWItem::itemWithType<Special>(0x8, "8.a")->copy();
    EXPECT_TRUE((std::is_same_v<decltype(copy), const std::shared_ptr<KSWItem>>));
}

}  // namespace
