#include <gtest/gtest.h>

#include <kestrelwood/KSWItem.h>

#include "platform/base/limits.h"
#include "platform/host/log_capture.h"
#include "tests/model/item/items.h"

namespace {

using ksw::URL;
using ksw::host::LogCapture;
using ksw::host::LogLevel;
using ksw::test::item;

constexpr KSWItemType kLegacyAgent = KSWItemTypeLegacyBit | KSWItemTypeAgent;

struct AnItemsPath : testing::Test {
    KSWItem::Pointer app = item(0x2, "2.app");
    KSWItem::Pointer made = item(0x8, "8.a");

    AnItemsPath() { app->setUrl(URL::fileURL("/Applications/A.app", ksw::PathKind::Directory)); }
};

TEST_F(AnItemsPath, OfAnAgentInAnAppLeadsThroughTheApp) {
    made->setUrl(URL::fromString("Contents/Library/a.plist"));
    made->setContainer(app);
    EXPECT_EQ(made->fullPath(), "/Applications/A.app/Contents/Library/a.plist");
}

TEST_F(AnItemsPath, OfAnAgentIsTheRelativeOneEvenWhenItLooksAbsolute) {
    made->setUrl(URL::fileURL("/x.plist"));
    made->setContainer(app);
    EXPECT_EQ(made->fullPath(), "/Applications/A.app//x.plist");
}

TEST_F(AnItemsPath, OfAnAgentWithoutAnAppIsNone) {
    made->setUrl(URL::fileURL("/x/y.plist"));
    EXPECT_EQ(made->fullPath(), std::nullopt);
}

TEST_F(AnItemsPath, OfAnAgentWhoseParentHasNoURLIsNone) {
    made->setUrl(URL::fromString("y.plist"));
    app->setUrl(std::nullopt);
    made->setContainer(app);
    EXPECT_EQ(made->fullPath(), std::nullopt);
}

TEST_F(AnItemsPath, OfALegacyAgentIsItsURLs) {
    made->setType(kLegacyAgent);
    made->setUrl(URL::fileURL("/x/y.plist"));
    EXPECT_EQ(made->fullPath(), "/x/y.plist");
    made->setContainer(app);
    EXPECT_EQ(made->fullPath(), "/x/y.plist");
}

TEST_F(AnItemsPath, OfAnotherKindMayLeadThroughItsParent) {
    for (KSWItemType type : {KSWItemTypeGlimpse, KSWItemTypeApp, kLegacyAgent}) {
        const auto extension = item(type, "x");
        extension->setUrl(URL::fromString("Contents/x"));
        EXPECT_EQ(extension->fullPath(), "Contents/x");
        extension->setContainer(app);
        EXPECT_EQ(extension->fullPath(), "/Applications/A.app/Contents/x");
    }
}

TEST_F(AnItemsPath, WithoutURLIsNone) {
    made->setContainer(app);
    EXPECT_EQ(made->fullPath(), std::nullopt);
    EXPECT_EQ(item(0x800, "x")->fullPath(), std::nullopt);
}

TEST_F(AnItemsPath, LeadsThroughSeveralParents) {
    const auto inner = item(0x2, "2.inner");
    inner->setUrl(URL::fromString("Contents/Inner.app/"));
    inner->setContainer(app);
    made->setUrl(URL::fromString("Contents/a.plist"));
    made->setContainer(inner);
    EXPECT_EQ(made->fullPath(), "/Applications/A.app/Contents/Inner.app/Contents/a.plist");
}

TEST_F(AnItemsPath, OfItsOwnContainerIsItsURLsAndAFault) {
    const LogCapture log;
    made->setUrl(URL::fromString("y.plist"));
    made->setContainer(made);
    EXPECT_EQ(made->fullPath(), "y.plist");
    const std::string text = "KSWItem container points to self: " + made->description();
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, LogLevel::Fault);
    EXPECT_EQ(log.lines()[0].fullForm, text);
    EXPECT_EQ(log.lines()[0].publicForm, text);
    made->setContainer(nullptr);
}

TEST_F(AnItemsPath, EndsWhereParentsLeadRoundInACircle) {
    const auto other = item(0x2, "2.b");
    made->setUrl(URL::fromString("a"));
    other->setUrl(URL::fromString("b"));
    made->setContainer(other);
    other->setContainer(made);
    EXPECT_EQ(made->fullPath(), std::nullopt);
    made->setContainer(nullptr);
}

/// An item with this many parents below one another, each with a relative URL; the outermost has an absolute one.
std::vector<KSWItem::Pointer> chainOf(std::size_t parents) {
    std::vector<KSWItem::Pointer> chain{item(0x2, "2.root")};
    chain.front()->setUrl(URL::fileURL("/r"));
    while (chain.size() <= parents) {
        const auto next = item(0x2, "2." + std::to_string(chain.size()));
        next->setUrl(URL::fromString("p"));
        next->setContainer(chain.back());
        chain.push_back(next);
    }
    return chain;
}

TEST(TheLongestChainOfContainers, HasAPath) {
    EXPECT_EQ(chainOf(ksw::limits::kContainerChainMax).back()->fullPath(), "/r/p/p/p/p/p/p/p/p/p/p/p/p/p/p/p/p");
}

TEST(AChainOfContainers, OneLongerHasNone) {
    EXPECT_EQ(chainOf(ksw::limits::kContainerChainMax + 1).back()->fullPath(), std::nullopt);
}

}  // namespace
