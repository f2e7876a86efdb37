#include <gtest/gtest.h>

#include <stdexcept>

#include <kestrelwood/KSWItem.h>

#include "model/item/item_fields.h"
#include "tests/model/item/items.h"

namespace {

using ksw::test::item;

struct BitRow {
    std::uint64_t bit;
    bool (KSWItem::*get)() const;
    void (KSWItem::*set)(bool);
};

constexpr BitRow kDispositionBits[] = {
    {0x1, &KSWItem::isEnabled, &KSWItem::setEnabled},
    {0x2, &KSWItem::isAllowed, &KSWItem::setAllowed},
    {0x4, &KSWItem::isHidden, &KSWItem::setHidden},
    {0x8, &KSWItem::notified, &KSWItem::setNotified},
    {0x10, &KSWItem::hasPendingAuthorization, &KSWItem::setPendingAuthorization},
};

constexpr BitRow kFlagBits[] = {
    {0x2, &KSWItem::isGlobal, &KSWItem::setGlobal},
    {0x4, &KSWItem::isCurated, &KSWItem::setCurated},
    {0x8, &KSWItem::isManaged, &KSWItem::setManaged},
    {0x10, &KSWItem::addedByProfile, &KSWItem::setAddedByProfile},
    {0x20, &KSWItem::addedByQDM, &KSWItem::setAddedByQDM},
    {0x40, &KSWItem::isSandboxed, &KSWItem::setSandboxed},
};

TEST(ADispositionBit, IsReadAndWrittenAlone) {
    for (const BitRow& row : kDispositionBits) {
        const auto made = item(0x8, "8.a");
        made->setDisposition(~row.bit);
        EXPECT_FALSE(((*made).*row.get)()) << row.bit;
        ((*made).*row.set)(true);
        EXPECT_TRUE(((*made).*row.get)()) << row.bit;
        EXPECT_EQ(made->disposition(), ~std::uint64_t{0}) << row.bit;
        ((*made).*row.set)(false);
        EXPECT_EQ(made->disposition(), ~row.bit) << row.bit;
    }
}

TEST(AFlag, IsReadAndWrittenAlone) {
    for (const BitRow& row : kFlagBits) {
        const auto made = item(0x8, "8.a");
        made->setFlags(~row.bit);
        EXPECT_FALSE(((*made).*row.get)()) << row.bit;
        ((*made).*row.set)(true);
        EXPECT_TRUE(((*made).*row.get)()) << row.bit;
        EXPECT_EQ(made->flags(), ~std::uint64_t{0}) << row.bit;
        ((*made).*row.set)(false);
        EXPECT_EQ(made->flags(), ~row.bit) << row.bit;
    }
}

TEST(SettingTheType, RefusesAnInvalidOneAndSaysSo) {
    const auto made = item(0x8, "8.a");
    for (KSWItemType type : {0x18U, 0x0U, 0xFFFU, 0x10000U}) {
        try {
            made->setType(type);
            ADD_FAILURE() << type;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), "KSWItemType must be one of .app, .document, .loginItem, .agent, .daemon");
        }
    }
    EXPECT_EQ(made->type(), 0x8U);
}

TEST(SettingTheType, OfALegacyItemRaisesTheFlag) {
    const auto made = item(0x8, "8.a");
    made->setType(0x10010);
    EXPECT_EQ(made->type(), 0x10010U);
    EXPECT_EQ(made->flags(), KSWItemFlagLegacy);
    EXPECT_TRUE(made->isLegacy());
}

TEST(SettingTheType, NeverLowersTheLegacyFlag) {
    const auto made = item(0x10010, "16.a");
    made->setType(0x10);
    EXPECT_EQ(made->type(), 0x10U);
    EXPECT_EQ(made->flags(), KSWItemFlagLegacy);
    EXPECT_FALSE(made->isLegacy());
}

TEST(ATypeQuestion, ForTheExactTypeCountsProvenance) {
    const auto legacy = item(0x10008, "8.a");
    EXPECT_FALSE(legacy->isType(0x8));
    EXPECT_TRUE(legacy->isType(0x10008));
    EXPECT_TRUE(legacy->intersectsType(0x8));
}

TEST(ATypeQuestion, ForAMaskAsksForAnyBit) {
    const auto agent = item(0x8, "8.a");
    EXPECT_TRUE(agent->intersectsType(0x1C));
    EXPECT_TRUE(agent->matchesType(0x1C));
    EXPECT_FALSE(agent->intersectsType(0x14));
    EXPECT_FALSE(agent->matchesType(0x14));
    EXPECT_FALSE(agent->intersectsType(0));
}

TEST(ATypeQuestion, ForInclusionAsksForEveryBit) {
    const auto legacy = item(0x10008, "8.a");
    EXPECT_TRUE(legacy->includesType(0x10008));
    EXPECT_TRUE(legacy->includesType(0x10000));
    EXPECT_TRUE(legacy->includesType(0));
    EXPECT_FALSE(legacy->includesType(0x18));
}

TEST(ATypeQuestion, ForBothNeedsBoth) {
    const auto legacy = item(0x10008, "8.a");
    EXPECT_TRUE(legacy->intersectsType(0x18, 0x10000));
    EXPECT_FALSE(legacy->intersectsType(0x14, 0x10000));
    EXPECT_FALSE(item(0x8, "8.a")->intersectsType(0x18, 0x10000));
}

TEST(AKind, OfDaemonsAndSmartCardsKeepsItsDataInASystemPlace) {
    for (KSWItemType type = 1; type <= 0x800; type <<= 1U) {
        EXPECT_EQ(item(type, "x")->hasGlobalDataType(), type == 0x10 || type == 0x200) << type;
        EXPECT_EQ(item(type, "x")->isDaemon(), type == 0x10) << type;
    }
}

TEST(AnUnknownDeveloper, IsToldByADevelopersOwnName) {
    const auto developer = item(0x20, "Dev");
    developer->setDeveloperName("Dev");
    EXPECT_TRUE(developer->isUnknownDeveloper());
    developer->setName("");
    EXPECT_TRUE(developer->isUnknownDeveloper());
    developer->setName("Dev");
    EXPECT_FALSE(developer->isUnknownDeveloper());
}

TEST(AnUnknownDeveloper, IsToldByAnyOtherItemsDeveloperName) {
    const auto agent = item(0x8, "8.a");
    agent->setName("Agent");
    EXPECT_TRUE(agent->isUnknownDeveloper());
    agent->setDeveloperName("Dev");
    EXPECT_FALSE(agent->isUnknownDeveloper());
}

TEST(TheUnknownDevelopersRecord, IsADeveloperWithoutDeveloperName) {
    const auto developer = item(0x20, "Dev");
    developer->setName("Dev");
    EXPECT_TRUE(developer->isUnknownDeveloperRecord());
    developer->setDeveloperName("Dev");
    EXPECT_FALSE(developer->isUnknownDeveloperRecord());
    EXPECT_FALSE(item(0x8, "8.a")->isUnknownDeveloperRecord());
}

TEST(TheUnknownDevelopersRecord, IsNoneOnceAnEmptyDeveloperNameStandsInIt) {
    // No setter stores an empty name, but an archive may hold one.
    const auto developer = item(0x20, "Dev");
    const auto agent = item(0x8, "8.a");
    for (const auto& one : {developer, agent}) {
        ksw::ItemAccess::fields(*one).developerName = "";
    }
    EXPECT_FALSE(developer->isUnknownDeveloperRecord());
    EXPECT_TRUE(agent->isUnknownDeveloper());
}

TEST(TheName, OfThePlaceholderIsNone) {
    const auto made = item(0x8, "8.a");
    made->setName("Job");
    EXPECT_EQ(made->name(), "Job");
    made->setName("Unknown Developer");
    EXPECT_EQ(made->name(), std::nullopt);
    made->setName("Unknown developer");
    EXPECT_EQ(made->name(), "Unknown developer");
    made->setName("");
    EXPECT_EQ(made->name(), "");
}

TEST(TheDeveloperName, OfThePlaceholderAndAnEmptyOneAreNone) {
    const auto developer = item(0x20, "Dev");
    for (const char* none : {"Unknown Developer", ""}) {
        developer->setDeveloperName("Dev");
        EXPECT_EQ(developer->developerName(), "Dev");
        EXPECT_FALSE(developer->isUnknownDeveloperRecord());
        developer->setDeveloperName(none);
        EXPECT_EQ(developer->developerName(), "");
        EXPECT_TRUE(developer->isUnknownDeveloperRecord());
    }
}

TEST(TheDigest, IsWrittenInUpperCaseHexadecimal) {
    const auto made = item(0x8, "8.a");
    EXPECT_EQ(made->sha256String(), "");
    made->setSha256(ksw::Data{0x00, 0xAB});
    EXPECT_EQ(made->sha256String(), "00AB");
    made->setSha256(ksw::Data(32, 0x5C));
    EXPECT_EQ(made->sha256String().size(), 64U);
}

}  // namespace
