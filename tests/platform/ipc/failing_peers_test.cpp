// What a client makes of servers that fail, lie or go away. Every request ends exactly once.
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/ipc/test_service.h"
#include "tests/support/scripted_server.h"

namespace ksw::test {
namespace {

using Script = ScriptedServer::Script;

/// Answers each request with bytes that are made from it.
Script answering(std::function<Data(const ScriptedRequest&)> answer) {
    return [answer = std::move(answer)](ScriptedConnection& connection) {
        while (const auto request = connection.next()) {
            connection.send(answer(*request));
        }
    };
}

TEST(APeerThatClosesInTheMiddleOfAReply, InterruptsTheRequestWhereverItIs) {
    const std::size_t size = ScriptedConnection::replyFrame(0, std::int64_t{1'000'000}).size();
    for (std::size_t sent = 0; sent < size; ++sent) {
        const HostRoot root;
        const ScriptedServer server(kTestService, [sent](ScriptedConnection& connection) {
            if (const auto request = connection.next()) {
                const Data frame = ScriptedConnection::replyFrame(request->serial, std::int64_t{1'000'000});
                connection.send(Bytes(frame).first(sent));
            }
        });
        const auto connection = testConnection();
        EXPECT_EQ(connectionErrorOf(connection->call(kAdd, 1, 2)), ConnectionError::Interrupted) << sent;
    }
}

TEST(APeerThatSendsItsReplyByteByByte, IsUnderstood) {
    const HostRoot root;
    const ScriptedServer server(kTestService, [](ScriptedConnection& connection) {
        while (const auto request = connection.next()) {
            const Data frame = ScriptedConnection::replyFrame(request->serial, std::int64_t{42});
            for (const std::uint8_t byte : frame) {
                connection.send({&byte, 1});
            }
        }
    });
    const auto connection = testConnection();
    EXPECT_TRUE(connection->call(kAdd, 1, 2).ok());
    EXPECT_TRUE(connection->call(kAdd, 1, 2).ok());
}

/// What a request gets that is answered so, and whether the next one finds the same connection.
struct Aftermath {
    std::optional<ConnectionError> error;
    int connections = 0;
};
Aftermath answeredWith(const std::function<Data(const ScriptedRequest&)>& answer) {
    const HostRoot root;
    const ScriptedServer server(kTestService, answering(answer));
    const auto connection = testConnection();
    const auto error = connectionErrorOf(connection->call(kAdd, 1, 2));
    (void)connection->call(kAdd, 1, 2);
    return {error, server.connections()};
}

TEST(AReply, OfAnotherTypeFailsItsRequestAlone) {
    const Aftermath after = answeredWith([](const ScriptedRequest& request) {
        return ScriptedConnection::replyFrame(request.serial, std::optional<std::string>("three"));
    });
    EXPECT_EQ(after.error, ConnectionError::ReplyInvalid);
    EXPECT_EQ(after.connections, 1);
}

TEST(AReply, WithTooManyArgumentsFailsItsRequestAlone) {
    const Aftermath after = answeredWith([](const ScriptedRequest& request) {
        return ScriptedConnection::replyFrame(request.serial, std::int64_t{1}, std::int64_t{2});
    });
    EXPECT_EQ(after.error, ConnectionError::ReplyInvalid);
    EXPECT_EQ(after.connections, 1);
}

TEST(AReply, WithSomethingBehindItFailsItsRequestAlone) {
    const Aftermath after = answeredWith([](const ScriptedRequest& request) {
        return frameAround(ipc::FrameKind::Reply, request.serial, Data{0x81, 0x01, 0x01});
    });
    EXPECT_EQ(after.error, ConnectionError::ReplyInvalid);
    EXPECT_EQ(after.connections, 1);
}

TEST(AReply, ThatNestsTooDeepFailsItsRequestAlone) {
    const Aftermath after = answeredWith([](const ScriptedRequest& request) {
        return frameAround(ipc::FrameKind::Reply, request.serial, Data(1'000, 0x81));
    });
    EXPECT_EQ(after.error, ConnectionError::ReplyInvalid);
    EXPECT_EQ(after.connections, 1);
}

TEST(AReply, ToNoRequestEndsTheConnection) {
    const Aftermath after = answeredWith([](const ScriptedRequest& request) {
        return ScriptedConnection::replyFrame(request.serial + 1, std::int64_t{3});
    });
    EXPECT_EQ(after.error, ConnectionError::ReplyInvalid);
    EXPECT_EQ(after.connections, 2);
}

TEST(AReply, OfAnotherVersionFailsWithAnErrorThatNamesBothVersions) {
    const HostRoot root;
    const ScriptedServer server(kTestService, answering([](const ScriptedRequest& request) {
                                    Data frame = ScriptedConnection::replyFrame(request.serial, std::int64_t{3});
                                    frame[4] = 2;
                                    return frame;
                                }));
    const auto answer = testConnection()->call(kAdd, 1, 2);
    ASSERT_EQ(connectionErrorOf(answer), ConnectionError::ReplyInvalid);
    const std::string text(answer.error().localizedDescription());
    EXPECT_NE(text.find("the peer speaks version 2 of the wire, and this side version 1"), std::string::npos)
        << text;
}

TEST(AReply, WithABrokenHeaderEndsTheConnection) {
    const Aftermath after = answeredWith([](const ScriptedRequest&) { return Data(64, 0xAA); });
    EXPECT_EQ(after.error, ConnectionError::ReplyInvalid);
    EXPECT_EQ(after.connections, 2);
}

TEST(AReply, LongerThanAFrameMayBeEndsTheConnection) {
    const Aftermath after = answeredWith([](const ScriptedRequest& request) {
        Data header(ipc::kHeaderSize);
        ipc::writeHeader(
            {ipc::FrameKind::Reply, static_cast<std::uint32_t>(limits::kFrameBodyMax + 1), request.serial},
            std::span(header).first<ipc::kHeaderSize>());
        return header;
    });
    EXPECT_EQ(after.error, ConnectionError::ReplyInvalid);
    EXPECT_EQ(after.connections, 2);
}

TEST(AReply, ThatIsARequestEndsTheConnection) {
    const Aftermath after = answeredWith([](const ScriptedRequest& request) {
        return frameAround(ipc::FrameKind::Request, request.serial, request.body);
    });
    EXPECT_EQ(after.error, ConnectionError::ReplyInvalid);
    EXPECT_EQ(after.connections, 2);
}

TEST(ARefusal, CarriesTheServersCodeAndText) {
    const HostRoot root;
    const ScriptedServer server(kTestService, [](ScriptedConnection& connection) {
        while (const auto request = connection.next()) {
            connection.refuse(request->serial, -97, "not for you");
        }
    });
    const auto connection = testConnection();
    const auto reply = connection->call(kAdd, 1, 2);
    ASSERT_EQ(connectionErrorOf(reply), ConnectionError::Refused);
    EXPECT_EQ(reply.error().localizedDescription(), "not for you");
    const auto* code = find<std::int64_t>(reply.error().userInfo(), ipc::kRefusalCodeKey);
    ASSERT_NE(code, nullptr);
    EXPECT_EQ(*code, -97);
}

TEST(ARefusal, ThatCannotBeReadIsAnInvalidReply) {
    const Aftermath after = answeredWith([](const ScriptedRequest& request) {
        return frameAround(ipc::FrameKind::Refusal, request.serial, Data{0x81, 0x01});
    });
    EXPECT_EQ(after.error, ConnectionError::ReplyInvalid);
    EXPECT_EQ(after.connections, 1);
}

TEST(AServerThatDiesUnderManyRequests, EndsEachOfThemOnce) {
    constexpr int kThreads = 64;
    const HostRoot root;
    std::latch arrived(kThreads);
    auto server = std::make_unique<ScriptedServer>(kTestService, [&](ScriptedConnection& connection) {
        while (connection.next()) {
            arrived.count_down();
        }
    });
    const auto connection = testConnection(ipc::Redial::UntilReached);
    std::atomic<int> interrupted{0};
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            if (connectionErrorOf(connection->call(kAdd, 1, 2)) == ConnectionError::Interrupted) {
                ++interrupted;
            }
        });
    }
    arrived.wait();
    server.reset();
    threads.clear();
    EXPECT_EQ(interrupted, kThreads);
}

}  // namespace
}  // namespace ksw::test
