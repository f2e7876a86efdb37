#include <gtest/gtest.h>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

namespace {

TEST(AnIdentifier, IsComposedOfTheKindAndTheComponent) {
    EXPECT_EQ(ComposedItemIdentifier(0x8, "my.agent.label"), "8.my.agent.label");
    EXPECT_EQ(ComposedItemIdentifier(0x10, "my.agent.label"), "16.my.agent.label");
    EXPECT_EQ(ComposedItemIdentifier(0x2, "my.app"), "2.my.app");
    EXPECT_EQ(ComposedItemIdentifier(0x800, ""), "2048.");
}

TEST(AnIdentifier, DropsProvenance) {
    EXPECT_EQ(ComposedItemIdentifier(0x10008, "x"), "8.x");
}

TEST(AnIdentifier, OfADeveloperOrAUserItemIsTheComponent) {
    EXPECT_EQ(ComposedItemIdentifier(0x20, "Some Dev"), "Some Dev");
    EXPECT_EQ(ComposedItemIdentifier(0x10001, "file:///x"), "file:///x");
}

TEST(AnIdentifier, NeedsAComponent) {
    EXPECT_EQ(ComposedItemIdentifier(0x8, std::nullopt), std::nullopt);
    EXPECT_EQ(ComposedItemIdentifier(0x20, std::nullopt), std::nullopt);
}

TEST(TheBaseOfAnIdentifier, StandsBehindTheFirstFullStop) {
    EXPECT_EQ(ItemIdentifierCopyBaseFromIdentifierAndType("8.a.b", 0x8), "a.b");
    EXPECT_EQ(ItemIdentifierCopyBaseFromIdentifierAndType(".a", 0x10008), "a");
}

TEST(TheBaseOfAnIdentifier, IsTheWholeWhenNothingStandsThere) {
    EXPECT_EQ(ItemIdentifierCopyBaseFromIdentifierAndType("8.", 0x8), "8.");
    EXPECT_EQ(ItemIdentifierCopyBaseFromIdentifierAndType("ab", 0x8), "ab");
    EXPECT_EQ(ItemIdentifierCopyBaseFromIdentifierAndType("", 0x8), "");
}

TEST(TheBaseOfAnIdentifier, OfAUserItemOrADeveloperIsTheWhole) {
    EXPECT_EQ(ItemIdentifierCopyBaseFromIdentifierAndType("1.2.3", 0x1), "1.2.3");
    EXPECT_EQ(ItemIdentifierCopyBaseFromIdentifierAndType("A. Dev", 0x20), "A. Dev");
}

TEST(AnItemsBaseIdentifier, ComesFromItsIdentifierAndType) {
    EXPECT_EQ(KSWItem::itemWithType(0x10008, "8.a.b")->baseIdentifier(), "a.b");
    EXPECT_EQ(KSWItem::itemWithType(0x20, "A. Dev")->baseIdentifier(), "A. Dev");
    EXPECT_EQ(KSWItem::itemWithType(0x8, std::nullopt)->baseIdentifier(), std::nullopt);
}

}  // namespace
