#include "model/item/item_request_copies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/base/limits.h"

namespace {

using ksw::copiesForRequest;
using ksw::ItemCopies;
using ksw::ItemSet;
using testing::ElementsAre;

KSWItem::Pointer item(KSWItemType type, std::string identifier) {
    return KSWItem::itemWithType(type, std::move(identifier));
}

/// Two agents of an application, which a developer made.
struct CopiesForARequest : testing::Test {
    KSWItem::Pointer developer = item(0x20, "Dev");
    KSWItem::Pointer app = item(0x2, "2.app");
    KSWItem::Pointer first = item(0x8, "8.first");
    KSWItem::Pointer second = item(0x8, "8.second");

    CopiesForARequest() {
        app->setContainer(developer);
        first->setContainer(app);
        second->setContainer(app);
    }
};

TEST_F(CopiesForARequest, HaveTheItemsFieldsAndFlags) {
    first->setFlags(0x9);
    first->setName("First");
    first->setGeneration(7);
    const ItemCopies copies = copiesForRequest(*ItemSet::of({first}));
    ASSERT_EQ(copies.items.size(), 1U);
    const KSWItem& copy = *copies.items[0];
    EXPECT_NE(&copy, first.get());
    EXPECT_EQ(copy.uuid(), first->uuid());
    EXPECT_EQ(copy.identifier(), "8.first");
    EXPECT_EQ(copy.flags(), 0x9U);
    EXPECT_EQ(copy.name(), "First");
    EXPECT_EQ(copy.generation(), 7);
}

TEST_F(CopiesForARequest, HaveTheContainersWithoutOtherChildren) {
    const ItemCopies copies = copiesForRequest(*ItemSet::of({first}));
    EXPECT_EQ(copies.all.size(), 3U);
    const auto container = copies.items[0]->container();
    EXPECT_EQ(container->identifier(), "2.app");
    EXPECT_EQ(container->countOfEmbeddedItems(), 0U);
    EXPECT_EQ(container->container()->identifier(), "Dev");
    EXPECT_EQ(container->container()->container(), nullptr);
}

TEST_F(CopiesForARequest, ShareTheContainersThatTheItemsShare) {
    const ItemCopies copies = copiesForRequest(*ItemSet::of({second, first}));
    EXPECT_EQ(copies.all.size(), 4U);
    EXPECT_EQ(copies.items[0]->identifier(), "8.second");
    EXPECT_EQ(copies.items[0]->container(), copies.items[1]->container());
}

TEST_F(CopiesForARequest, HaveTheItemsOwnDescendants) {
    const ItemCopies copies = copiesForRequest(*ItemSet::of({developer}));
    EXPECT_EQ(copies.all.size(), 4U);
    const auto child = copies.items[0]->memberOfEmbeddedItems(app);
    ASSERT_NE(child, nullptr);
    EXPECT_NE(child, app);
    EXPECT_EQ(child->container(), copies.items[0]);
    EXPECT_EQ(child->countOfEmbeddedItems(), 2U);
    EXPECT_EQ(child->memberOfEmbeddedItems(second)->container(), child);
}

TEST_F(CopiesForARequest, LinkAnItemOfTheSetToItsContainerInTheSet) {
    const ItemCopies copies = copiesForRequest(*ItemSet::of({first, app}));
    EXPECT_EQ(copies.all.size(), 4U);
    EXPECT_EQ(copies.items[0]->container(), copies.items[1]);
    EXPECT_EQ(copies.items[1]->memberOfEmbeddedItems(first), copies.items[0]);
}

TEST_F(CopiesForARequest, LeaveTheFamilyAsItWas) {
    static_cast<void>(copiesForRequest(*ItemSet::of({first, app})));
    EXPECT_EQ(app->countOfEmbeddedItems(), 2U);
    EXPECT_EQ(first->container(), app);
    EXPECT_EQ(app->container(), developer);
}

TEST_F(CopiesForARequest, HaveNoSetOfChildrenWhereThereIsNone) {
    first->setEmbeddedItems(ItemSet::Pointer());
    EXPECT_EQ(copiesForRequest(*ItemSet::of({first})).items[0]->embeddedItems(), nullptr);
    EXPECT_NE(copiesForRequest(*ItemSet::of({second})).items[0]->embeddedItems(), nullptr);
}

TEST_F(CopiesForARequest, OfAnItemThatIsItsOwnContainerAndChildEnd) {
    first->setContainer(first);
    const ItemCopies copies = copiesForRequest(*ItemSet::of({first}));
    EXPECT_EQ(copies.items[0]->container(), copies.items[0]);
    EXPECT_EQ(copies.items[0]->memberOfEmbeddedItems(first), copies.items[0]);
    first->setContainer(nullptr);
}

TEST_F(CopiesForARequest, TakeOneContainerMoreThanAReaderTakesOfALongerChain) {
    std::vector<KSWItem::Pointer> chain{developer};
    for (int number = 0; number < 40; ++number) {
        chain.push_back(item(0x20, "Dev" + std::to_string(number)));
        chain[chain.size() - 2]->setContainer(chain.back());
    }
    const ItemCopies copies = copiesForRequest(*ItemSet::of({first}));
    EXPECT_EQ(copies.all.size(), 1 + ksw::limits::kContainerChainMax + 1);
}

}  // namespace
