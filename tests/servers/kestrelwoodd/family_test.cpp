#include "servers/kestrelwoodd/family.h"

#include <gtest/gtest.h>

namespace ksw::daemon::test {
namespace {

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;
constexpr KSWItemType kLegacyAgent = KSWItemTypeAgent | KSWItemTypeLegacyBit;

ItemPointer itemOf(KSWItemType type, const std::string& identifier, const std::vector<ItemPointer>& children = {}) {
    ItemPointer item = KSWItem::initWithType(type, identifier);
    item->setDisposition(kLaunchable);
    adopt(item, children);
    return item;
}

/// A developer with an application in which there is an agent, beside two hundred others each.
class ALargeFamily : public testing::Test {
protected:
    ALargeFamily() {
        developer_->setDeveloperName("Maker");
        fill(application_, agent_);
        fill(developer_, application_);
    }

    static void fill(const ItemPointer& container, const ItemPointer& child) {
        std::vector<ItemPointer> children;
        for (int number = 0; number < 200; ++number) {
            children.push_back(itemOf(kLegacyAgent, "8." + std::to_string(number)));
        }
        children.insert(children.begin() + 100, child);
        adopt(container, children);
    }
    /// The child of this number beside those that the tests are about.
    static ItemPointer other(const ItemPointer& container, std::size_t number) {
        return *std::next(container->embeddedItems()->begin(), static_cast<std::ptrdiff_t>(number));
    }
    /// What is said of the agent, and what is said of the families that it belongs to.
    static void expectSame(const KSWItem& copy, const KSWItem& item) {
        EXPECT_EQ(copy.effectiveDisposition(), item.effectiveDisposition());
        for (ItemPointer one = copy.container(), other = item.container(); other != nullptr;
             one = one->container(), other = other->container()) {
            ASSERT_NE(one, nullptr);
            EXPECT_EQ(one->identifier(), other->identifier());
            EXPECT_EQ(one->uuid(), other->uuid());
            EXPECT_EQ(one->effectiveDisposition(), other->effectiveDisposition());
            EXPECT_EQ(one->isAggregateAllowed(), other->isAggregateAllowed());
            EXPECT_EQ(one->isAggregateNotified(), other->isAggregateNotified());
            EXPECT_EQ(one->isAggregateManaged(), other->isAggregateManaged());
            EXPECT_EQ(one->containsDaemon(), other->containsDaemon());
        }
    }

    const ItemPointer agent_ = itemOf(kLegacyAgent, "8.mine");
    const ItemPointer application_ = itemOf(KSWItemTypeApp, "2.application");
    const ItemPointer developer_ = itemOf(KSWItemTypeDeveloper, "Maker");
};

TEST_F(ALargeFamily, ComesDownToTheItemsContainersWhereNobodyDecidesAnything) {
    const ItemPointer copy = withDecidingFamily(agent_);
    EXPECT_NE(copy, agent_);
    EXPECT_EQ(copy->uuid(), agent_->uuid());
    expectSame(*copy, *agent_);
    EXPECT_EQ(copy->container()->countOfEmbeddedItems(), 1U);
    EXPECT_EQ(copy->container()->container()->countOfEmbeddedItems(), 1U);
}

TEST_F(ALargeFamily, ComesDownToOneForEachThingThatItSays) {
    for (const std::size_t number : {3U, 150U}) {
        other(application_, number)->setAllowed(false);
        other(application_, number + 1)->setNotified(true);
        other(developer_, number)->setManaged(true);
        other(developer_, number)->setNotified(true);
        other(developer_, number + 2)->setType(KSWItemTypeDaemon);
    }
    const ItemPointer copy = withDecidingFamily(agent_);
    expectSame(*copy, *agent_);
    EXPECT_EQ(copy->container()->countOfEmbeddedItems(), 3U);
    EXPECT_EQ(copy->container()->container()->countOfEmbeddedItems(), 3U);
}

TEST_F(ALargeFamily, NeedsNobodyForWhatTheItemSaysItself) {
    agent_->setAllowed(false);
    other(application_, 3)->setAllowed(false);
    const ItemPointer copy = withDecidingFamily(agent_);
    expectSame(*copy, *agent_);
    EXPECT_EQ(copy->container()->countOfEmbeddedItems(), 1U);
}

TEST_F(ALargeFamily, ComesWithAllThatTheItemContains) {
    const ItemPointer copy = withDecidingFamily(application_);
    EXPECT_EQ(copy->countOfEmbeddedItems(), 201U);
    EXPECT_EQ(copy->container()->countOfEmbeddedItems(), 1U);
    const ItemPointer developer = withDecidingFamily(developer_);
    EXPECT_EQ(developer->countOfEmbeddedItems(), 201U);
}

TEST_F(ALargeFamily, IsLeftAsItIs) {
    ASSERT_NE(withDecidingFamily(agent_), nullptr);
    EXPECT_EQ(agent_->container(), application_);
    EXPECT_EQ(application_->countOfEmbeddedItems(), 201U);
    EXPECT_EQ(developer_->countOfEmbeddedItems(), 201U);
}

}  // namespace
}  // namespace ksw::daemon::test
