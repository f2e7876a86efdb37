#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

#include "platform/ipc/service.h"
#include "tests/platform/ipc/test_service.h"

namespace ksw::test {
namespace {

using ipc::Connection;

class ARequest : public testing::Test {
protected:
    HostRoot root_;
    TestServer server_;
    std::unique_ptr<Connection> connection_ = testConnection();
};

TEST_F(ARequest, GetsItsReply) {
    const auto reply = connection_->call(kAdd, 20, 22);
    ASSERT_TRUE(reply.ok()) << reply.error().description();
    EXPECT_EQ(std::get<0>(*reply), 42);
}

TEST_F(ARequest, CarriesNothingAndGetsNothing) {
    EXPECT_TRUE(connection_->call(kNothing).ok());
    const auto reply = connection_->call(kEcho, std::nullopt);
    ASSERT_TRUE(reply.ok());
    EXPECT_EQ(std::get<0>(*reply), std::nullopt);
}

TEST_F(ARequest, CarriesMoreThanASocketHoldsAtOnce) {
    const Data bytes(900'000, 0x5A);
    const auto reply = connection_->call(kEchoBytes, bytes);
    ASSERT_TRUE(reply.ok()) << reply.error().description();
    EXPECT_EQ(std::get<0>(*reply), bytes);
}

TEST_F(ARequest, OfManyThreadsGetsItsOwnReply) {
    constexpr int kThreads = 16;
    constexpr int kRequests = 500;
    std::atomic<int> right{0};
    std::latch start(kThreads);
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            start.arrive_and_wait();
            for (int request = 0; request < kRequests; ++request) {
                const auto reply = connection_->call(kAdd, thread * 1'000'000, request);
                right += reply && std::get<0>(*reply) == thread * 1'000'000 + request ? 1 : 0;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(right, kThreads * kRequests);
}

TEST_F(ARequest, ThatNobodyAnswersIsRefused) {
    const auto reply = connection_->call(kNeverAnswered);
    ASSERT_EQ(connectionErrorOf(reply), ConnectionError::Refused);
    const auto* code = find<std::int64_t>(reply.error().userInfo(), ipc::kRefusalCodeKey);
    ASSERT_NE(code, nullptr);
    EXPECT_EQ(*code, static_cast<std::int64_t>(ipc::Refusal::NotAnswered));
    EXPECT_TRUE(connection_->call(kAdd, 1, 2).ok());
}

TEST_F(ARequest, OfAnUnknownMethodIsRefusedByName) {
    constexpr ipc::Method<ipc::Reply<>()> kUnknown{9, "unheardOfWithReply:"};
    const auto reply = connection_->call(kUnknown);
    ASSERT_EQ(connectionErrorOf(reply), ConnectionError::Refused);
    EXPECT_NE(reply.error().localizedDescription().find("unheardOfWithReply:"), std::string_view::npos);
    EXPECT_TRUE(connection_->call(kAdd, 1, 2).ok());
}

TEST_F(ARequest, WithArgumentsThatDoNotFitIsRefused) {
    constexpr ipc::Method<ipc::Reply<std::int64_t>(std::optional<std::string>)> kWrong{1, "add:to:reply:"};
    const auto reply = connection_->call(kWrong, "one");
    ASSERT_EQ(connectionErrorOf(reply), ConnectionError::Refused);
    EXPECT_TRUE(connection_->call(kAdd, 1, 2).ok());
}

TEST_F(ARequest, WhoseReplyHasAnotherArityFails) {
    constexpr ipc::Method<ipc::Reply<std::int64_t, bool>(std::int64_t, std::int64_t)> kWrong{1, "add:to:reply:"};
    EXPECT_EQ(connectionErrorOf(connection_->call(kWrong, 1, 2)), ConnectionError::ReplyInvalid);
    EXPECT_TRUE(connection_->call(kAdd, 1, 2).ok());
}

TEST_F(ARequest, WhoseReplyIsOfAnotherTypeFails) {
    constexpr ipc::Method<ipc::Reply<bool>(std::int64_t, std::int64_t)> kWrong{1, "add:to:reply:"};
    EXPECT_EQ(connectionErrorOf(connection_->call(kWrong, 1, 2)), ConnectionError::ReplyInvalid);
    EXPECT_TRUE(connection_->call(kAdd, 1, 2).ok());
}

TEST_F(ARequest, ForTheServersStatusGetsItsCounters) {
    ASSERT_TRUE(connection_->call(kAdd, 1, 2).ok());
    auto service = ipc::openService(kTestService, ipc::managementDaemonOptions(), testInterface());
    std::optional<Error> error;
    const auto status = service->serverStatus(&error);
    ASSERT_TRUE(status.has_value()) << error->description();
    EXPECT_FALSE(error.has_value());
    const auto* served = find<std::int64_t>(*status, "served");
    ASSERT_NE(served, nullptr);
    EXPECT_GE(*served, 1);
    const auto* connections = find<std::int64_t>(*status, "connections");
    ASSERT_NE(connections, nullptr);
    EXPECT_EQ(*connections, 2);
}

TEST(ARequestWithoutAServer, SaysThatNobodyListens) {
    const HostRoot root;
    const auto connection = testConnection();
    EXPECT_EQ(connectionErrorOf(connection->call(kAdd, 1, 2)), ConnectionError::Unreachable);
    const TestServer server;
    EXPECT_TRUE(connection->call(kAdd, 1, 2).ok());
}

}  // namespace
}  // namespace ksw::test
