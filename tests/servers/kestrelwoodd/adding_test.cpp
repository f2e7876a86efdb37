#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/base/limits.h"
#include "tests/servers/kestrelwoodd/record_requests.h"

namespace ksw::daemon::test {
namespace {

/// What a person would see of two records, without what tells them apart and who made them.
std::string contentOf(const ItemPointer& item) {
    const ItemPointer copy = copyOf(item);
    takeMaker(*copy, Maker());
    copy->setGeneration(0);
    return copy->dumpVerboseDescription();
}

class Adding : public WithRecords {
protected:
    std::int64_t add(const ItemPointer& item) { return requests_.add(owner_, item, owner_.uid).code; }
};

TEST_F(Adding, KeepsAllThatTheClientSaysButWhoMadeTheItem) {
    const ItemPointer item = anAgent("my.agent");
    ASSERT_EQ(add(item), KSWErrorNone);
    for (int start = 0; start < 2; ++start) {
        const ItemPointer record = daemon_.record(owner_.uid, "8.my.agent");
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->uuid(), item->uuid());
        EXPECT_EQ(record->flags(), item->flags());
        EXPECT_EQ(record->disposition(), KSWDispositionEnabled | KSWDispositionPendingAuthorization);
        EXPECT_EQ(contentOf(record), contentOf(item));
        daemon_.restart();
    }
}

TEST_F(Adding, PutsTheItemUnderTheUnknownDeveloperWhateverItsRelatives) {
    const ItemPointer app = KSWItem::initWithType(KSWItemTypeApp, "2.app");
    const ItemPointer item = anAgent("my.agent");
    item->setContainer(app);
    item->setEmbeddedItems({anAgent("child")});
    ASSERT_EQ(add(item), KSWErrorNone);
    const ItemPointer record = daemon_.record(owner_.uid, "8.my.agent");
    EXPECT_EQ(record->container()->identifier(), "Unknown Developer");
    EXPECT_EQ(record->countOfEmbeddedItems(), 0U);
    EXPECT_EQ(daemon_.record(owner_.uid, "2.app"), nullptr);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.child"), nullptr);
}

TEST_F(Adding, StartsAtTheGenerationOfAFreshItem) {
    const ItemPointer item = anAgent("my.agent");
    item->setGeneration(17);
    ASSERT_EQ(add(item), KSWErrorNone);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent")->generation(), 0);
    const ItemPointer fresh = anAgent("fresh");
    ASSERT_EQ(add(fresh), KSWErrorNone);
    EXPECT_EQ(requests_.update(owner_, fresh, owner_.uid).code, KSWErrorRecordUpdated);
}

TEST_F(Adding, DoesNotMakeAnItemManaged) {
    const ItemPointer item = anAgent("my.agent");
    item->setType(kLegacyAgent | KSWItemTypeManagedBit);
    item->setManaged(true);
    ASSERT_EQ(add(item), KSWErrorNone);
    const ItemPointer record = daemon_.record(owner_.uid, "8.my.agent");
    EXPECT_FALSE(record->isManaged());
    EXPECT_EQ(record->type(), kLegacyAgent);
}

TEST_F(Adding, WhatIsThereSaysSoAndChangesNothing) {
    ASSERT_EQ(add(anAgent("my.agent")), KSWErrorNone);
    const std::string before = daemon_.record(owner_.uid, "8.my.agent")->dumpVerboseDescription();
    const ItemPointer again = anAgent("my.agent");
    again->setName("another");
    const Answer answer = requests_.add(owner_, again, owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorRecordExists);
    EXPECT_TRUE(answer.changes.empty());
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent")->dumpVerboseDescription(), before);
}

TEST_F(Adding, WhatTheSystemHasMakesAnOwnRecord) {
    daemon_.enterAgent(kRoot, "shared", kEveryUser);
    EXPECT_EQ(add(anAgent("shared")), KSWErrorNone);
    EXPECT_NE(daemon_.record(owner_.uid, "8.shared"), nullptr);
}

TEST_F(Adding, OneOfTheSystemsKindsIsTheAdministratorsAndGoesToTheSystem) {
    for (const KSWItemType kind : {KSWItemTypeDaemon, KSWItemTypeSmartCard}) {
        const std::string identifier = std::to_string(kind) + ".thing";
        const ItemPointer item = KSWItem::initWithType(kind, identifier);
        item->setDisposition(KSWDispositionEnabled | KSWDispositionAllowed);
        EXPECT_EQ(add(item), KSWErrorPermissionDenied);
        EXPECT_EQ(requests_.add(kRoot, item, owner_.uid).code, KSWErrorNone);
        ASSERT_NE(daemon_.record(kEveryUser, identifier), nullptr);
        EXPECT_EQ(daemon_.record(kEveryUser, identifier)->disposition(), item->disposition());
        EXPECT_EQ(daemon_.record(owner_.uid, identifier), nullptr);
    }
}

TEST_F(Adding, ForAnotherUserIsTheAdministrators) {
    for (const Uid uid : {other_.uid, Uid{0}, kEveryUser}) {
        EXPECT_EQ(requests_.add(owner_, anAgent("my.agent"), uid).code, KSWErrorPermissionDenied);
        EXPECT_EQ(daemon_.record(uid, "8.my.agent"), nullptr);
        EXPECT_EQ(requests_.add(kRoot, anAgent("my.agent"), uid).code, KSWErrorNone);
        EXPECT_NE(daemon_.record(uid, "8.my.agent"), nullptr);
    }
    EXPECT_EQ(requests_.add(kRoot, anAgent("my.agent"), kNoUser).code, KSWErrorInvalidParameter);
}

TEST_F(Adding, RefusesAnItemThatLacksSomething) {
    EXPECT_EQ(add(nullptr), KSWErrorInvalidParameter);
    const ItemPointer nameless = anAgent("my.agent");
    nameless->setIdentifier(std::nullopt);
    EXPECT_EQ(add(nameless), KSWErrorInvalidParameter);
    const ItemPointer withoutUUID = anAgent("my.agent");
    withoutUUID->setUuid(std::nullopt);
    EXPECT_EQ(add(withoutUUID), KSWErrorInvalidParameter);
    const ItemPointer ofNoKind = std::make_shared<KSWItem>();
    ofNoKind->setUuid(UUID::random());
    ofNoKind->setIdentifier("0.thing");
    EXPECT_EQ(add(ofNoKind), KSWErrorInvalidParameter);
    const ItemPointer ofTwoKinds = KSWItem::initWithType(KSWItemTypeAgent | KSWItemTypeApp, "10.thing");
    EXPECT_EQ(add(ofTwoKinds), KSWErrorInvalidParameter);
    const ItemPointer developer = KSWItem::initWithType(KSWItemTypeDeveloper, "Maker");
    developer->setDeveloperName("Maker");
    EXPECT_EQ(add(developer), KSWErrorInvalidParameter);
    EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
}

TEST_F(Adding, RefusesAnIdentifierThatDoesNotFitItsKind) {
    const std::vector<std::pair<KSWItemType, std::string>> misfits = {{KSWItemTypeAgent, "16.thing"},
                                                                      {KSWItemTypeAgent, "8."},
                                                                      {KSWItemTypeAgent, "8"},
                                                                      {KSWItemTypeAgent, "thing"},
                                                                      {KSWItemTypeAgent, ""},
                                                                      {KSWItemTypeAgent, "08.thing"},
                                                                      {KSWItemTypeUserItem, "16.thing"},
                                                                      {KSWItemTypeUserItem, "/opt/tool"},
                                                                      {KSWItemTypeUserItem, "a b://thing"},
                                                                      {KSWItemTypeUserItem, "Unknown Developer"},
                                                                      {KSWItemTypeAgent, "Unknown Developer"}};
    for (const auto& [kind, identifier] : misfits) {
        EXPECT_EQ(add(KSWItem::initWithType(kind, identifier)), KSWErrorInvalidParameter) << identifier;
    }
    EXPECT_EQ(add(KSWItem::initWithType(KSWItemTypeUserItem, "file:///opt/tool")), KSWErrorNone);
    EXPECT_EQ(add(KSWItem::initWithType(KSWItemTypeUserItem, "https://example.com/")), KSWErrorNone);
    EXPECT_EQ(add(KSWItem::initWithType(KSWItemTypeGlimpse, "2048.thing")), KSWErrorNone);
}

TEST_F(Adding, RefusesAUUIDThatAnyRecordHas) {
    const ItemPointer anothers = daemon_.enterAgent(kRoot, "anothers", other_.uid).item;
    const ItemPointer item = anAgent("my.agent");
    item->setUuid(anothers->uuid());
    EXPECT_EQ(add(item), KSWErrorInvalidParameter);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent"), nullptr);
}

TEST_F(Adding, DoesNotTakeThePlaceOfADamagedRecord) {
    const ItemPointer record = daemon_.enterAgent(owner_, "damaged", owner_.uid).item;
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = '8.damaged'");
    EXPECT_EQ(add(anAgent("damaged")), KSWErrorGeneric);
    const ItemPointer item = anAgent("my.agent");
    item->setUuid(record->uuid());
    EXPECT_EQ(add(item), KSWErrorInvalidParameter);
}

TEST_F(Adding, TakesAFieldOfTheLargestSizeAndNoLarger) {
    const ItemPointer item = anAgent("my.agent");
    item->setName(std::string(limits::kFieldMax + 1, 'x'));
    EXPECT_EQ(add(item), KSWErrorInvalidParameter);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent"), nullptr);
    item->setName(std::string(limits::kFieldMax, 'x'));
    EXPECT_EQ(add(item), KSWErrorNone);
}

}  // namespace
}  // namespace ksw::daemon::test
