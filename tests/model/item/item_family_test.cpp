#include <gtest/gtest.h>

#include <kestrelwood/KSWItem.h>

#include "tests/model/item/items.h"

namespace {

using ksw::ItemSet;
using ksw::test::item;
using Names = std::vector<std::string>;

Names walk(KSWItem& from, KSWFamilyTreeOptions options) {
    Names names;
    from.enumerateFamilyTreeWithOptions(
        options, [&names](const KSWItem::Pointer& visited) { names.push_back(visited->identifier().value()); });
    return names;
}

/// dev > app > (agent, daemon); dev > glimpse.
struct AFamily : testing::Test {
    KSWItem::Pointer dev = item(0x20, "dev");
    KSWItem::Pointer app = item(0x2, "app");
    KSWItem::Pointer agent = item(0x8, "agent");
    KSWItem::Pointer daemon = item(0x10, "daemon");
    KSWItem::Pointer glimpse = item(0x800, "glimpse");

    AFamily() {
        dev->setDeveloperName("Dev");
        app->setContainer(dev);
        glimpse->setContainer(dev);
        agent->setContainer(app);
        daemon->setContainer(app);
    }
};

TEST_F(AFamily, LinksBothWays) {
    EXPECT_EQ(agent->container(), app);
    EXPECT_EQ(app->countOfEmbeddedItems(), 2U);
    EXPECT_EQ(app->memberOfEmbeddedItems(agent), agent);
}

TEST_F(AFamily, LosesAChildThatLeavesItsContainer) {
    agent->setContainer(nullptr);
    EXPECT_EQ(agent->container(), nullptr);
    EXPECT_EQ(app->memberOfEmbeddedItems(agent), nullptr);
    EXPECT_EQ(app->countOfEmbeddedItems(), 1U);
}

TEST_F(AFamily, KeepsAChildThatMovesInItsFormerParentToo) {
    agent->_setContainer(dev);
    EXPECT_EQ(agent->container(), dev);
    EXPECT_EQ(app->memberOfEmbeddedItems(agent), agent);
    EXPECT_EQ(dev->memberOfEmbeddedItems(agent), agent);
}

TEST_F(AFamily, DoesNotOwnItsParents) {
    dev.reset();
    EXPECT_EQ(app->container(), nullptr);
}

TEST_F(AFamily, IsWalkedParentsFirst) {
    EXPECT_EQ(walk(*dev, 0), (Names{"dev", "app", "agent", "daemon", "glimpse"}));
    EXPECT_EQ(walk(*app, 0), (Names{"app", "agent", "daemon"}));
}

TEST_F(AFamily, IsWalkedChildrenFirst) {
    EXPECT_EQ(walk(*dev, KSWFamilyTreeChildrenFirst), (Names{"agent", "daemon", "app", "glimpse", "dev"}));
}

TEST_F(AFamily, IsWalkedFromItsRoot) {
    EXPECT_EQ(walk(*daemon, KSWFamilyTreeFromRoot), (Names{"dev", "app", "agent", "daemon", "glimpse"}));
    EXPECT_EQ(walk(*daemon, KSWFamilyTreeFromRoot | KSWFamilyTreeChildrenFirst),
              (Names{"agent", "daemon", "app", "glimpse", "dev"}));
}

TEST_F(AFamily, IsWalkedFromItsRootUnlessToldOtherwise) {
    Names names;
    agent->enumerateFamilyTreeUsingBlock(
        [&names](const KSWItem::Pointer& visited) { names.push_back(visited->identifier().value()); });
    EXPECT_EQ(names, (Names{"dev", "app", "agent", "daemon", "glimpse"}));
}

TEST_F(AFamily, OfTheUnknownDeveloperIsWalkedBelowThatRecordOnly) {
    dev->setDeveloperName(std::nullopt);
    EXPECT_EQ(walk(*app, KSWFamilyTreeFromRoot), (Names{"app", "agent", "daemon"}));
    EXPECT_EQ(walk(*agent, KSWFamilyTreeFromRoot), (Names{"app", "agent", "daemon"}));
    EXPECT_EQ(walk(*glimpse, KSWFamilyTreeFromRoot), (Names{"glimpse"}));
    EXPECT_EQ(walk(*dev, KSWFamilyTreeFromRoot), (Names{"dev", "app", "agent", "daemon", "glimpse"}));
}

TEST_F(AFamily, ThatLeadsBackIntoItselfIsWalkedOnce) {
    dev->setContainer(daemon);
    EXPECT_EQ(walk(*dev, 0), (Names{"dev", "app", "agent", "daemon", "glimpse"}));
    EXPECT_EQ(walk(*app, KSWFamilyTreeFromRoot).size(), 5U);
    dev->setContainer(nullptr);
}

TEST(AnItemThatIsItsOwnContainer, IsWalkedOnce) {
    const auto made = item(0x2, "a");
    made->setContainer(made);
    EXPECT_EQ(walk(*made, KSWFamilyTreeFromRoot), (Names{"a"}));
    EXPECT_EQ(walk(*made, KSWFamilyTreeChildrenFirst), (Names{"a"}));
    made->setContainer(nullptr);
    EXPECT_EQ(made->countOfEmbeddedItems(), 0U);
}

TEST(ADeepFamily, IsWalkedToTheBottom) {
    constexpr std::size_t depth = 2'000;
    std::vector<KSWItem::Pointer> chain;
    for (std::size_t level = 0; level < depth; ++level) {
        chain.push_back(item(0x2, std::to_string(level)));
        if (level > 0) {
            chain[level - 1]->addEmbeddedItemsObject(chain[level]);
        }
    }
    EXPECT_EQ(walk(*chain.front(), 0).size(), depth);
    EXPECT_EQ(walk(*chain.front(), KSWFamilyTreeChildrenFirst).front(), std::to_string(depth - 1));
}

TEST(ADeepFamily, GoesWithoutNestingItsDestructors) {
    auto root = item(0x2, "root");
    KSWItem* bottom = root.get();
    for (int level = 0; level < 300'000; ++level) {
        const auto child = item(0x2, "x");
        bottom->addEmbeddedItemsObject(child);
        bottom = child.get();
    }
    const std::weak_ptr<KSWItem> last = bottom->weak_from_this();
    root.reset();
    EXPECT_TRUE(last.expired());
}

TEST_F(AFamily, IsAllowedWhenEveryChildIs) {
    EXPECT_FALSE(app->isAggregateAllowed());
    agent->setAllowed(true);
    EXPECT_FALSE(app->isAggregateAllowed());
    daemon->setAllowed(true);
    EXPECT_TRUE(app->isAggregateAllowed());
    EXPECT_FALSE(app->isAllowed());
}

TEST_F(AFamily, WithoutChildrenIsAllowedAndNeitherNotifiedNorManaged) {
    EXPECT_TRUE(agent->isAggregateAllowed());
    EXPECT_FALSE(agent->isAggregateNotified());
    EXPECT_FALSE(agent->isAggregateManaged());
    EXPECT_FALSE(agent->containsDaemon());
    EXPECT_TRUE(KSWItem().isAggregateAllowed());
}

TEST_F(AFamily, IsNotifiedOrManagedWhenAnyChildIs) {
    EXPECT_FALSE(app->isAggregateNotified());
    EXPECT_FALSE(app->isAggregateManaged());
    daemon->setNotified(true);
    agent->setManaged(true);
    EXPECT_TRUE(app->isAggregateNotified());
    EXPECT_TRUE(app->isAggregateManaged());
}

TEST_F(AFamily, SetsABitOnEveryDirectChildOnly) {
    dev->setAggregateAllowed(true);
    dev->setAggregateNotified(true);
    dev->setAggregateManaged(true);
    for (const auto& child : {app, glimpse}) {
        EXPECT_EQ(child->disposition(), KSWDispositionAllowed | KSWDispositionNotified);
        EXPECT_EQ(child->flags(), KSWItemFlagManaged);
    }
    for (const auto& other : {dev, agent, daemon}) {
        EXPECT_EQ(other->disposition(), 0U);
        EXPECT_EQ(other->flags(), 0U);
    }
    dev->setAggregateAllowed(false);
    EXPECT_EQ(app->disposition(), KSWDispositionNotified);
}

TEST_F(AFamily, ContainsADaemonAmongItsDirectChildrenOnly) {
    EXPECT_TRUE(app->containsDaemon());
    EXPECT_FALSE(dev->containsDaemon());
}

}  // namespace
