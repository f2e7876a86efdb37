#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/servers/kestrelwoodd/record_requests.h"

namespace ksw::daemon::test {
namespace {

/// The same by identifier and by UUID.
class RemovingARecord : public WithRecords, public testing::WithParamInterface<bool> {
protected:
    std::int64_t remove(const Caller& caller, const ItemPointer& item, Uid uid) {
        return GetParam() ? requests_.remove(caller, item->uuid(), uid).code
                          : requests_.remove(caller, item->identifier(), uid).code;
    }
    ItemPointer enter(std::string_view label) { return daemon_.enterAgent(owner_, label, owner_.uid).item; }
};

TEST_P(RemovingARecord, MakesItUnknown) {
    const ItemPointer item = enter("my.agent");
    EXPECT_EQ(remove(owner_, item, owner_.uid), KSWErrorNone);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent"), nullptr);
    EXPECT_EQ(remove(owner_, item, owner_.uid), KSWErrorRecordNotFound);
    daemon_.restart();
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent"), nullptr);
}

TEST_P(RemovingARecord, TakesTheUnknownDeveloperAlongWhenItIsTheLast) {
    const ItemPointer first = enter("first");
    const ItemPointer second = enter("second");
    EXPECT_EQ(remove(owner_, first, owner_.uid), KSWErrorNone);
    EXPECT_EQ(daemon_.record(owner_.uid, "Unknown Developer")->countOfEmbeddedItems(), 1U);
    EXPECT_EQ(remove(owner_, second, owner_.uid), KSWErrorNone);
    EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
    daemon_.restart();
    EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
}

TEST_P(RemovingARecord, ThatOthersHangUnderIsRefused) {
    const ItemPointer developer = enter("my.agent")->container();
    EXPECT_EQ(remove(owner_, developer, owner_.uid), KSWErrorInvalidParameter);
    EXPECT_NE(daemon_.record(owner_.uid, "8.my.agent"), nullptr);
}

TEST_P(RemovingARecord, OfTheSystemIsTheAdministrators) {
    const ItemPointer shared = daemon_.enterAgent(kRoot, "shared", kEveryUser).item;
    EXPECT_EQ(remove(owner_, shared, owner_.uid), KSWErrorPermissionDenied);
    EXPECT_NE(daemon_.record(kEveryUser, "8.shared"), nullptr);
    EXPECT_EQ(remove(kRoot, shared, owner_.uid), KSWErrorNone);
    EXPECT_EQ(daemon_.record(kEveryUser, "8.shared"), nullptr);
}

TEST_P(RemovingARecord, OfAnotherUserIsTheAdministrators) {
    const ItemPointer item = enter("my.agent");
    for (const Uid uid : {owner_.uid, Uid{0}, kEveryUser}) {
        EXPECT_EQ(remove(other_, item, uid), KSWErrorPermissionDenied);
    }
    EXPECT_EQ(remove(other_, item, other_.uid), KSWErrorRecordNotFound);
    EXPECT_EQ(remove(kRoot, item, owner_.uid), KSWErrorNone);
}

TEST_P(RemovingARecord, ThatIsDamagedLetsItBeRecordedAnew) {
    const ItemPointer item = enter("damaged");
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = '8.damaged'");
    EXPECT_EQ(remove(owner_, item, owner_.uid), KSWErrorNone);
    EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
    EXPECT_EQ(requests_.add(owner_, anAgent("damaged"), owner_.uid).code, KSWErrorNone);
    daemon_.restart();
    EXPECT_NE(daemon_.record(owner_.uid, "8.damaged"), nullptr);
}

TEST_P(RemovingARecord, BesideADamagedOneKeepsTheirDeveloper) {
    const ItemPointer damaged = enter("damaged");
    const ItemPointer whole = enter("whole");
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = '8.damaged'");
    EXPECT_EQ(remove(owner_, whole, owner_.uid), KSWErrorNone);
    EXPECT_NE(daemon_.record(owner_.uid, "Unknown Developer"), nullptr);
    EXPECT_EQ(remove(owner_, damaged, owner_.uid), KSWErrorNone);
    EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
}

INSTANTIATE_TEST_SUITE_P(ByBothNames, RemovingARecord, testing::Bool(),
                         [](const auto& test) { return test.param ? "UUID" : "Identifier"; });

class RemovingNothing : public WithRecords {};

TEST_F(RemovingNothing, IsInvalid) {
    EXPECT_EQ(requests_.remove(owner_, std::optional<std::string>(), owner_.uid).code, KSWErrorInvalidParameter);
    EXPECT_EQ(requests_.remove(owner_, std::optional<UUID>(), owner_.uid).code, KSWErrorInvalidParameter);
    EXPECT_EQ(requests_.remove(kRoot, "8.my.agent", kNoUser).code, KSWErrorInvalidParameter);
}

}  // namespace
}  // namespace ksw::daemon::test
