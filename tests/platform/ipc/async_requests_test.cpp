#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "platform/host/sys.h"
#include "tests/platform/ipc/test_service.h"
#include "tests/support/scripted_server.h"
#include "tests/support/sys_faults.h"

namespace ksw::test {
namespace {

using Sum = Result<std::tuple<std::int64_t>>;

/// A connection whose handlers run on the thread that asks for it, and what they were given.
class AConnectionWithoutAThread : public testing::Test {
protected:
    void ask(std::int64_t left, std::int64_t right) {
        connection_->callAsync(
            kAdd,
            [this](Sum reply) {
                EXPECT_EQ(std::this_thread::get_id(), thread_);
                replies_.push_back(std::move(reply));
            },
            left, right);
    }
    std::vector<std::int64_t> sums() const {
        std::vector<std::int64_t> sums;
        for (const Sum& reply : replies_) {
            sums.push_back(reply ? std::get<0>(*reply) : -1);
        }
        return sums;
    }

    const std::thread::id thread_ = std::this_thread::get_id();
    const HostRoot root_;
    std::unique_ptr<ipc::Connection> connection_ = std::make_unique<ipc::Connection>(
        kTestService,
        ipc::ConnectionOptions{ipc::Domain::System, std::nullopt, ipc::Redial::UntilReached,
                               ipc::Handlers::OnCallers},
        testInterface());
    std::vector<Sum> replies_;
};

TEST_F(AConnectionWithoutAThread, ReadsAndRunsHandlersWhenItIsToldTo) {
    const TestServer server;
    EXPECT_EQ(connection_->answersFd(), -1);
    ask(20, 22);
    while (replies_.empty()) {
        pollfd wait{connection_->answersFd(), POLLIN, 0};
        ASSERT_TRUE(host::sys::poll({&wait, 1}, std::nullopt).ok());
        connection_->readAnswers();
        EXPECT_TRUE(replies_.empty());
        connection_->runHandlers();
    }
    EXPECT_EQ(sums(), std::vector<std::int64_t>{42});
}

TEST_F(AConnectionWithoutAThread, KeepsTheAnswerThatASynchronousRequestHasRead) {
    const TestServer server;
    ask(20, 22);
    EXPECT_TRUE(connection_->call(kAdd, 1, 2).ok());
    EXPECT_TRUE(replies_.empty());
    connection_->runHandlers();
    EXPECT_EQ(sums(), std::vector<std::int64_t>{42});
}

TEST_F(AConnectionWithoutAThread, ReadsNothingWhenNothingIsAskedFor) {
    const TestServer server;
    connection_->readAnswers();
    EXPECT_TRUE(connection_->call(kAdd, 1, 2).ok());
    connection_->readAnswers();
    connection_->runHandlers();
    EXPECT_TRUE(replies_.empty());
}

TEST_F(AConnectionWithoutAThread, RunsTheHandlerWithTheErrorWhereThereIsNoServer) {
    ask(20, 22);
    EXPECT_TRUE(replies_.empty());
    connection_->runHandlers();
    ASSERT_EQ(replies_.size(), 1U);
    EXPECT_EQ(connectionErrorOf(replies_.front()), ConnectionError::Unreachable);
}

TEST_F(AConnectionWithoutAThread, RunsTheHandlersThatItOwesWhenItGoes) {
    const TestServer server;
    ask(20, 22);
    ask(1, 2);
    connection_.reset();
    ASSERT_EQ(replies_.size(), 2U);
    EXPECT_EQ(connectionErrorOf(replies_.front()), ConnectionError::Invalidated);
    EXPECT_EQ(connectionErrorOf(replies_.back()), ConnectionError::Invalidated);
}

TEST(AnAsynchronousRequest, GetsItsReplyOnTheConnectionsOwnThread) {
    const HostRoot root;
    const TestServer server;
    const auto connection = testConnection();
    std::latch done(1);
    std::int64_t sum = 0;
    std::thread::id thread;
    connection->callAsync(
        kAdd,
        [&](const Sum& reply) {
            sum = reply ? std::get<0>(*reply) : -1;
            thread = std::this_thread::get_id();
            done.count_down();
        },
        20, 22);
    done.wait();
    EXPECT_EQ(sum, 42);
    EXPECT_NE(thread, std::this_thread::get_id());
}

/// A service that never answers its first request, and all others at once.
class ARequestThatIsNotAnswered : public testing::Test {
protected:
    /// Asks, and waits until the handler has run; false when it does not.
    bool isAnswered(std::int64_t left) {
        const auto done = std::make_shared<std::promise<void>>();
        connection_->callAsync(
            kAdd, [done](const Sum&) { done->set_value(); }, left, 1);
        return done->get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    }

    const HostRoot root_;
    const ScriptedServer server_{kTestService, [](ScriptedConnection& connection) {
                                     (void)connection.next();
                                     while (const auto request = connection.next()) {
                                         connection.reply(request->serial, std::int64_t{1});
                                     }
                                 }};
    std::atomic<int> unanswered_ = 0;
    std::unique_ptr<ipc::Connection> connection_ = testConnection();
};

TEST_F(ARequestThatIsNotAnswered, HoldsUpNoOther) {
    connection_->callAsync(
        kAdd, [this](const Sum&) { ++unanswered_; }, 1, 1);
    for (int round = 0; round < 300; ++round) {
        ASSERT_TRUE(isAnswered(round)) << round;
        ASSERT_TRUE(connection_->call(kAdd, round, 1).ok());
    }
    EXPECT_EQ(unanswered_, 0);
    connection_.reset();
    EXPECT_EQ(unanswered_, 1);
}

TEST_F(ARequestThatIsNotAnswered, HoldsUpNoneThatCannotBeSent) {
    connection_->callAsync(
        kAdd, [this](const Sum&) { ++unanswered_; }, 1, 1);
    ASSERT_TRUE(connection_->call(kAdd, 1, 1).ok());
    for (int round = 0; round < 3; ++round) {
        std::promise<void> done;
        connection_->callAsync(
            kEcho,
            [&done](const auto& reply) {
                EXPECT_EQ(connectionErrorOf(reply), ConnectionError::RequestTooLarge);
                done.set_value();
            },
            std::string(limits::kRootRequestBodyMax + 1, 'a'));
        ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    }
    EXPECT_EQ(unanswered_, 0);
}

TEST(AsynchronousRequests, RunTheirHandlersOneAtATimeBesideSynchronousOnes) {
    constexpr int kRequests = 400;
    const HostRoot root;
    const TestServer server;
    const auto connection = testConnection();
    std::latch done(kRequests);
    int running = 0;
    std::int64_t sum = 0;
    for (int request = 0; request < kRequests; ++request) {
        connection->callAsync(
            kAdd,
            [&](const Sum& reply) {
                EXPECT_EQ(++running, 1);
                sum += reply ? std::get<0>(*reply) : 0;
                --running;
                done.count_down();
            },
            request, 1);
        ASSERT_TRUE(connection->call(kAdd, 1, 2).ok());
    }
    done.wait();
    EXPECT_EQ(sum, kRequests * (kRequests - 1) / 2 + kRequests);
}

TEST(AnAsynchronousRequest, MayAskAgainFromItsHandler) {
    const HostRoot root;
    const TestServer server;
    const auto connection = testConnection();
    std::latch done(1);
    bool isAnswered = false;
    connection->callAsync(
        kAdd,
        [&](const Sum&) {
            isAnswered = connection->call(kAdd, 1, 2).ok();
            done.count_down();
        },
        1, 1);
    done.wait();
    EXPECT_TRUE(isAnswered);
}

TEST(AnAsynchronousRequest, WithoutAServerGetsTheError) {
    const HostRoot root;
    const auto connection = testConnection();
    std::latch done(1);
    std::optional<ConnectionError> error;
    connection->callAsync(
        kAdd,
        [&](const Sum& reply) {
            error = connectionErrorOf(reply);
            done.count_down();
        },
        1, 1);
    done.wait();
    EXPECT_EQ(error, ConnectionError::Unreachable);
}

TEST(AnAsynchronousRequest, GetsTheErrorWhenTheServerGoes) {
    const HostRoot root;
    const ScriptedServer server(kTestService, [](ScriptedConnection& connection) { connection.next(); });
    const auto connection = testConnection(ipc::Redial::UntilReached);
    std::latch done(1);
    std::optional<ConnectionError> error;
    connection->callAsync(
        kAdd,
        [&](const Sum& reply) {
            error = connectionErrorOf(reply);
            done.count_down();
        },
        1, 1);
    done.wait();
    EXPECT_EQ(error, ConnectionError::Interrupted);
}

TEST(AnAsynchronousRequest, IsInvalidatedWhenItsConnectionEnds) {
    constexpr int kRequests = 5;
    const HostRoot root;
    std::latch arrived(kRequests);
    const ScriptedServer server(kTestService, [&](ScriptedConnection& connection) {
        while (connection.next()) {
            arrived.count_down();
        }
    });
    auto connection = testConnection();
    std::vector<std::optional<ConnectionError>> errors;
    for (int request = 0; request < kRequests; ++request) {
        connection->callAsync(
            kAdd, [&](const Sum& reply) { errors.push_back(connectionErrorOf(reply)); }, 1, 1);
    }
    arrived.wait();
    connection.reset();
    EXPECT_EQ(errors, std::vector<std::optional<ConnectionError>>(kRequests, ConnectionError::Invalidated));
}

TEST(AnAsynchronousRequest, MayEndItsConnectionFromItsHandler) {
    const HostRoot root;
    const TestServer server;
    auto connection = testConnection();
    std::latch done(1);
    connection->callAsync(
        kAdd,
        [&](const Sum&) {
            connection.reset();
            done.count_down();
        },
        1, 1);
    done.wait();
    EXPECT_EQ(connection, nullptr);
}

}  // namespace
}  // namespace ksw::test
