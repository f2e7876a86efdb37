// Who owns what among decoded objects: cycles, weak parents, the order of hooks, lifetimes.
#include <gtest/gtest.h>

#include "tests/platform/archive/node.h"

namespace ksw::archive {
namespace {

constexpr ReadOptions kCycles{.cycles = Cycles::Allowed};

/// Checks that no node outlives its test.
class AnObjectGraph : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(Node::living, 0); }
};

/// A parent with kids that refer to it weakly.
Data familyArchive() {
    auto parent = node("parent");
    parent->kids = std::vector{node("one"), node("two")};
    for (const auto& kid : *parent->kids) {
        kid->parent = parent;
    }
    return archived(*parent);
}

TEST_F(AnObjectGraph, WithACycleNeedsLeave) {
    EXPECT_EQ(readingFailure(familyArchive()), "root.kids[0].parent: object refers to itself");
    EXPECT_EQ(readingFailure(familyArchive(), kCycles), "read");
}

TEST_F(AnObjectGraph, LinksParentsAndKids) {
    const auto read = readNode(familyArchive(), kCycles);
    ASSERT_TRUE(read.ok()) << read.error().description();
    for (const auto& kid : *read->root->kids) {
        EXPECT_EQ(kid->parent.lock().get(), read->root.get());
    }
}

TEST_F(AnObjectGraph, LivesAsLongAsItsRootIsHeld) {
    std::shared_ptr<Node> root;
    {
        auto kid = node("kid");
        auto parent = node("parent");
        kid->parent = parent;
        auto read = readNode(archived(*kid));
        ASSERT_TRUE(read.ok()) << read.error().description();
        root = read->root;
    }
    ASSERT_NE(root->parent.lock(), nullptr);
    EXPECT_EQ(root->parent.lock()->name, "parent");
}

TEST_F(AnObjectGraph, LivesAsLongAsAnOwnedObjectIsHeld) {
    std::shared_ptr<Node> kid;
    {
        const auto read = readNode(familyArchive(), kCycles);
        ASSERT_TRUE(read.ok()) << read.error().description();
        kid = read->owned(read->root->kids->front());
    }
    ASSERT_NE(kid->parent.lock(), nullptr);
    EXPECT_EQ(kid->parent.lock()->kids->size(), 2U);
}

TEST_F(AnObjectGraph, LeavesKidsToAnOwnerThatOutlivesIt) {
    std::shared_ptr<Node> parent;
    {
        auto read = readNode(familyArchive(), kCycles);
        ASSERT_TRUE(read.ok()) << read.error().description();
        parent = read->root->kids->front()->parent.lock();
    }
    ASSERT_TRUE(parent->kids.has_value());
    EXPECT_EQ(parent->kids->size(), 2U);
}

TEST_F(AnObjectGraph, OfAnObjectInItsOwnKidsDoesNotLeak) {
    auto self = node("self");
    self->kids = std::vector{node("other"), self};
    const Data bytes = archived(*self);
    self->kids.reset();
    {
        const auto read = readNode(bytes, kCycles);
        ASSERT_TRUE(read.ok()) << read.error().description();
        EXPECT_EQ((*read->root->kids)[1].get(), read->root.get());
        EXPECT_GT(Node::living, 1);
    }
    self.reset();
}

TEST_F(AnObjectGraph, OfOwnersInACircleDoesNotLeak) {
    auto first = node("first");
    first->partner = node("second");
    first->partner->partner = node("third");
    first->partner->partner->partner = first;
    const Data bytes = archived(*first);
    first->partner->partner->partner.reset();
    EXPECT_EQ(readingFailure(bytes), "root.partner.partner.partner: object refers to itself");
    const auto read = readNode(bytes, kCycles);
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_EQ(read->root->partner->partner->partner.get(), read->root.get());
}

TEST_F(AnObjectGraph, WithACircleDoesNotLeakWhenAHookRefusesIt) {
    auto first = node("first");
    first->partner = node("second");
    first->partner->partner = first;
    const Data bytes = archived(*first);
    first->partner.reset();
    Node::onFinish = [](Node&, const FinishContext&) { return Status(Error("Domain", 1, "refused")); };
    EXPECT_EQ(readingFailure(bytes, kCycles), "root: refused");
    Node::onFinish = nullptr;
}

TEST_F(AnObjectGraph, IsLinkedBeforeTheFirstHookRuns) {
    std::vector<std::string> order;
    Node::onFinish = [&order](Node& one, const FinishContext&) {
        order.push_back(*one.name + ":" + std::to_string(one.kidsWhenFinished));
        return Status();
    };
    const auto read = readNode(familyArchive(), kCycles);
    Node::onFinish = nullptr;
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_EQ(order, (std::vector<std::string>{"parent:2", "one:0", "two:0"}));
}

/// Nodes side by side in one list, each of which owns the one before it.
Data chainArchive(std::size_t count) {
    auto top = node("top");
    top->kids.emplace();
    std::shared_ptr<Node> last;
    for (std::size_t i = 0; i < count; ++i) {
        auto next = std::make_shared<Node>();
        next->partner = std::exchange(last, next);
        top->kids->push_back(next);
    }
    return archived(*top);
}

TEST_F(AnObjectGraph, BoundsChainsOfOwners) {
    EXPECT_EQ(readingFailure(chainArchive(limits::kDepthMax - 1)), "read");
    EXPECT_EQ(readingFailure(chainArchive(limits::kDepthMax)), "root: objects own each other too deeply");
}

TEST_F(AnObjectGraph, MayShareOneObjectAmongManyOwners) {
    auto shared = node("shared");
    auto top = node("top");
    top->kids.emplace();
    for (int i = 0; i < 1000; ++i) {
        top->kids->push_back(node("owner"));
        top->kids->back()->partner = shared;
    }
    const auto read = readNode(archived(*top));
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_EQ(read->root->kids->back()->partner, read->root->kids->front()->partner);
}

}  // namespace
}  // namespace ksw::archive
