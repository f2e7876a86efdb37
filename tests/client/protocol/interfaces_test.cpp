// The five interfaces against the written-out contract.

#include <gtest/gtest.h>

#include <set>
#include <span>
#include <string>

#include "client/protocol/agent_service.h"
#include "client/protocol/manager_service.h"
#include "client/protocol/notification_service.h"
#include "client/protocol/registrar_service.h"
#include "client/protocol/roster_service.h"
#include "client/protocol/services.h"
#include "tests/client/protocol/contract_rows.h"

namespace ksw::protocol {
namespace {

using contract::Row;
using Classes = std::vector<std::string_view>;

std::string named(const std::vector<ipc::TypeFacts>& types) {
    std::string names;
    for (const ipc::TypeFacts& type : types) {
        names += names.empty() ? "" : ", ";
        names += type.name;
    }
    return names;
}

void expectRows(const ipc::ServiceInterface& interface, std::span<const Row> rows) {
    ASSERT_EQ(interface.methods.size(), rows.size());
    for (std::size_t index = 0; index < rows.size(); ++index) {
        const ipc::InterfaceMethod& method = interface.methods[index];
        EXPECT_EQ(method.number, rows[index].number);
        EXPECT_EQ(method.selector, rows[index].selector);
        EXPECT_EQ(named(method.arguments), rows[index].arguments) << method.selector;
        EXPECT_EQ(named(method.reply), rows[index].reply) << method.selector;
    }
}

TEST(TheManagersInterface, HasItsFortyMethodsInOrder) {
    EXPECT_EQ(GetManagerServiceInterface().name, "KSWManagerServiceInterface");
    expectRows(GetManagerServiceInterface(), contract::kManagerMethods);
}

TEST(TheRostersInterface, HasItsFourMethodsInOrder) {
    EXPECT_EQ(roster::serviceInterface().name, "KSWRosterInterface");
    expectRows(roster::serviceInterface(), contract::kRosterMethods);
}

TEST(TheRegistrarsInterface, HasThreeOfTheManagersMethods) {
    EXPECT_EQ(registrar::serviceInterface().name, "KSWRegistrarServiceInterface");
    expectRows(registrar::serviceInterface(), contract::kRegistrarMethods);
}

TEST(TheNotificationsInterface, HasItsSixMethodsInOrder) {
    EXPECT_EQ(notifications::serviceInterface().name, "KSWNotificationServiceInterface");
    expectRows(notifications::serviceInterface(), contract::kNotificationMethods);
}

TEST(TheAgentsInterface, HasItsEightMethodsInOrder) {
    EXPECT_EQ(__ksw_serviceInterface().name, "KSWManagerServiceProtocol");
    expectRows(__ksw_serviceInterface(), contract::kAgentMethods);
}

TEST(TheAgentsInterface, IsANewOneOnEveryCall) {
    const ipc::ServiceInterface first = __ksw_serviceInterface();
    const ipc::ServiceInterface second = __ksw_serviceInterface();
    EXPECT_EQ(first, second);
    EXPECT_NE(first.methods.data(), second.methods.data());
}

TEST(TheAgentsInterface, AllowsLoginItemsAndTheErrorSetInTheListOfLoginItems) {
    const ipc::ServiceInterface interface = __ksw_serviceInterface();
    const ipc::InterfaceMethod* method = interface.find("getLoginItemsWithTypeMask:reply:");
    ASSERT_NE(method, nullptr);
    EXPECT_EQ(method->reply[0].classes, (Classes{"array", "KSWLoginItem"}));
    EXPECT_EQ(method->reply[1].classes, (Classes{"error", "dictionary", "array", "string", "value"}));
}

TEST(TheAgentsInterface, AllowsBackgroundItemsAndTheErrorSetInTheListOfBackgroundItems) {
    const ipc::ServiceInterface interface = __ksw_serviceInterface();
    const ipc::InterfaceMethod* method = interface.find("getBackgroundItemsWithReply:");
    ASSERT_NE(method, nullptr);
    EXPECT_EQ(method->reply[0].classes, (Classes{"array", "KSWBackgroundItem"}));
    EXPECT_EQ(method->reply[1].classes, (Classes{"error", "dictionary", "array", "string", "value"}));
}

TEST(TheAgentsInterface, NarrowsTheErrorsOfFourMethodsAndLeavesTwoAsTheyAre) {
    const Classes narrowed{"error", "dictionary", "array", "string", "value"};
    const ipc::ServiceInterface interface = __ksw_serviceInterface();
    for (std::string_view selector :
         {"addLoginItem:reply:", "removeLoginItem:reply:", "setUserElection:forBackgroundItemIdentifier:reply:",
          "openLoginItemsWithReply:"}) {
        EXPECT_EQ(interface.find(selector)->reply[0].classes, narrowed) << selector;
    }
    for (std::string_view selector :
         {"setUserElection:forURL:reply:", "importRosterLoginItemsAndDeleteWhenDone:reply:"}) {
        EXPECT_NE(interface.find(selector)->reply[0].classes, narrowed) << selector;
    }
}

TEST(TheContract, HasSixtyOneMethodsOverFiveServices) {
    const std::size_t count =
        GetManagerServiceInterface().methods.size() + roster::serviceInterface().methods.size() +
        registrar::serviceInterface().methods.size() + notifications::serviceInterface().methods.size() +
        __ksw_serviceInterface().methods.size();
    EXPECT_EQ(count, 61U);
    const std::set<std::string_view> names{kManagerService, kRosterService, kRegistrarService,
                                           kNotificationsService, kAgentService};
    EXPECT_EQ(names,
              (std::set<std::string_view>{
                  "com.velmont.kestrelwood", "com.velmont.kestrelwood.roster", "com.velmont.kestrelwood.registrar",
                  "com.velmont.kestrelwood.notifications", "com.velmont.kestrelwoodagent"}));
}

}  // namespace
}  // namespace ksw::protocol
