#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include <kestrelwood/KSWErrors.h>

#include "client/protocol/manager_service.h"
#include "client/protocol/registrar_service.h"
#include "client/protocol/services.h"
#include "platform/host/peer_identity.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/server.h"
#include "servers/kestrelwoodd/served_methods.h"
#include "servers/kestrelwoodd/services.h"
#include "tests/servers/kestrelwoodd/record_requests.h"
#include "tests/support/environment.h"

namespace ksw::daemon::test {
namespace {

constexpr std::int64_t kAgent = kLegacyAgent;
constexpr std::int64_t kDaemon = kLegacyDaemon;

/// The daemon's services on real sockets in this process, and a caller of each.
class TheServices : public testing::Test {
protected:
    TheServices() : root_("KESTRELWOOD_ROOT", daemon_.folder().path()) {
        EXPECT_TRUE(server_
                        .listen(kManagerService, ipc::Domain::System,
                                managerService(daemon_.operations(), daemon_.housekeeping(), announce_))
                        .ok());
        EXPECT_TRUE(
            server_
                .listen(kRegistrarService, ipc::Domain::System, registrarService(daemon_.operations(), announce_))
                .ok());
        EXPECT_TRUE(
            server_.listen(kRosterService, ipc::Domain::System, rosterService(daemon_.housekeeping(), announce_))
                .ok());
        EXPECT_TRUE(server_.start().ok());
    }

    /// The code in a reply, wherever the method has it; the connection's code, positive, when there is none.
    template <class... R>
    static std::int64_t codeOf(const Result<std::tuple<R...>>& reply) {
        if (!reply.ok()) {
            return reply.error().code();
        }
        if constexpr ((std::is_same_v<R, std::shared_ptr<KSWFetchResult>> || ...)) {
            return std::get<0>(*reply)->code();
        } else if constexpr ((std::is_same_v<R, std::optional<Error>> || ...)) {
            const std::optional<Error>& error = std::get<sizeof...(R) - 1>(*reply);
            EXPECT_TRUE(!error || *error == KSWErrorWithCode(error->code()));
            return error ? error->code() : 0;
        } else {
            return std::get<sizeof...(R) - 1>(*reply);
        }
    }

    DaemonInside daemon_;
    const Announce announce_ = [](const protocol::UserDataChange&, pid_t, ipc::Audience) {};
    ksw::test::ScopedVariable root_;
    ipc::Server server_;
    ipc::Connection manager_{kManagerService, ipc::managementDaemonOptions(), GetManagerServiceInterface()};
    ipc::Connection registrar_{kRegistrarService, ipc::managementDaemonOptions(),
                               protocol::registrar::serviceInterface()};
    ipc::Connection roster_{kRosterService, ipc::managementDaemonOptions(), protocol::roster::serviceInterface()};
    const std::optional<URL> none_;
    const std::optional<AuditToken> noToken_;
    const std::optional<URL> url_ = jobURL("my.agent");
    const std::optional<Dictionary> job_ = jobNamed("my.agent");
    const Uid self_ = geteuid();
};

TEST_F(TheServices, RegisterAskAndUnregisterThroughTheManagersMethods) {
    EXPECT_EQ(codeOf(manager_.call(manager::kRegisterItemOfURL, none_, kAgent, url_, job_, self_)), KSWErrorNone);
    EXPECT_EQ(codeOf(manager_.call(manager::kRegisterItemOfURL, none_, kAgent, url_, job_, self_)),
              KSWErrorRecordExists);
    EXPECT_EQ(codeOf(manager_.call(manager::kRegisterLaunchItem, noToken_, none_, kAgent, url_, job_, self_)),
              KSWErrorNone);
    EXPECT_EQ(codeOf(manager_.call(manager::kInvalidateLaunchItem, none_, kAgent, url_, job_, self_)),
              KSWErrorNone);

    const auto canLaunch = manager_.call(manager::kCanLaunchItem, none_, kAgent, url_, job_, self_);
    ASSERT_TRUE(canLaunch.ok());
    EXPECT_EQ(*canLaunch, (std::tuple<bool, std::int64_t>(true, 0)));
    const auto stored = manager_.call(manager::kItemDisposition, none_, kAgent, url_, job_, self_);
    ASSERT_TRUE(stored.ok());
    EXPECT_EQ(*stored, (std::tuple<std::int64_t, std::int64_t>(3, 0)));
    const auto effective = manager_.call(manager::kEffectiveDispositionOfURL, none_, kAgent, url_, job_, self_);
    ASSERT_TRUE(effective.ok());
    EXPECT_EQ(std::get<0>(*effective), 3);
    EXPECT_EQ(std::get<1>(*effective), std::nullopt);
    EXPECT_EQ(std::get<2>(*effective), 0);

    EXPECT_EQ(codeOf(manager_.call(manager::kUnregisterItemOfURL, none_, kAgent, url_, self_)), KSWErrorNone);
    EXPECT_EQ(codeOf(manager_.call(manager::kUnregisterItemOfURL, none_, kAgent, url_, self_)),
              KSWErrorRecordNotFound);
    EXPECT_EQ(codeOf(manager_.call(manager::kUnregisterLaunchItem, noToken_, none_, kAgent, url_, self_)),
              KSWErrorRecordNotFound);
    EXPECT_EQ(codeOf(manager_.call(manager::kItemOfURL, none_, kAgent, url_, job_, self_)), KSWErrorRecordNotFound);
}

TEST_F(TheServices, HandOutAnItemWithItsContainer) {
    const auto reply = manager_.call(manager::kRegisterItemOfURL, none_, kAgent, url_, job_, self_);
    ASSERT_TRUE(reply.ok());
    const std::shared_ptr<KSWItem> item = std::get<0>(*reply)->firstItem();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->identifier(), "8.my.agent");
    ASSERT_NE(item->container(), nullptr);
    EXPECT_EQ(item->container()->identifier(), "Unknown Developer");
}

TEST_F(TheServices, HandOutTheWholeFamilyToThoseWhoLookItUpOnly) {
    ASSERT_EQ(codeOf(manager_.call(manager::kRegisterItemOfURL, none_, kAgent, url_, job_, self_)), KSWErrorNone);
    const auto registered =
        manager_.call(manager::kRegisterItemOfURL, none_, kAgent, std::optional(jobURL("another")),
                      std::optional(jobNamed("another")), self_);
    ASSERT_TRUE(registered.ok());
    ASSERT_NE(std::get<0>(*registered)->firstItem(), nullptr);
    EXPECT_EQ(std::get<0>(*registered)->firstItem()->container()->countOfEmbeddedItems(), 1U);
    const auto found = manager_.call(manager::kItemOfURL, none_, kAgent, url_, job_, self_);
    ASSERT_TRUE(found.ok());
    EXPECT_EQ(std::get<0>(*found)->firstItem()->container()->countOfEmbeddedItems(), 2U);
}

TEST_F(TheServices, AnswerThatADaemonMayNotLaunch) {
    const auto reply = manager_.call(manager::kCanLaunchItem, none_, kDaemon, url_, job_, self_);
    ASSERT_TRUE(reply.ok());
    EXPECT_EQ(*reply, (std::tuple<bool, std::int64_t>(false, 0)));
}

TEST_F(TheServices, ServeTheRegistrarsMethodsFromTheSameRecords) {
    EXPECT_EQ(codeOf(registrar_.call(registrar::kRegisterItemOfURL, none_, kAgent, url_, job_, self_)),
              KSWErrorNone);
    EXPECT_EQ(codeOf(manager_.call(manager::kItemOfURL, none_, kAgent, url_, job_, self_)), KSWErrorNone);
    EXPECT_EQ(codeOf(registrar_.call(registrar::kItemOfURL, none_, kAgent, url_, job_, self_)), KSWErrorNone);
    EXPECT_EQ(codeOf(registrar_.call(registrar::kEffectiveDispositionOfURL, none_, kAgent, url_, job_, self_)),
              KSWErrorNone);
}

TEST_F(TheServices, AnswerWhichUsersHaveRecords) {
    manager_.call(manager::kRegisterItemOfURL, none_, kAgent, url_, job_, self_).ok();
    const auto reply = manager_.call(manager::kFetchUserIdentifiersAndUIDs);
    ASSERT_TRUE(reply.ok());
    const std::optional<Dictionary>& users = std::get<0>(*reply);
    ASSERT_TRUE(users.has_value());
    ASSERT_EQ(users->size(), 1U);
    EXPECT_EQ(users->begin()->second, Value(self_));
}

TEST_F(TheServices, AddLookUpListUpdateAndRemoveThroughTheManagersMethods) {
    const ItemPointer item = anAgent("my.agent");
    const std::optional<std::string> identifier = item->identifier();
    const std::optional<UUID> uuid = item->uuid();
    EXPECT_EQ(codeOf(manager_.call(manager::kAddItem, item, self_)), KSWErrorNone);
    EXPECT_EQ(codeOf(manager_.call(manager::kAddItem, item, self_)), KSWErrorRecordExists);
    const auto found = manager_.call(manager::kGetItemWithIdentifier, identifier, self_);
    ASSERT_EQ(codeOf(found), KSWErrorNone);
    EXPECT_EQ(std::get<0>(*found)->firstItem()->uuid(), uuid);
    EXPECT_EQ(codeOf(manager_.call(manager::kGetItemWithUUID, uuid, self_)), KSWErrorNone);
    const auto list = manager_.call(manager::kGetItemsMatching, std::int64_t{0x8}, self_);
    ASSERT_EQ(codeOf(list), KSWErrorNone);
    EXPECT_THAT(receivedList(std::get<0>(*list)).identifiers(), testing::ElementsAre("8.my.agent"));
    EXPECT_EQ(codeOf(manager_.call(manager::kUpdateItem, item, self_)), KSWErrorRecordUpdated);
    EXPECT_EQ(codeOf(manager_.call(manager::kUpdateItem, item, self_)), KSWErrorInvalidGeneration);
    item->setGeneration(1);
    const std::optional<Data> set = archiveOf({item});
    EXPECT_EQ(codeOf(manager_.call(manager::kUpdateItems, set, self_)), KSWErrorRecordUpdated);
    EXPECT_EQ(codeOf(manager_.call(manager::kRemoveItemWithUUID, uuid, self_)), KSWErrorNone);
    EXPECT_EQ(codeOf(manager_.call(manager::kRemoveItemWithUUID, uuid, self_)), KSWErrorRecordNotFound);
    EXPECT_EQ(codeOf(manager_.call(manager::kRemoveItemWithIdentifier, identifier, self_)), KSWErrorRecordNotFound);
    EXPECT_EQ(codeOf(manager_.call(manager::kGetItemWithUUID, uuid, self_)), KSWErrorRecordNotFound);
}

TEST_F(TheServices, AnswerAListThatIsRefusedWithItsErrorAlone) {
    const auto reply = manager_.call(manager::kGetItemsMatching, std::int64_t{0x8}, kNoUser);
    EXPECT_EQ(codeOf(reply), KSWErrorInvalidParameter);
    EXPECT_EQ(std::get<0>(*reply), std::nullopt);
}

TEST_F(TheServices, LetTheOwnerOfTheHostRootDoWhatUidZeroMay) {
    for (const Uid named : {self_ + 1, kEveryUser}) {
        EXPECT_EQ(codeOf(manager_.call(manager::kRegisterItemOfURL, none_, kAgent, url_, job_, named)),
                  KSWErrorNone);
        EXPECT_EQ(codeOf(manager_.call(manager::kItemDisposition, none_, kAgent, url_, job_, named)), KSWErrorNone);
        EXPECT_EQ(codeOf(manager_.call(manager::kUnregisterItemOfURL, none_, kAgent, url_, named)), KSWErrorNone);
    }
    EXPECT_EQ(codeOf(manager_.call(manager::kRegisterItemOfURL, none_, kDaemon, url_, job_, self_)), KSWErrorNone);
}

TEST_F(TheServices, TakeAProcessForItsOwner) {
    const Result<AuditToken> token = host::auditTokenForPid(getpid());
    ASSERT_TRUE(token.ok());
    const std::optional<AuditToken> self = *token;
    EXPECT_EQ(codeOf(manager_.call(manager::kRegisterItemOfProcess, self, kAgent, url_, job_, self_)),
              KSWErrorNone);
    EXPECT_EQ(codeOf(manager_.call(manager::kEffectiveDispositionOfProcess, self, kAgent, url_, job_, self_)),
              KSWErrorNone);
    EXPECT_EQ(codeOf(manager_.call(manager::kUnregisterItemOfProcess, self, kAgent, url_, self_)), KSWErrorNone);
    EXPECT_EQ(codeOf(manager_.call(manager::kRegisterItemOfProcess, noToken_, kAgent, url_, job_, self_)),
              KSWErrorInvalidParameter);
}

TEST_F(TheServices, AnswerTheHouseholdsMethods) {
    const auto settings = manager_.call(manager::kFetchUserSettings, self_);
    ASSERT_TRUE(settings.ok());
    EXPECT_EQ(std::get<0>(*settings), 0);
    ASSERT_NE(std::get<1>(*settings), nullptr);
    const auto saved = manager_.call(manager::kSaveUserSettings, std::get<1>(*settings), self_);
    ASSERT_TRUE(saved.ok());
    EXPECT_EQ(std::get<0>(*saved), 0);
    const auto isOn = manager_.call(manager::kGetEnablementStatus, "KSWSubsystemGlimpse", self_);
    ASSERT_TRUE(isOn.ok());
    EXPECT_EQ(*isOn, (std::tuple<std::int64_t, bool>(KSWErrorRecordNotFound, false)));
    EXPECT_TRUE(manager_.call(manager::kStewardWillScanPath, "/nowhere").ok());
    EXPECT_TRUE(manager_.call(manager::kStewardDidScanPath, "/nowhere").ok());
    const auto payload = manager_.call(manager::kMDMPayload, "none");
    ASSERT_TRUE(payload.ok());
    EXPECT_EQ(std::get<0>(*payload), std::nullopt);
    // The test's user owns the host root, and so may do all that the administrator may.
    const auto dump = manager_.call(manager::kDumpDatabase, std::nullopt);
    ASSERT_TRUE(dump.ok());
    EXPECT_EQ(std::get<0>(*dump), "Records of kestrelwoodd\n");
    EXPECT_EQ(std::get<1>(*dump), std::nullopt);
}

TEST_F(TheServices, AnswerTheRostersMethods) {
    const URL url = daemon_.writeJob("file", "any");
    const auto added = roster_.call(roster::kAddURL, url, KSWItemTypeUserItem, false, false);
    ASSERT_TRUE(added.ok());
    EXPECT_EQ(std::get<0>(*added), 0);
    const ItemPointer item = std::get<1>(*added);
    ASSERT_NE(item, nullptr);
    const auto fetched = roster_.call(roster::kFetchRosterItemsMatching, KSWItemTypeAll);
    ASSERT_TRUE(fetched.ok());
    EXPECT_TRUE(std::get<0>(*fetched).has_value());
    const auto updated = roster_.call(roster::kUpdateItem, copyOf(item));
    ASSERT_TRUE(updated.ok());
    EXPECT_EQ(std::get<0>(*updated), KSWErrorRecordUpdated);
    const auto removed = roster_.call(roster::kRemoveItem, item);
    ASSERT_TRUE(removed.ok());
    EXPECT_EQ(std::get<0>(*removed), 0);
}

TEST(TheManagersService, KnowsEveryMethodOfItsContract) {
    DaemonInside daemon;
    const ipc::Dispatcher dispatcher = managerService(daemon.operations(), daemon.housekeeping(), nullptr);
    for (const ipc::InterfaceMethod& method : GetManagerServiceInterface().methods) {
        EXPECT_NE(dispatcher.find(method.selector), nullptr) << method.selector;
    }
}

TEST(TheRegistrarsService, ServesEveryMethodOfItsContract) {
    DaemonInside daemon;
    const ipc::Dispatcher dispatcher = registrarService(daemon.operations(), nullptr);
    for (const ipc::InterfaceMethod& method : protocol::registrar::serviceInterface().methods) {
        EXPECT_NE(dispatcher.find(method.selector), nullptr) << method.selector;
    }
}

}  // namespace
}  // namespace ksw::daemon::test
