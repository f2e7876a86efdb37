#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <condition_variable>
#include <memory>
#include <mutex>

#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "platform/base/limits.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/notification_center.h"
#include "platform/ipc/server.h"
#include "servers/common/sqlite.h"
#include "servers/kestrelwoodd/services.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/servers/kestrelwoodd/record_requests.h"
#include "tests/support/environment.h"

namespace ksw::daemon::test {

using namespace servers;
namespace {

namespace manager = protocol::manager;
using protocol::UserDataChange;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr std::int64_t kDeveloper = 0x20;
constexpr std::int64_t kAgentKind = 0x8;
constexpr std::int64_t kDaemonKind = 0x10;

/// What each change says of itself, for those who announce it.
class AChange : public WithRecords {
protected:
    std::vector<UserDataChange> enter(std::string_view label) {
        return daemon_.enterAgent(owner_, label, owner_.uid).changes;
    }
};

TEST_F(AChange, ByRegisteringNamesTheKindAndTheDeveloperThatCame) {
    EXPECT_THAT(enter("first"), ElementsAre(UserDataChange{owner_.uid, kAgentKind | kDeveloper}));
    EXPECT_THAT(enter("second"), ElementsAre(UserDataChange{owner_.uid, kAgentKind}));
    EXPECT_THAT(enter("second"), IsEmpty());
    Dictionary changed = jobNamed("second");
    changed[std::string(KSWConfigExecutablePath)] = "/opt/other";
    const Answer updated =
        daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, jobURL("second"), changed, owner_.uid);
    EXPECT_THAT(updated.changes, ElementsAre(UserDataChange{owner_.uid, kAgentKind}));
}

TEST_F(AChange, OfTheSystemsRecordsConcernsEveryUser) {
    EXPECT_THAT(daemon_.enterDaemon(kRoot, "my.daemon").changes,
                ElementsAre(UserDataChange{4294967294U, kDaemonKind | kDeveloper}));
}

TEST_F(AChange, ByUnregisteringNamesTheDeveloperThatWent) {
    enter("first");
    enter("second");
    const auto remove = [this](const char* label) {
        return daemon_
            .ask(&Operations::remove, owner_, kLegacyAgent, kNoURL, jobURL(label), kNoConfiguration, owner_.uid)
            .changes;
    };
    EXPECT_THAT(remove("first"), ElementsAre(UserDataChange{owner_.uid, kAgentKind}));
    EXPECT_THAT(remove("first"), IsEmpty());
    EXPECT_THAT(remove("second"), ElementsAre(UserDataChange{owner_.uid, kAgentKind | kDeveloper}));
}

TEST_F(AChange, ByRefreshingIsOneOnlyWhenFactsHaveChanged) {
    enter("my.agent");
    const auto refresh = [this](const Dictionary& job) {
        return daemon_.ask(&Operations::refresh, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"), job, owner_.uid)
            .changes;
    };
    EXPECT_THAT(refresh(jobNamed("my.agent")), IsEmpty());
    Dictionary changed = jobNamed("my.agent");
    changed[std::string(KSWConfigExecutablePath)] = "/opt/other";
    EXPECT_THAT(refresh(changed), ElementsAre(UserDataChange{owner_.uid, kAgentKind}));
}

TEST_F(AChange, ByAddingAndRemovingNamesTheKindAndTheDeveloper) {
    const ItemPointer item = anAgent("my.agent");
    EXPECT_THAT(requests_.add(owner_, item, owner_.uid).changes,
                ElementsAre(UserDataChange{owner_.uid, kAgentKind | kDeveloper}));
    EXPECT_THAT(requests_.add(owner_, item, owner_.uid).changes, IsEmpty());
    EXPECT_THAT(requests_.remove(owner_, item->uuid(), owner_.uid).changes,
                ElementsAre(UserDataChange{owner_.uid, kAgentKind | kDeveloper}));
}

TEST_F(AChange, OfASetNamesEachUserOnceWithAllKinds) {
    const ItemPointer systems = copyOf(daemon_.enterDaemon(kRoot, "my.daemon").item);
    enter("my.agent");
    const ItemPointer agent = copyOf(daemon_.record(owner_.uid, "8.my.agent"));
    const ItemPointer developer = copyOf(daemon_.record(owner_.uid, "Unknown Developer"));
    EXPECT_THAT(requests_.updateSet(kRoot, {systems, agent, developer}, owner_.uid).changes,
                UnorderedElementsAre(UserDataChange{owner_.uid, kAgentKind | kDeveloper},
                                     UserDataChange{kEveryUser, kDaemonKind}));
    EXPECT_THAT(requests_.updateSet(kRoot, {systems, agent}, owner_.uid).changes, IsEmpty());
}

TEST_F(AChange, OfADamagedRecordConcernsEveryKind) {
    enter("damaged");
    enter("whole");
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = '8.damaged'");
    EXPECT_THAT(requests_.remove(owner_, "8.damaged", owner_.uid).changes,
                ElementsAre(UserDataChange{owner_.uid, 0xFFF}));
}

/// The services on real sockets, and what they announce. An announcement to others looks what of its change is
/// there; one to the caller's process waits until the reply has arrived.
class TheServicesAnnouncements : public testing::Test {
protected:
    TheServicesAnnouncements() : root_("KESTRELWOOD_ROOT", daemon_.folder().path()) {
        daemon_.restartWithPages(40);
        EXPECT_TRUE(server_
                        .listen(kManagerService, ipc::Domain::System,
                                managerService(daemon_.operations(), daemon_.housekeeping(),
                                               [this](const UserDataChange& change, pid_t cause,
                                                      ipc::Audience audience) { note(change, cause, audience); }))
                        .ok());
        EXPECT_TRUE(server_.start().ok());
    }

    void note(const UserDataChange& change, pid_t cause, ipc::Audience audience) {
        EXPECT_EQ(cause, getpid());
        std::unique_lock lock(mutex_);
        if (audience == ipc::Audience::Cause) {
            EXPECT_TRUE(
                changed_.wait_for(lock, std::chrono::seconds(20), [this] { return replies_ >= changing_; }));
            told_.push_back(change);
            changed_.notify_all();
            return;
        }
        EXPECT_EQ(audience, ipc::Audience::Others);
        changing_ = requests_;
        announced_.push_back(change);
        onDisk_.push_back(generationOnDisk());
        const ItemPointer item = daemon_.record(self_, *item_->identifier());
        inMemory_.push_back(item == nullptr ? kNone : item->generation());
    }

    /// Of the item's record, as somebody else who opens the store reads it.
    std::int64_t generationOnDisk() {
        Result<Database> store = Database::open(daemon_.path());
        const Result<std::int64_t> generation =
            store ? store->number("SELECT coalesce(max(generation), -1) FROM items WHERE identifier = '" +
                                  *item_->identifier() + "'")
                  : Result<std::int64_t>(store.error());
        return generation ? *generation : kNone;
    }

    /// Makes a request; its code.
    template <class Method, class... A>
    std::int64_t codeOf(const Method& method, const A&... arguments) {
        raise(requests_);
        const auto reply = connection_.call(method, arguments...);
        raise(replies_);
        return reply ? std::get<0>(*reply) : KSWErrorGeneric;
    }
    void raise(int& count) {
        const std::lock_guard lock(mutex_);
        ++count;
        changed_.notify_all();
    }

    /// What has been announced to others by now.
    std::vector<UserDataChange> announced() {
        const std::lock_guard lock(mutex_);
        return announced_;
    }
    /// What has been announced to the caller's own process once there are so many.
    std::vector<UserDataChange> told(std::size_t count) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds(20), [&] { return told_.size() >= count; }));
        return told_;
    }

    static constexpr std::int64_t kNone = -1;
    const ItemPointer item_ = anAgent("my.agent");
    std::mutex mutex_;
    std::condition_variable changed_;
    int requests_ = 0;                       // guarded by mutex_
    int replies_ = 0;                        // guarded by mutex_
    int changing_ = 0;                       // guarded by mutex_; the request that is being announced
    std::vector<UserDataChange> told_;       // guarded by mutex_
    std::vector<UserDataChange> announced_;  // guarded by mutex_
    std::vector<std::int64_t> onDisk_;       // guarded by mutex_
    std::vector<std::int64_t> inMemory_;     // guarded by mutex_
    DaemonInside daemon_;
    ksw::test::ScopedVariable root_;
    ipc::Server server_;
    ipc::Connection connection_{kManagerService, ipc::managementDaemonOptions(), GetManagerServiceInterface()};
    const Uid self_ = geteuid();
};

TEST_F(TheServicesAnnouncements, ComeToTheCallersProcessAfterTheReplies) {
    ASSERT_EQ(codeOf(manager::kAddItem, item_, self_), KSWErrorNone);
    EXPECT_THAT(told(1), ElementsAre(UserDataChange{self_, kAgentKind | kDeveloper}));
    ASSERT_EQ(codeOf(manager::kUpdateItem, item_, self_), KSWErrorRecordUpdated);
    EXPECT_THAT(told(2),
                ElementsAre(UserDataChange{self_, kAgentKind | kDeveloper}, UserDataChange{self_, kAgentKind}));
}

TEST_F(TheServicesAnnouncements, ComeWithChangesBeforeTheirRepliesAndWithNothingElse) {
    const std::optional<std::string> identifier = item_->identifier();
    ASSERT_EQ(codeOf(manager::kAddItem, item_, self_), KSWErrorNone);
    EXPECT_THAT(announced(), ElementsAre(UserDataChange{self_, kAgentKind | kDeveloper}));
    EXPECT_EQ(codeOf(manager::kAddItem, item_, self_), KSWErrorRecordExists);
    EXPECT_TRUE(connection_.call(manager::kGetItemWithIdentifier, identifier, self_).ok());
    EXPECT_TRUE(connection_.call(manager::kGetItemsMatching, std::int64_t{0xFFF}, self_).ok());
    EXPECT_EQ(codeOf(manager::kUpdateItem, item_, kNoUser), KSWErrorInvalidParameter);
    ASSERT_EQ(codeOf(manager::kUpdateItem, item_, self_), KSWErrorRecordUpdated);
    EXPECT_THAT(announced(),
                ElementsAre(UserDataChange{self_, kAgentKind | kDeveloper}, UserDataChange{self_, kAgentKind}));
}

TEST_F(TheServicesAnnouncements, ComeWhenTheChangeIsOnDiskAndAnsweredFromMemory) {
    ASSERT_EQ(codeOf(manager::kAddItem, item_, self_), KSWErrorNone);
    ASSERT_EQ(codeOf(manager::kUpdateItem, item_, self_), KSWErrorRecordUpdated);
    const std::lock_guard lock(mutex_);
    EXPECT_THAT(onDisk_, ElementsAre(0, 1));
    EXPECT_THAT(inMemory_, ElementsAre(0, 1));
}

TEST_F(TheServicesAnnouncements, AreNotMadeOfAChangeThatDidNotComeToTheDisk) {
    const ItemPointer large = anAgent("large");
    large->setExecutablePath("/" + std::string(limits::kFieldMax - 1, 'x'));
    large->setSha256(Data(limits::kFieldMax, 7));
    EXPECT_EQ(codeOf(manager::kAddItem, large, self_), KSWErrorGeneric);
    EXPECT_THAT(announced(), IsEmpty());
    ASSERT_EQ(codeOf(manager::kAddItem, item_, self_), KSWErrorNone);
    EXPECT_THAT(announced(), ElementsAre(UserDataChange{self_, kAgentKind | kDeveloper}));
}

/// The program itself, a caller, and an observer on a connection of its own.
class AnObserverOfKestrelwoodd : public testing::Test {
protected:
    AnObserverOfKestrelwoodd() : daemon_(host_.startReady()) {}

    std::int64_t update() {
        const auto reply = manager_.call(manager::kUpdateItem, item_, self_);
        item_->setGeneration(item_->generation() + 1);
        return reply.ok() ? std::get<0>(*reply) : KSWErrorGeneric;
    }
    std::int64_t add() {
        const auto reply = manager_.call(manager::kAddItem, item_, self_);
        return reply.ok() ? std::get<0>(*reply) : KSWErrorGeneric;
    }

    DaemonHost host_;
    const std::unique_ptr<Process> daemon_;
    ipc::Connection manager_{kManagerService, ipc::managementDaemonOptions(), GetManagerServiceInterface()};
    const ItemPointer item_ = anAgent("my.agent");
    const Uid self_ = geteuid();
};

TEST_F(AnObserverOfKestrelwoodd, IsToldWhoseRecordsHaveChangedAndOfWhichKinds) {
    ASSERT_NE(daemon_, nullptr);
    ipc::Connection hub(ipc::kNotifyService, ipc::managementDaemonOptions(), {});
    const std::optional<std::string> name(protocol::kUserDataDidChange);
    ASSERT_TRUE(hub.call(ipc::kObserveNotification, name).ok());
    const auto next = [&hub] {
        const auto reply = hub.call(ipc::kNextNotification);
        EXPECT_TRUE(reply.ok());
        return reply.ok() ? *std::get<1>(*reply) : Dictionary{};
    };
    ASSERT_EQ(add(), KSWErrorNone);
    EXPECT_EQ(next(), (Dictionary{{"uid", Value(self_)}, {"type", Value(kAgentKind | kDeveloper)}}));
    ASSERT_EQ(add(), KSWErrorRecordExists);
    ASSERT_EQ(update(), KSWErrorRecordUpdated);
    EXPECT_EQ(next(), (Dictionary{{"uid", Value(self_)}, {"type", Value(kAgentKind)}}));
}

TEST_F(AnObserverOfKestrelwoodd, IsToldThroughTheNotificationCenter) {
    ASSERT_NE(daemon_, nullptr);
    std::mutex mutex;
    std::condition_variable condition;
    std::vector<UserDataChange> told;
    ipc::NotificationCenter center(ipc::Domain::System);
    const ipc::NotificationCenter::Observation observation =
        center.observe(std::string(protocol::kUserDataDidChange), [&](const Notification& notification) {
            const std::lock_guard lock(mutex);
            told.push_back(protocol::userDataChangeOf(notification));
            condition.notify_all();
        });
    const auto awaitTold = [&](std::size_t count) {
        std::unique_lock lock(mutex);
        return condition.wait_for(lock, std::chrono::seconds(60), [&] { return told.size() == count; });
    };
    ASSERT_TRUE(awaitTold(1)) << "that the hub knows the name";
    ASSERT_EQ(add(), KSWErrorNone);
    ASSERT_TRUE(awaitTold(2));
    EXPECT_EQ(told.back(), (UserDataChange{self_, kAgentKind | kDeveloper}));
}

}  // namespace
}  // namespace ksw::daemon::test
