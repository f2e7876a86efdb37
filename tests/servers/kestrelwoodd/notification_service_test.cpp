// The notification service of a user: the program, its rules, and a desktop behind a bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <memory>

#include <kestrelwood/KSWFunctions.h>

#include "client/protocol/notification_service.h"
#include "client/protocol/services.h"
#include "platform/host/peer_identity.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/service.h"
#include "servers/kestrelwoodd/authorisation.h"
#include "servers/kestrelwoodd/notification_methods.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/support/scripted_bus.h"

namespace ksw::daemon::test {
namespace {

namespace methods = protocol::notifications;
using ksw::test::BusBehaviour;
using ksw::test::ScriptedBus;
using testing::HasSubstr;
using testing::SizeIs;

class TheNotificationService : public testing::Test {
protected:
    std::unique_ptr<Process> startReady() const {
        return host_.startReady({"DBUS_SESSION_BUS_ADDRESS=unix:path=" + bus()}, {"--notifications"});
    }
    std::string bus() const { return host_.root().at("bus"); }
    std::string socketPath() const {
        return host_.root().at("run/user/" + std::to_string(user_) + "/kestrelwood/" +
                               std::string(kNotificationsService));
    }
    static ItemPointer itemNamed(const std::string& name) {
        ItemPointer item = KSWItem::itemWithType(KSWItemTypeAgent, "8." + name);
        item->setName(name);
        return item;
    }
    /// The bool of a reply; the connection's error as text.
    template <class... A>
    std::string ask(const ipc::Method<ipc::Reply<bool>(A...)>& method,
                    const std::type_identity_t<A>&... arguments) {
        const auto reply = connection_.call(method, arguments...);
        return reply ? (std::get<0>(*reply) ? "yes" : "no") : reply.error().description();
    }

    DaemonHost host_;
    const Uid user_ = geteuid();
    ipc::Connection connection_{kNotificationsService, {ipc::Domain::Session, user_}, methods::serviceInterface()};
};

TEST_F(TheNotificationService, ServesItsSixMethods) {
    const ScriptedBus desktop(bus(), BusBehaviour::Answers);
    const std::unique_ptr<Process> daemon = startReady();
    ASSERT_NE(daemon, nullptr);
    const ItemPointer container = itemNamed("Ledger");
    EXPECT_EQ(ask(methods::kPostAdvisoryForContainer, container), "yes");
    EXPECT_EQ(ask(methods::kPostAdvisoryForItem, itemNamed("One"), itemNamed("First")), "yes");
    EXPECT_EQ(ask(methods::kPostAdvisoryForItemOfApp, itemNamed("Two"), URL::fileURL("/nowhere/Second.app")),
              "yes");
    EXPECT_EQ(ask(methods::kPostAlertForItem, itemNamed("Three"), itemNamed("Third")), "yes");
    EXPECT_EQ(ask(methods::kPostCoalescedNotification, itemNamed("Four"), itemNamed("Fourth"), 2, 1, 0x18), "yes");
    EXPECT_EQ(ask(methods::kRegisterParentApps, "/Applications/Ledger.app/Contents/Linux/Ledger"), "yes");
    EXPECT_EQ(ask(methods::kRegisterParentApps, std::nullopt), "no");
    const auto shown = desktop.shown();
    ASSERT_THAT(shown, SizeIs(5));
    EXPECT_EQ(shown[0].body, "What belongs to Ledger may start by itself.");
    EXPECT_EQ(shown[1].body, "One of First may start by itself.");
    EXPECT_EQ(shown[2].body, "Two of Second.app may start by itself.");
    EXPECT_EQ(shown[3].body, "Three of Third does not start before you allow it.");
    EXPECT_EQ(shown[4].body,
              "2 background items and 1 extension of Fourth may start by themselves (agent, daemon).");
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait().status, 0);
}

TEST_F(TheNotificationService, PutsNoticesOfOneContainerTogether) {
    const ScriptedBus desktop(bus(), BusBehaviour::AnswersInPieces);
    const std::unique_ptr<Process> daemon = startReady();
    ASSERT_NE(daemon, nullptr);
    const ItemPointer container = itemNamed("Ledger");
    EXPECT_EQ(ask(methods::kPostAdvisoryForItem, itemNamed("One"), container), "yes");
    EXPECT_EQ(ask(methods::kPostAdvisoryForItem, itemNamed("Two"), container), "yes");
    const auto shown = desktop.shown();
    ASSERT_THAT(shown, SizeIs(2));
    EXPECT_EQ(shown[1].replaces, 1U);
    EXPECT_EQ(shown[1].body, "2 background items of Ledger may start by themselves.");
}

TEST_F(TheNotificationService, WritesIntoTheLogWithoutADesktop) {
    const std::unique_ptr<Process> daemon = host_.startReady({"KESTRELWOOD_LOG=debug"}, {"--notifications"});
    ASSERT_NE(daemon, nullptr);
    EXPECT_EQ(ask(methods::kPostAdvisoryForItem, itemNamed("One"), nullptr), "no");
    daemon->signal(SIGTERM);
    EXPECT_THAT(daemon->wait().output, HasSubstr("New background item: One may start by itself."));
}

TEST_F(TheNotificationService, IsReachedByARegistrationOfParentApps) {
    const std::unique_ptr<Process> daemon = startReady();
    ASSERT_NE(daemon, nullptr);
    host_.root().writeFile("dev/console", "");
    RegisterParentApps("/Applications/Ledger.app/Contents/Linux/Ledger", user_);
    const auto status = connection_.call(ipc::kServerStatus);
    ASSERT_TRUE(status);
    EXPECT_EQ(*find<std::int64_t>(*std::get<0>(*status), "served"), 1);
}

TEST_F(TheNotificationService, ListensWhereItsUserIsLookedForAndNobodyElseMayCome) {
    const std::unique_ptr<Process> daemon = startReady();
    ASSERT_NE(daemon, nullptr);
    struct stat facts {};
    ASSERT_EQ(stat(socketPath().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0600U);
    EXPECT_NE(access(host_.databasePath().c_str(), F_OK), 0);
    daemon->signal(SIGINT);
    EXPECT_TRUE(host_.waitFor(*daemon, "STOPPING=1"));
    const Ending ending = daemon->wait();
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.output, "");
    EXPECT_NE(stat(socketPath().c_str(), &facts), 0);
}

TEST_F(TheNotificationService, RunsOnceForAUserAndBesideTheSystemsServices) {
    const std::unique_ptr<Process> system = host_.startReady();
    const std::unique_ptr<Process> first = startReady();
    ASSERT_NE(system, nullptr);
    ASSERT_NE(first, nullptr);
    const Ending second = host_.start({}, {"--notifications"})->wait();
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.output, HasSubstr("Address already in use"));
    EXPECT_EQ(ask(methods::kRegisterParentApps, "/Ledger.app"), "yes");
}

TEST_F(TheNotificationService, HasARuleForEachMethodOfItsInterface) {
    std::vector<std::string_view> selectors;
    std::apply([&](const auto&... row) { (selectors.push_back(row.method.selector), ...); }, kNotificationMethods);
    const auto interface = methods::serviceInterface();
    ASSERT_EQ(selectors.size(), interface.methods.size());
    for (std::size_t index = 0; index < selectors.size(); ++index) {
        EXPECT_EQ(selectors[index], interface.methods[index].selector);
    }
}

TEST(TheRuleOfNotices, LetsTheUserAndTheAdministratorTell) {
    constexpr Uid kUser = 501;
    EXPECT_TRUE(isAllowed(Rule::Tell, {kUser, kUser}, 0, kUser));
    EXPECT_TRUE(isAllowed(Rule::Tell, {0, 0}, 0, kUser));
    EXPECT_TRUE(isAllowed(Rule::Tell, {502, 502, /*ownsHostRoot=*/true}, 0, kUser));
    EXPECT_FALSE(isAllowed(Rule::Tell, {502, 502}, 0, kUser));
    EXPECT_FALSE(isAllowed(Rule::Tell, {kNoUser, 0}, 0, kNoUser));
    EXPECT_FALSE(isAllowed(Rule::Tell, {kEveryUser, 0}, 0, kEveryUser));
}

}  // namespace
}  // namespace ksw::daemon::test
