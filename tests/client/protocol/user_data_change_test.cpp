#include "client/protocol/user_data_change.h"

#include <gtest/gtest.h>

#include <kestrelwood/KSWManager.h>

namespace ksw::protocol {
namespace {

constexpr std::int64_t kEvery = UserDataChange::kEveryType;

Notification saying(std::optional<Dictionary> userInfo) {
    return {std::string(kUserDataDidChange), std::move(userInfo)};
}

bool covers(const UserDataChange& wide, const UserDataChange& narrow) {
    const bool coversUser = wide.uid == kEveryUser || wide.uid == narrow.uid;
    return coversUser && ((wide.type & kEvery) != 0 || (narrow.type & ~wide.type) == 0);
}

TEST(AChangeOfUserData, HasTheExportedName) {
    EXPECT_EQ(kUserDataDidChange, KSWUserDataDidChangeNotification);
    EXPECT_EQ(notificationOf({501, 8}).name, "com.velmont.private.kestrelwood.user-data-changed");
}

TEST(AChangeOfUserData, ComesBackFromItsNotification) {
    for (const UserDataChange& change : {UserDataChange{501, 8}, UserDataChange{}, UserDataChange{0, kEvery | 2},
                                         UserDataChange{4294967295, -1}}) {
        EXPECT_EQ(userDataChangeOf(notificationOf(change)), change);
    }
}

TEST(AChangeOfUserData, WithoutWordsConcernsEveryUserAndEveryKind) {
    const UserDataChange all{kEveryUser, 4095};
    EXPECT_EQ(userDataChangeOf(saying(std::nullopt)), all);
    EXPECT_EQ(userDataChangeOf(saying(Dictionary{})), all);
    EXPECT_EQ(userDataChangeOf(saying(Dictionary{{"uid", "501"}, {"type", Data{8}}})), all);
    EXPECT_EQ(saidUid(saying(Dictionary{{"uid", "501"}})), std::nullopt);
    EXPECT_EQ(saidType(saying(std::nullopt)), std::nullopt);
}

TEST(AChangeOfUserData, TakesTheLowBitsOfLargerNumbers) {
    EXPECT_EQ(userDataChangeOf(saying(Dictionary{{"uid", -2}})).uid, kEveryUser);
    EXPECT_EQ(userDataChangeOf(saying(Dictionary{{"uid", 0x1000001F5}})).uid, 501U);
    EXPECT_EQ(userDataChangeOf(saying(Dictionary{{"type", UINT64_MAX}})).type, -1);
}

TEST(TwoNotificationsOfAnotherName, AreTheNewerOne) {
    const Notification older{"com.example.mail", Dictionary{{"uid", 501}, {"count", 1}}};
    const Notification newer{"com.example.mail", Dictionary{{"uid", 502}, {"count", 2}}};
    EXPECT_EQ(coalesced(older, newer), newer);
}

TEST(TwoChangesOfUserData, AreOneThatIsAtLeastAsWideAsEach) {
    const std::vector<Notification> changes{
        saying(std::nullopt),
        saying(Dictionary{}),
        saying(Dictionary{{"uid", 501}}),
        saying(Dictionary{{"type", 8}}),
        saying(Dictionary{{"uid", 501}, {"type", 8}}),
        saying(Dictionary{{"uid", 501}, {"type", 0x10008}}),
        saying(Dictionary{{"uid", 502}, {"type", 0x40000002}}),
        saying(Dictionary{{"uid", 4294967294}, {"type", 0}}),
        saying(Dictionary{{"uid", "nobody"}, {"type", -1}}),
    };
    for (const Notification& older : changes) {
        for (const Notification& newer : changes) {
            const Notification both = coalesced(older, newer);
            EXPECT_EQ(both.name, newer.name);
            EXPECT_TRUE(covers(userDataChangeOf(both), userDataChangeOf(older)));
            EXPECT_TRUE(covers(userDataChangeOf(both), userDataChangeOf(newer)));
        }
    }
}

TEST(TwoChangesOfUserData, OfOneUserConcernThatUserOnly) {
    const Notification both = coalesced(notificationOf({501, 8}), notificationOf({501, 16}));
    EXPECT_EQ(userDataChangeOf(both), (UserDataChange{501, 24}));
}

TEST(TwoChangesOfUserData, ThatAreAlikeStayAsTheyAre) {
    const Notification wordless = saying(std::nullopt);
    EXPECT_EQ(coalesced(wordless, wordless), wordless);
}

}  // namespace
}  // namespace ksw::protocol
