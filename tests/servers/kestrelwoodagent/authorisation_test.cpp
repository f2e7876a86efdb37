// Who may ask the agent, method by method.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include <kestrelwood/KSWErrors.h>

#include "client/protocol/services.h"
#include "platform/ipc/server.h"
#include "servers/kestrelwoodagent/services.h"
#include "tests/servers/kestrelwoodagent/agent_host.h"
#include "tests/support/in_child.h"

namespace ksw::agentserver::test {
namespace {

constexpr std::tuple kMethods{agent::kGetLoginItems,     agent::kAddLoginItem,
                              agent::kRemoveLoginItem,   agent::kGetBackgroundItems,
                              agent::kSetElectionForURL, agent::kSetElectionForIdentifier,
                              agent::kOpenLoginItems,    agent::kImportRosterLoginItems};

/// A service for these, in the session of the user who runs the test, and that user's connection to it.
class ServedHere {
public:
    explicit ServedHere(Served served) {
        std::optional<std::string> loss;
        Result<std::unique_ptr<LoginItems>> items = openLoginItems(host_.root().at("loginitems.db"), loss);
        EXPECT_TRUE(items.ok());
        items_ = *std::move(items);
        ipc::Dispatcher service = agentService(
            *items_, background_, [this](pid_t, ipc::Audience) { ++announced_; }, served);
        EXPECT_TRUE(server_.listen(kAgentService, ipc::Domain::Session, std::move(service)).ok());
        EXPECT_TRUE(server_.start().ok());
    }

    /// The error that a method answers with, whatever it is asked; absent when there is none.
    template <class... R, class... A>
    std::optional<Error> errorOf(const ipc::Method<ipc::Reply<R...>(A...)>& method) {
        const auto reply = connection_.call(method, A{}...);
        EXPECT_TRUE(reply.ok()) << (reply.ok() ? "" : reply.error().description());
        return reply.ok() ? std::get<sizeof...(R) - 1>(*reply) : std::nullopt;
    }
    int announced() const { return announced_; }

private:
    AgentHost host_;
    std::unique_ptr<LoginItems> items_;
    BackgroundItems background_{::geteuid()};
    std::atomic<int> announced_{0};
    ipc::Server server_;
    ipc::Connection connection_{std::string(kAgentService), ipc::ConnectionOptions{}, __ksw_serviceInterface()};
};

bool isRefusal(const std::optional<Error>& error) {
    return error == KSWErrorWithCode(KSWErrorPermissionDenied);
}

/// Asks for every method of the agent; whether it was refused is `isRefused`.
void expectRefusals(ServedHere& agent, bool isRefused) {
    const auto expect = [&](const auto& method) {
        SCOPED_TRACE(method.selector);
        EXPECT_EQ(isRefusal(agent.errorOf(method)), isRefused);
    };
    std::apply([&](const auto&... method) { (expect(method), ...); }, kMethods);
}

TEST(TheAgentsMethods, AreAllOfTheContract) {
    const ipc::ServiceInterface interface = __ksw_serviceInterface();
    ASSERT_EQ(interface.methods.size(), std::tuple_size_v<decltype(kMethods)>);
    int number = 0;
    const auto expectNext = [&](const auto& method) { EXPECT_EQ(method.number, ++number); };
    std::apply([&](const auto&... method) { (expectNext(method), ...); }, kMethods);
}

TEST(TheAgentsMethods, AreServedForTheUser) {
    ServedHere agent({::geteuid(), kNoUser});
    expectRefusals(agent, false);
}

TEST(TheAgentsMethods, AreServedForTheOwnerOfTheHostRoot) {
    ksw::test::asOrdinaryUser([] {
        ServedHere agent({::geteuid() + 1, ::geteuid()});
        expectRefusals(agent, false);
    });
}

TEST(TheAgentsMethods, AreServedForNobodyElse) {
    ksw::test::asOrdinaryUser([] {
        ServedHere agent({::geteuid() + 1, kNoUser});
        expectRefusals(agent, true);
        EXPECT_EQ(agent.announced(), 0);
    });
}

TEST(TheRuleOfTheAgent, LetsTheUserAndTheAdministratorAsk) {
    constexpr Served kServed{501, 502};
    EXPECT_TRUE(kServed.includes(501));
    EXPECT_TRUE(kServed.includes(502));
    EXPECT_TRUE(kServed.includes(0));
    EXPECT_FALSE(kServed.includes(503));
    EXPECT_FALSE((Served{501, kNoUser}.includes(kNoUser)));
}

}  // namespace
}  // namespace ksw::agentserver::test
