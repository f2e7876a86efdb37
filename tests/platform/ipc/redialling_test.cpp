// When a connection dials, and when it does not any more.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <latch>
#include <thread>

#include "tests/platform/ipc/test_service.h"
#include "tests/support/scripted_server.h"

namespace ksw::test {
namespace {

TEST(AConnectionOfTheDaemonsClients, FindsARestartedServer) {
    const HostRoot root;
    auto server = std::make_unique<TestServer>();
    const auto connection = testConnection();
    ASSERT_TRUE(connection->call(kAdd, 1, 2).ok());
    server.reset();
    server = std::make_unique<TestServer>();
    const auto reply = connection->call(kAdd, 1, 2);
    EXPECT_TRUE(reply.ok()) << reply.error().description();
}

TEST(AConnectionOfTheDaemonsClients, SaysThatTheServerIsGoneUntilItIsBack) {
    const HostRoot root;
    auto server = std::make_unique<TestServer>();
    const auto connection = testConnection();
    ASSERT_TRUE(connection->call(kAdd, 1, 2).ok());
    server.reset();
    EXPECT_EQ(connectionErrorOf(connection->call(kAdd, 1, 2)), ConnectionError::Unreachable);
    server = std::make_unique<TestServer>();
    EXPECT_TRUE(connection->call(kAdd, 1, 2).ok());
}

TEST(AConnectionThatIsNotRedialled, EndsWithItsServer) {
    const HostRoot root;
    auto server = std::make_unique<TestServer>();
    const auto connection = testConnection(ipc::Redial::UntilReached);
    ASSERT_TRUE(connection->call(kAdd, 1, 2).ok());
    server.reset();
    server = std::make_unique<TestServer>();
    EXPECT_EQ(connectionErrorOf(connection->call(kAdd, 1, 2)), ConnectionError::Interrupted);
    EXPECT_EQ(connectionErrorOf(connection->call(kAdd, 1, 2)), ConnectionError::Invalidated);
}

TEST(AConnectionThatIsNotRedialled, IsDialledUntilAServerWasReached) {
    const HostRoot root;
    const auto connection = testConnection(ipc::Redial::UntilReached);
    EXPECT_EQ(connectionErrorOf(connection->call(kAdd, 1, 2)), ConnectionError::Unreachable);
    const TestServer server;
    EXPECT_TRUE(connection->call(kAdd, 1, 2).ok());
}

TEST(AConnection, DialsNothingBeforeItsFirstRequest) {
    const HostRoot root;
    const ScriptedServer server(kTestService, [](ScriptedConnection& connection) { connection.next(); });
    { const auto connection = testConnection(); }
    EXPECT_EQ(server.connections(), 0);
}

TEST(AConnection, IsDialledAnewByAForkedChild) {
    const HostRoot root;
    const ScriptedServer server(kTestService, [](ScriptedConnection& connection) {
        while (const auto request = connection.next()) {
            connection.reply(request->serial, std::int64_t{3});
        }
    });
    const auto connection = testConnection();
    ASSERT_TRUE(connection->call(kAdd, 1, 2).ok());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::_exit(connection->call(kAdd, 1, 2).ok() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(server.connections(), 2);
    EXPECT_TRUE(connection->call(kAdd, 1, 2).ok());
    EXPECT_EQ(server.connections(), 2);
}

TEST(AConnection, IsDialledAnewByAChildThatWasForkedInTheMiddleOfARequest) {
    const HostRoot root;
    std::latch arrived(1);
    std::latch answer(1);
    std::atomic<int> connections{0};
    const ScriptedServer server(kTestService, [&](ScriptedConnection& connection) {
        const bool isParents = connections++ == 0;
        while (const auto request = connection.next()) {
            if (isParents) {
                arrived.count_down();
                answer.wait();
            }
            connection.reply(request->serial, std::int64_t{3});
        }
    });
    const auto connection = testConnection();
    bool isAnswered = false;
    std::jthread caller([&] { isAnswered = connection->call(kAdd, 1, 2).ok(); });
    arrived.wait();
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::_exit(connection->call(kAdd, 1, 2).ok() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    answer.count_down();
    caller.join();
    EXPECT_TRUE(isAnswered);
}

}  // namespace
}  // namespace ksw::test
