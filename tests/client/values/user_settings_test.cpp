#include "client/values/user_settings_archive.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/archive/keyed_archive.h"

namespace {

using ksw::Dictionary;
using ksw::archive::Coder;

std::shared_ptr<KSWUserSettings> roundTrip(const KSWUserSettings& settings) {
    const auto archive = ksw::archive::archive(settings, Coder::ServiceConnection);
    EXPECT_TRUE(archive.ok());
    ksw::archive::DecodeBudget budget(archive->size());
    const auto decoded =
        ksw::archive::unarchive<KSWUserSettings>(*archive, {.coder = Coder::ServiceConnection}, budget);
    EXPECT_TRUE(decoded.ok());
    return decoded->root;
}

std::shared_ptr<KSWUserSettings> filled() {
    auto settings = KSWUserSettings::init();
    settings->setRosterMigrated(true);
    settings->setPellucidLoginItemsMigrated(true);
    settings->setAlmanacItemsImported(true);
    settings->setUid(501);
    settings->setGeneration(12);
    settings->setEnablementStatusByIdentifier(Dictionary{{"cron", 2}});
    return settings;
}

TEST(NewSettings, SayNoToEverything) {
    const auto settings = KSWUserSettings::init();
    EXPECT_FALSE(settings->rosterMigrated());
    EXPECT_FALSE(settings->pellucidLoginItemsMigrated());
    EXPECT_FALSE(settings->almanacItemsImported());
    EXPECT_EQ(settings->uid(), 0U);
    EXPECT_EQ(settings->generation(), 0);
    EXPECT_EQ(settings->enablementStatusByIdentifier(), Dictionary());
}

TEST(DecodedSettings, HaveEverythingButTheUid) {
    const auto decoded = roundTrip(*filled());
    EXPECT_TRUE(decoded->rosterMigrated());
    EXPECT_TRUE(decoded->pellucidLoginItemsMigrated());
    EXPECT_TRUE(decoded->almanacItemsImported());
    EXPECT_EQ(decoded->uid(), 0U);
    EXPECT_EQ(decoded->generation(), 12);
    EXPECT_EQ(decoded->enablementStatusByIdentifier(), (Dictionary{{"cron", 2}}));
}

TEST(DecodedSettings, KeepEachFlagApart) {
    const auto settings = KSWUserSettings::init();
    settings->setPellucidLoginItemsMigrated(true);
    const auto decoded = roundTrip(*settings);
    EXPECT_FALSE(decoded->rosterMigrated());
    EXPECT_TRUE(decoded->pellucidLoginItemsMigrated());
    EXPECT_FALSE(decoded->almanacItemsImported());
}

TEST(DecodedSettings, HaveNoDictionaryWhenNoneWasSent) {
    const auto settings = filled();
    settings->setEnablementStatusByIdentifier(std::nullopt);
    EXPECT_EQ(roundTrip(*settings)->enablementStatusByIdentifier(), std::nullopt);
    settings->setEnablementStatusByIdentifier(Dictionary());
    EXPECT_EQ(roundTrip(*settings)->enablementStatusByIdentifier(), Dictionary());
}

TEST(DecodedSettings, KeepSwitchesOfEveryKindOfNumberAndText) {
    const auto settings = filled();
    const Dictionary status{{"a", 1}, {"b", true}, {"c", 0.5}, {"d", "on"}, {"e", Dictionary{{"f", 2}}}};
    settings->setEnablementStatusByIdentifier(status);
    EXPECT_EQ(roundTrip(*settings)->enablementStatusByIdentifier(), status);
}

TEST(DecodedSettings, HaveNoDictionaryInPlaceOfOneThatHoldsOtherKinds) {
    const auto settings = filled();
    for (const ksw::Value& other :
         {ksw::Value(ksw::Data{1}), ksw::Value(ksw::Array{1}), ksw::Value(ksw::Date{1})}) {
        settings->setEnablementStatusByIdentifier(Dictionary{{"a", 1}, {"b", Dictionary{{"c", other}}}});
        const auto decoded = roundTrip(*settings);
        EXPECT_EQ(decoded->enablementStatusByIdentifier(), std::nullopt);
        EXPECT_EQ(decoded->generation(), 12);
        EXPECT_TRUE(decoded->almanacItemsImported());
    }
}

TEST(DecodedSettings, HaveNoDictionaryInPlaceOfAText) {
    const auto settings = KSWUserSettings::init();
    ksw::Data archive = *ksw::archive::archive(*settings, Coder::ServiceConnection);
    // The empty dictionary is the last value; an empty text takes its place.
    const auto dictionary = std::find(archive.rbegin(), archive.rend(), 0xA0);
    ASSERT_NE(dictionary, archive.rend());
    *dictionary = 0x60;
    ksw::archive::DecodeBudget budget(archive.size());
    const auto decoded = ksw::archive::unarchive<KSWUserSettings>(archive, {}, budget);
    ASSERT_TRUE(decoded.ok()) << decoded.error().description();
    EXPECT_EQ(decoded->root->enablementStatusByIdentifier(), std::nullopt);
}

TEST(CopiedSettings, HaveEverything) {
    const auto copy = filled()->copyWithZone();
    EXPECT_TRUE(copy->rosterMigrated());
    EXPECT_TRUE(copy->pellucidLoginItemsMigrated());
    EXPECT_TRUE(copy->almanacItemsImported());
    EXPECT_EQ(copy->uid(), 501U);
    EXPECT_EQ(copy->generation(), 12);
    EXPECT_EQ(copy->enablementStatusByIdentifier(), (Dictionary{{"cron", 2}}));
}

TEST(CopiedSettings, ChangeApartFromTheirSource) {
    const auto settings = filled();
    const auto copy = settings->copy();
    (*copy->enablementStatusByIdentifier())["at"] = 1;
    EXPECT_EQ(settings->enablementStatusByIdentifier(), (Dictionary{{"cron", 2}}));
    EXPECT_EQ(copy->enablementStatusByIdentifier()->size(), 2U);
}

TEST(TheSettingsTable, HasItsKeysInTheirOrder) {
    std::vector<std::string_view> keys;
    for (const auto& row : ksw::archive::classInfo<KSWUserSettings>().fields) {
        keys.push_back(row.key.text());
    }
    EXPECT_EQ(keys, (std::vector<std::string_view>{"generation", "rosterMigrated", "pellucidLoginItemsMigrated",
                                                   "almanacItemsImported", "enablementStatus"}));
}

}  // namespace
