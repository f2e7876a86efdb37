// Agents that die, answer what they must not, or do not answer.

#include "tests/agent/connection/agent_test.h"

namespace ksw::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::string kImport = "-[KSWAgentConnection importRosterLoginItemsAndDeleteWhenDone:]";

TEST_F(AgentTest, AnAgentThatDiesInARequestFailsItAndAllLaterOnesAndNothingElse) {
    auto server = agentThat([](ScriptedConnection& connection) { (void)connection.next(); });
    EXPECT_TRUE(isConnectionError(errorOfGetting(), ConnectionError::Interrupted));
    server.reset();
    // One that is there again is not called: what it would be told rests on what the former one knew.
    const auto another = agentThat([](ScriptedConnection& connection) { (void)connection.next(); });
    EXPECT_TRUE(isConnectionError(errorOfGetting(), ConnectionError::Invalidated));
    Collected<MaybeError> errors;
    agent_.openLoginItemsWithReply(into(errors));
    EXPECT_TRUE(isConnectionError(errors.await(1)[0], ConnectionError::Invalidated));
    EXPECT_FALSE(agent_.importRosterLoginItemsAndDeleteWhenDone(true));
    EXPECT_EQ(another->connections(), 0);
    EXPECT_NE(agent_.connection(), nullptr);
}

TEST_F(AgentTest, AnAgentThatDiesWithRequestsInFlightFailsEachOnce) {
    constexpr std::size_t kRequests = 16;
    const auto server = agentThat([](ScriptedConnection& connection) {
        for (std::size_t number = 0; number < kRequests; ++number) {
            (void)connection.next();
        }
    });
    Collected<MaybeError> errors;
    for (std::size_t number = 0; number < kRequests; ++number) {
        agent_.openLoginItemsWithReply(into(errors));
    }
    for (const MaybeError& error : errors.await(kRequests)) {
        EXPECT_TRUE(isConnectionError(error, ConnectionError::Interrupted));
    }
    agent_.openLoginItemsWithReply(into(errors));
    EXPECT_THAT(errors.await(kRequests + 1), SizeIs(kRequests + 1));
}

TEST_F(AgentTest, AnAgentThatDiesBetweenRequestsFailsTheNext) {
    {
        ScriptedAgent agent;
        agent.answer(methods::kGetLoginItems, LoginItemList{}, {});
        agent.start();
        EXPECT_EQ(errorOfGetting(), std::nullopt);
    }
    const MaybeError error = errorOfGetting();
    EXPECT_TRUE(isConnectionError(error, ConnectionError::Interrupted) ||
                isConnectionError(error, ConnectionError::Invalidated));
    EXPECT_TRUE(isConnectionError(errorOfGetting(), ConnectionError::Invalidated));
}

TEST_F(AgentTest, AnAgentThatCameLateIsFound) {
    EXPECT_TRUE(isConnectionError(errorOfGetting(), ConnectionError::Unreachable));
    ScriptedAgent agent;
    agent.answer(methods::kGetLoginItems, LoginItemList{}, {});
    agent.start();
    EXPECT_EQ(errorOfGetting(), std::nullopt);
    EXPECT_EQ(log_.count("Connecting to: com.velmont.kestrelwoodagent"), 1U);
}

TEST_F(AgentTest, AnErrorThatCarriesWhatNoErrorMayIsAnInvalidReply) {
    const Error bytes("com.example.agent", 7, Dictionary{{"what", Data{1}}});
    const auto server = agentThat([&](ScriptedConnection& connection) {
        while (const auto request = connection.next()) {
            const MaybeError error = bytes;
            if (request->selector == methods::kGetLoginItems.selector) {
                connection.reply(request->serial, methods::LoginItems{}, error);
            } else if (request->selector == methods::kGetBackgroundItems.selector) {
                connection.reply(request->serial, methods::BackgroundItems{}, error);
            } else {
                connection.reply(request->serial, error);
            }
        }
    });
    EXPECT_TRUE(isConnectionError(errorOfGetting(), ConnectionError::ReplyInvalid));
    Collected<MaybeError> errors;
    agent_.addLoginItem(item_, into(errors));
    agent_.removeLoginItem(item_, into(errors));
    agent_.setUserElection(1, KSWBackgroundItem::initWithType(1, std::nullopt), into(errors));
    agent_.openLoginItemsWithReply(into(errors));
    for (const MaybeError& error : errors.await(4)) {
        EXPECT_TRUE(isConnectionError(error, ConnectionError::ReplyInvalid));
    }
    Collected<BackgroundItemsReply> items;
    agent_.getBackgroundItemsWithReply(into(items));
    EXPECT_TRUE(isConnectionError(items.await(1)[0].error, ConnectionError::ReplyInvalid));
    // The two that have no list of their own take what every error may carry.
    Collected<MaybeError> elected;
    agent_.setUserElection(1, URL::fileURL("/opt/tool"), into(elected));
    EXPECT_EQ(elected.await(1)[0], bytes);
    EXPECT_FALSE(agent_.importRosterLoginItemsAndDeleteWhenDone(true));
    EXPECT_THAT(log_.at(LogLevel::Error), ElementsAre(kImport + ": reply error: " + bytes.description()));
}

TEST_F(AgentTest, AnAgentThatNeverAnswersOneRequestHoldsUpNoOther) {
    const auto server = agentThat([](ScriptedConnection& connection) {
        while (const auto request = connection.next()) {
            if (request->selector == methods::kOpenLoginItems.selector) {
                connection.reply(request->serial, MaybeError());
            } else if (request->selector == methods::kGetLoginItems.selector) {
                connection.reply(request->serial, methods::LoginItems(LoginItemList{}), MaybeError());
            } else if (request->selector == methods::kImportRosterLoginItems.selector) {
                connection.reply(request->serial, MaybeError());
                return;
            }
        }
    });
    Collected<BackgroundItemsReply> unanswered;
    agent_.getBackgroundItemsWithReply(into(unanswered));
    Collected<MaybeError> errors;
    for (std::size_t number = 1; number <= 10; ++number) {
        agent_.openLoginItemsWithReply(into(errors));
        errors.await(number);
        EXPECT_EQ(errorOfGetting(), std::nullopt);
    }
    EXPECT_THAT(unanswered.all(), IsEmpty());
    EXPECT_TRUE(agent_.importRosterLoginItemsAndDeleteWhenDone(false));  // and then the agent goes
    EXPECT_TRUE(isConnectionError(unanswered.await(1)[0].error, ConnectionError::Interrupted));
    EXPECT_THAT(errors.all(), SizeIs(10));
}

TEST_F(AgentTest, RequestsThatAreAnsweredBackToFrontAreAllAnsweredOnceInThatOrder) {
    constexpr std::int64_t kRequests = 64;
    const auto server = agentThat([](ScriptedConnection& connection) {
        std::vector<std::uint32_t> serials;
        while (serials.size() < kRequests) {
            serials.push_back(connection.next()->serial);
        }
        for (std::size_t number = kRequests; number > 0; --number) {
            connection.reply(serials[number - 1], MaybeError(Error("n", static_cast<std::int64_t>(number))));
        }
        (void)connection.next();
    });
    Collected<MaybeError> errors;
    for (std::int64_t number = 0; number < kRequests; ++number) {
        agent_.setUserElection(number, URL::fileURL("/opt/tool"), into(errors));
    }
    std::int64_t expected = kRequests;
    for (const MaybeError& error : errors.await(kRequests)) {
        EXPECT_EQ(error->code(), expected--);
    }
}

TEST_F(AgentTest, AReplyMayAskAgain) {
    ScriptedAgent agent;
    agent.answer(methods::kOpenLoginItems, {});
    agent.start();
    Collected<MaybeError> errors;
    agent_.openLoginItemsWithReply([&](MaybeError error) {
        errors.add(std::move(error));
        agent_.openLoginItemsWithReply(into(errors));
    });
    EXPECT_THAT(errors.await(2), Each(std::nullopt));
}

TEST_F(AgentTest, ManyThreadsAskAtOnceAndEachIsAnswered) {
    ScriptedAgent agent;
    agent.answer(methods::kGetLoginItems, LoginItemList{item_}, {});
    agent.answer(methods::kOpenLoginItems, {});
    agent.start();
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kRounds = 25;
    Collected<MaybeError> opened;
    Collected<LoginItemsReply> got;
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < kThreads; ++number) {
        threads.emplace_back([&] {
            for (std::size_t round = 0; round < kRounds; ++round) {
                agent_.openLoginItemsWithReply(into(opened));
                agent_.getLoginItemsWithTypeMask(1, into(got));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(got.all(), SizeIs(kThreads * kRounds));
    EXPECT_THAT(opened.await(kThreads * kRounds), Each(std::nullopt));
}

}  // namespace
}  // namespace ksw::test
