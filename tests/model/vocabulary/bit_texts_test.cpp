#include <gtest/gtest.h>

#include <kestrelwood/KSWTypes.h>

namespace {

TEST(TheFlags, HaveTheNumbersThatTheDaemonKnows) {
    EXPECT_EQ(KSWItemFlagLegacy, 0x1U);
    EXPECT_EQ(KSWItemFlagGlobal, 0x2U);
    EXPECT_EQ(KSWItemFlagCurated, 0x4U);
    EXPECT_EQ(KSWItemFlagManaged, 0x8U);
    EXPECT_EQ(KSWItemFlagProfileAdded, 0x10U);
    EXPECT_EQ(KSWItemFlagQDMAdded, 0x20U);
    EXPECT_EQ(KSWItemFlagSandboxed, 0x40U);
}

TEST(TheFlagsDescription, OfNoFlagsHasTwoBlanks) {
    EXPECT_EQ(KSWItemFlagsDescription(0), "[  ]");
    EXPECT_EQ(KSWItemFlagsDescription(0x80), "[  ]");
}

TEST(TheFlagsDescription, KeepsItsOwnOrder) {
    EXPECT_EQ(KSWItemFlagsDescription(0x7F),
              "[ legacy, profile added, QDM added, managed, global, curated, sandboxed ]");
}

TEST(TheFlagsDescription, NamesSeveralFlags) {
    EXPECT_EQ(KSWItemFlagsDescription(0x9), "[ legacy, managed ]");
}

TEST(TheFlagsDescription, NamesEachFlagAlone) {
    EXPECT_EQ(KSWItemFlagsDescription(0x1), "[ legacy ]");
    EXPECT_EQ(KSWItemFlagsDescription(0x2), "[ global ]");
    EXPECT_EQ(KSWItemFlagsDescription(0x4), "[ curated ]");
    EXPECT_EQ(KSWItemFlagsDescription(0x8), "[ managed ]");
    EXPECT_EQ(KSWItemFlagsDescription(0x10), "[ profile added ]");
    EXPECT_EQ(KSWItemFlagsDescription(0x20), "[ QDM added ]");
    EXPECT_EQ(KSWItemFlagsDescription(0x40), "[ sandboxed ]");
}

TEST(TheDispositions, HaveTheNumbersThatTheDaemonKnows) {
    EXPECT_EQ(KSWDispositionEnabled, 0x1U);
    EXPECT_EQ(KSWDispositionAllowed, 0x2U);
    EXPECT_EQ(KSWDispositionHidden, 0x4U);
    EXPECT_EQ(KSWDispositionNotified, 0x8U);
    EXPECT_EQ(KSWDispositionPendingAuthorization, 0x10U);
}

TEST(TheDispositionDescription, SaysOneOfTwoWordsForEachBit) {
    EXPECT_EQ(KSWDispositionDescription(0x0), "[disabled, disallowed, visible, not notified]");
    EXPECT_EQ(KSWDispositionDescription(0x3), "[enabled, allowed, visible, not notified]");
    EXPECT_EQ(KSWDispositionDescription(0xC), "[disabled, disallowed, hidden, notified]");
    EXPECT_EQ(KSWDispositionDescription(0xF), "[enabled, allowed, hidden, notified]");
}

TEST(TheDispositionDescription, AppendsThatAuthorizationIsPending) {
    EXPECT_EQ(KSWDispositionDescription(0x13), "[enabled, allowed, visible, not notified] (pending authorization)");
}

TEST(ADisposition, IsLaunchableWhenEnabledAndAllowed) {
    EXPECT_TRUE(KSWDispositionIsLaunchable(0x3));
    EXPECT_TRUE(KSWDispositionIsLaunchable(0x13));
    EXPECT_TRUE(KSWDispositionIsLaunchable(0x1F));
}

TEST(ADisposition, IsNotLaunchableWithOneOfTheTwo) {
    for (KSWDisposition disposition : {0x0U, 0x1U, 0x2U, 0x1CU, 0x1DU, 0x1EU}) {
        EXPECT_FALSE(KSWDispositionIsLaunchable(disposition)) << disposition;
    }
}

}  // namespace
