#include "model/vocabulary/item_type.h"

#include <gtest/gtest.h>

namespace {

constexpr KSWItemType kSingleKinds[] = {0x1, 0x2, 0x4, 0x8, 0x10, 0x20, 0x40, 0x80, 0x100, 0x200, 0x400, 0x800};

TEST(TheConstants, HaveTheNumbersThatTheDaemonKnows) {
    EXPECT_EQ(KSWItemTypeUserItem, 0x1U);
    EXPECT_EQ(KSWItemTypeApp, 0x2U);
    EXPECT_EQ(KSWItemTypeLoginItem, 0x4U);
    EXPECT_EQ(KSWItemTypeAgent, 0x8U);
    EXPECT_EQ(KSWItemTypeDaemon, 0x10U);
    EXPECT_EQ(KSWItemTypeDeveloper, 0x20U);
    EXPECT_EQ(KSWItemTypeLodestar, 0x40U);
    EXPECT_EQ(KSWItemTypeShelfTile, 0x80U);
    EXPECT_EQ(KSWItemTypeInputMethod, 0x100U);
    EXPECT_EQ(KSWItemTypeSmartCard, 0x200U);
    EXPECT_EQ(KSWItemTypeColorPicker, 0x400U);
    EXPECT_EQ(KSWItemTypeGlimpse, 0x800U);
    EXPECT_EQ(KSWItemTypeAll, 0xFFFU);
    EXPECT_EQ(KSWItemTypeLegacyBit, 0x10000U);
    EXPECT_EQ(KSWItemTypeManagedBit, 0x20000U);
    EXPECT_EQ(KSWItemTypeCuratedBit, 0x80000U);
    EXPECT_EQ(KSWItemTypeProfileAddedBit, 0x100000U);
    EXPECT_EQ(KSWItemTypeGlobalBit, 0x200000U);
    EXPECT_EQ(KSWFamilyTreeFromRoot, 0x1U);
    EXPECT_EQ(KSWFamilyTreeChildrenFirst, 0x2U);
}

TEST(TheConfigurationKeys, AreTheirOwnNames) {
    EXPECT_EQ(KSWConfigLabel, "KSWConfigLabel");
    EXPECT_EQ(KSWConfigArguments, "KSWConfigArguments");
    EXPECT_EQ(KSWConfigExecutablePath, "KSWConfigExecutablePath");
    EXPECT_EQ(KSWConfigBundleIdentifiers, "KSWConfigBundleIdentifiers");
    EXPECT_EQ(KSWConfigBundleProgram, "KSWConfigBundleProgram");
    EXPECT_EQ(KSWConfigSHA256Checksum, "KSWConfigSHA256Checksum");
}

TEST(TheBaseDescription, NamesEachKind) {
    EXPECT_EQ(KSWItemTypeBaseDescription(0x1), "user item");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x2), "app");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x4), "login item");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x8), "agent");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x10), "daemon");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x20), "developer");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x40), "lodestar");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x80), "shelf tile");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x100), "input method");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x200), "smart card");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x400), "color picker");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x800), "glimpse");
}

TEST(TheBaseDescription, NamesTheCompositesThatQueriesUse) {
    EXPECT_EQ(KSWItemTypeBaseDescription(0xC), "login item or agent");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x18), "agent or daemon");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x1C), "login item, agent, or daemon");
    EXPECT_EQ(KSWItemTypeBaseDescription(0xFFF), "all");
}

TEST(TheBaseDescription, IsUnknownForAnyOtherMixture) {
    for (KSWItemType type : {0x0U, 0x3U, 0x5U, 0x14U, 0x30U, 0xFFEU, 0x1000U}) {
        EXPECT_EQ(KSWItemTypeBaseDescription(type), "unknown") << type;
    }
}

TEST(TheBaseDescription, IgnoresTheHighBits) {
    EXPECT_EQ(KSWItemTypeBaseDescription(0x1000 | 0x4), "login item");
    EXPECT_EQ(KSWItemTypeBaseDescription(0x10008), "agent");
}

TEST(TheLongDescription, PutsTheWordsOfTheProvenanceInFront) {
    EXPECT_EQ(KSWItemTypeDescription(0x8), "agent");
    EXPECT_EQ(KSWItemTypeDescription(0x10008), "legacy agent");
    EXPECT_EQ(KSWItemTypeDescription(0x120010), "profile added managed daemon");
    EXPECT_EQ(KSWItemTypeDescription(0x3B0004), "profile added managed global curated legacy login item");
}

TEST(TheLongDescription, HasNoWordForOtherBits) {
    EXPECT_EQ(KSWItemTypeDescription(0x1000), "unknown");
    EXPECT_EQ(KSWItemTypeDescription(0x40010), "daemon");
    EXPECT_EQ(KSWItemTypeDescription(0xFFFFFFFFFFC00010U), "daemon");
}

TEST(AType, IsValidWithExactlyOneKind) {
    for (KSWItemType kind : kSingleKinds) {
        EXPECT_TRUE(ValidateItemType(kind)) << kind;
        EXPECT_TRUE(ValidateItemType(kind | 0x7F0000)) << kind;
    }
}

TEST(AType, IsInvalidWithoutAKindOrWithSeveral) {
    for (KSWItemType type : {0x0U, 0x3U, 0xCU, 0x18U, 0x1CU, 0xFFFU, 0x1000U, 0x10000U, 0x10018U}) {
        EXPECT_FALSE(ValidateItemType(type)) << type;
    }
}

TEST(AType, IsValidForTwelveOfTheBaseValuesOnly) {
    int valid = 0;
    for (KSWItemType type = 0; type <= KSWItemTypeAll; ++type) {
        valid += ValidateItemType(type) ? 1 : 0;
    }
    EXPECT_EQ(valid, 12);
}

}  // namespace
