// Replies that carry what their method does not allow.

#include <gtest/gtest.h>

#include "client/protocol/agent_service.h"
#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/server.h"
#include "tests/support/environment.h"
#include "tests/support/host_root.h"

namespace ksw::protocol {
namespace {

/// What the server says in place of a method: the same name, another reply.
constexpr ipc::Method<ipc::Reply<manager::SettingsPointer>(MaybeURL, Type, MaybeURL, MaybeDictionary, Uid)> kLie{
    13, manager::kRegisterItemOfURL.selector};

bool isInvalidReply(const Error& error) {
    return error.domain() == kConnectionErrorDomain &&
           error.code() == static_cast<std::int64_t>(ConnectionError::ReplyInvalid);
}

TEST(AClientOfTheManagersInterface, RejectsAnObjectOfAnotherClassInPlaceOfAFetchResult) {
    const test::HostRoot root;
    ipc::Dispatcher dispatcher;
    dispatcher.on(kLie,
                  [](const ipc::RequestContext&, ipc::Responder<manager::SettingsPointer> responder, MaybeURL, Type,
                     MaybeURL, MaybeDictionary, Uid) { responder.answer(std::make_shared<KSWUserSettings>()); });
    ipc::Server server;
    ASSERT_TRUE(server.listen(kManagerService, ipc::Domain::System, std::move(dispatcher)).ok());
    ASSERT_TRUE(server.start().ok());

    ipc::Connection connection(kManagerService, ipc::managementDaemonOptions(), GetManagerServiceInterface());
    const auto reply =
        connection.call(manager::kRegisterItemOfURL, std::nullopt, 8, std::nullopt, std::nullopt, 501);
    ASSERT_FALSE(reply.ok());
    EXPECT_TRUE(isInvalidReply(reply.error())) << reply.error().description();
}

/// An agent that answers one error to every addition and every election, and a client of it.
class AnErrorOfTheAgent : public ::testing::Test {
protected:
    explicit AnErrorOfTheAgent() : session_("XDG_RUNTIME_DIR", "/session") {}

    void answer(const Error& error) {
        ipc::Dispatcher dispatcher;
        dispatcher.on(agent::kAddLoginItem,
                      [error](const ipc::RequestContext&, ipc::Responder<MaybeError> responder,
                              agent::LoginItemPointer) { responder.answer(error); });
        dispatcher.on(agent::kSetElectionForURL,
                      [error](const ipc::RequestContext&, ipc::Responder<MaybeError> responder, std::int64_t,
                              MaybeURL) { responder.answer(error); });
        ASSERT_TRUE(server_.listen(kAgentService, ipc::Domain::Session, std::move(dispatcher)).ok());
        ASSERT_TRUE(server_.start().ok());
    }
    Result<std::tuple<MaybeError>> add() { return connection_.call(agent::kAddLoginItem, nullptr); }
    Result<std::tuple<MaybeError>> elect() { return connection_.call(agent::kSetElectionForURL, 1, std::nullopt); }

    const test::HostRoot root_;
    const test::ScopedVariable session_;
    ipc::Server server_;
    ipc::Connection connection_{kAgentService, {}, __ksw_serviceInterface()};
};

TEST_F(AnErrorOfTheAgent, MayCarryTheClassesOfItsSet) {
    const Error error("D", 7,
                      Dictionary{{"text", "why"},
                                 {"list", Array{1, 2.5, true}},
                                 {"more", Dictionary{{"a", "b"}}},
                                 {"cause", Error("E", 8)}});
    answer(error);
    const auto reply = add();
    ASSERT_TRUE(reply.ok()) << reply.error().description();
    EXPECT_EQ(std::get<0>(*reply), error);
}

TEST_F(AnErrorOfTheAgent, WithAClassOutsideItsSetIsRejected) {
    answer(Error("D", 7, Dictionary{{"bytes", Data{1, 2}}}));
    const auto reply = add();
    ASSERT_FALSE(reply.ok());
    EXPECT_TRUE(isInvalidReply(reply.error())) << reply.error().description();
}

TEST_F(AnErrorOfTheAgent, WithAClassOutsideItsSetDeepInsideIsRejected) {
    answer(Error("D", 7, Dictionary{{"list", Array{Dictionary{{"when", Date{1}}}}}}));
    const auto reply = add();
    ASSERT_FALSE(reply.ok());
    EXPECT_TRUE(isInvalidReply(reply.error())) << reply.error().description();
}

TEST_F(AnErrorOfTheAgent, OfAMethodWithTheDefaultRulesMayCarryBytes) {
    const Error error("D", 7, Dictionary{{"bytes", Data{1, 2}}});
    answer(error);
    const auto reply = elect();
    ASSERT_TRUE(reply.ok()) << reply.error().description();
    EXPECT_EQ(std::get<0>(*reply), error);
}

}  // namespace
}  // namespace ksw::protocol
