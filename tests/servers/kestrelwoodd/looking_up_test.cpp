#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/servers/kestrelwoodd/record_requests.h"

namespace ksw::daemon::test {
namespace {

class LookingUp : public WithRecords {
protected:
    /// The same record by identifier and by UUID.
    std::vector<Answer> both(const Caller& caller, const ItemPointer& record, Uid uid) {
        return {requests_.lookUp(caller, record->identifier(), uid), requests_.lookUp(caller, record->uuid(), uid)};
    }
};

TEST_F(LookingUp, ARecordHandsItOutWithItsContainer) {
    const ItemPointer record = daemon_.enterAgent(owner_, "my.agent", owner_.uid).item;
    for (const Answer& answer : both(owner_, record, owner_.uid)) {
        EXPECT_EQ(answer.code, KSWErrorNone);
        ASSERT_EQ(answer.item, record);
        EXPECT_EQ(answer.item->container()->identifier(), "Unknown Developer");
    }
}

TEST_F(LookingUp, AnUnknownRecordSaysSo) {
    for (const Answer& answer : both(owner_, anAgent("my.agent"), owner_.uid)) {
        EXPECT_EQ(answer.code, KSWErrorRecordNotFound);
        EXPECT_EQ(answer.item, nullptr);
    }
}

TEST_F(LookingUp, FindsTheSystemsRecordWhereTheUserHasNone) {
    const ItemPointer record = daemon_.enterDaemon(kRoot, "my.daemon").item;
    for (const Answer& answer : both(owner_, record, owner_.uid)) {
        EXPECT_EQ(answer.item, record);
    }
}

TEST_F(LookingUp, FindsTheUsersOwnRecordBeforeTheSystems) {
    daemon_.enterAgent(kRoot, "shared", kEveryUser);
    const ItemPointer own = daemon_.enterAgent(owner_, "shared", owner_.uid).item;
    EXPECT_EQ(requests_.lookUp(owner_, "8.shared", owner_.uid).item, own);
}

TEST_F(LookingUp, DoesNotFindAnotherUsersRecord) {
    const ItemPointer record = daemon_.enterAgent(kRoot, "private", other_.uid).item;
    for (const Answer& answer : both(owner_, record, owner_.uid)) {
        EXPECT_EQ(answer.code, KSWErrorRecordNotFound);
    }
}

TEST_F(LookingUp, ForAnotherUserOrTheSystemIsTheAdministrators) {
    const ItemPointer record = daemon_.enterAgent(owner_, "my.agent", owner_.uid).item;
    const ItemPointer systems = daemon_.enterDaemon(kRoot, "my.daemon").item;
    for (const Answer& answer : both(other_, record, owner_.uid)) {
        EXPECT_EQ(answer.code, KSWErrorPermissionDenied);
        EXPECT_EQ(answer.item, nullptr);
    }
    for (const Answer& answer : both(owner_, systems, kEveryUser)) {
        EXPECT_EQ(answer.code, KSWErrorPermissionDenied);
        EXPECT_EQ(answer.item, nullptr);
    }
    EXPECT_EQ(requests_.lookUp(kRoot, "8.my.agent", owner_.uid).item, record);
    EXPECT_EQ(requests_.lookUp(kRoot, "16.my.daemon", kEveryUser).item, systems);
}

TEST_F(LookingUp, WithoutANameIsInvalid) {
    EXPECT_EQ(requests_.lookUp(owner_, std::optional<std::string>(), owner_.uid).code, KSWErrorInvalidParameter);
    EXPECT_EQ(requests_.lookUp(owner_, std::optional<UUID>(), owner_.uid).code, KSWErrorInvalidParameter);
    EXPECT_EQ(requests_.lookUp(kRoot, "8.my.agent", kNoUser).code, KSWErrorInvalidParameter);
}

TEST_F(LookingUp, ADamagedRecordSaysThatItIsThereAndHidesTheSystems) {
    daemon_.enterAgent(kRoot, "shared", kEveryUser);
    const ItemPointer record = daemon_.enterAgent(owner_, "shared", owner_.uid).item;
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = '8.shared' AND uid <> 4294967294");
    for (const Answer& answer : both(owner_, record, owner_.uid)) {
        EXPECT_EQ(answer.code, KSWErrorGeneric);
        EXPECT_EQ(answer.item, nullptr);
    }
}

}  // namespace
}  // namespace ksw::daemon::test
