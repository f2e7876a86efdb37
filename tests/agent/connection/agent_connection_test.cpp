// What a program is told by the agent's connection, on which thread, and what stands in the log.

#include "tests/agent/connection/agent_test.h"

namespace ksw::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::string kGet = "#LoginItems -[KSWAgentConnection getLoginItemsWithTypeMask:reply:]";
const std::string kAdd = "#LoginItems -[KSWAgentConnection addLoginItem:reply:]";
const std::string kRemove = "#LoginItems -[KSWAgentConnection removeLoginItem:reply:]";
const std::string kGetBackground = "#BackgroundTasks -[KSWAgentConnection getBackgroundItemsWithReply:]";
const std::string kElectURL = "#BackgroundTasks -[KSWAgentConnection setUserElection:forURL:reply:]";
const std::string kElectItem = "#BackgroundTasks -[KSWAgentConnection setUserElection:forBackgroundItem:reply:]";
const std::string kOpen = "#BackgroundTasks -[KSWAgentConnection openLoginItemsWithReply:]";
const std::string kImport = "-[KSWAgentConnection importRosterLoginItemsAndDeleteWhenDone:]";

TEST_F(AgentTest, ItsConnectionIsMadeWhenItIsFirstReadAndThenIsTheSame) {
    ServiceConnection* connection = agent_.connection();
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(connection, agent_.connection());
    EXPECT_EQ(connection, KSWAgentConnection::sharedInstance().connection());
    EXPECT_EQ(connection->serviceName(), "com.velmont.kestrelwoodagent");
    EXPECT_EQ(KSWAgentConnection::serviceName(), "com.velmont.kestrelwoodagent");
    EXPECT_EQ(ipc::connectionOf(connection)->interface(), __ksw_serviceInterface());
    EXPECT_THAT(log_.at(LogLevel::Info), ElementsAre("Connecting to: com.velmont.kestrelwoodagent"));
    EXPECT_EQ(log_.lines().front().publicForm, log_.lines().front().fullForm);
}

TEST_F(AgentTest, ItsConnectionIsOneForAllThreadsThatComeTogether) {
    constexpr int kThreads = 8;
    std::latch together(kThreads);
    std::vector<ServiceConnection*> seen(kThreads);
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            together.arrive_and_wait();
            seen[static_cast<std::size_t>(number)] = agent_.connection();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(seen, Each(agent_.connection()));
}

TEST_F(AgentTest, WithoutAnAgentARequestThatBlocksRepliesOnceBeforeItReturns) {
    Collected<LoginItemsReply> items;
    agent_.getLoginItemsWithTypeMask(0xABC, into(items));
    ASSERT_THAT(items.all(), SizeIs(1));
    EXPECT_EQ(items.all()[0].items, std::nullopt);
    const MaybeError error = items.all()[0].error;
    EXPECT_TRUE(isConnectionError(error, ConnectionError::Unreachable));
    EXPECT_THAT(items.threads(), ElementsAre(std::this_thread::get_id()));
    EXPECT_THAT(debugLines(), ElementsAre(kGet + " type mask ABC", kGet + " error: " + error->description()));
}

TEST_F(AgentTest, WithoutAnAgentNothingIsAddedOrRemovedAndTheReplySaysWhy) {
    Collected<MaybeError> errors;
    agent_.addLoginItem(item_, into(errors));
    agent_.removeLoginItem(item_, into(errors));
    const auto all = errors.all();
    ASSERT_THAT(all, SizeIs(2));
    EXPECT_TRUE(isConnectionError(all[0], ConnectionError::Unreachable));
    EXPECT_EQ(all[1], all[0]);
    EXPECT_THAT(errors.threads(), Each(std::this_thread::get_id()));
    EXPECT_THAT(
        debugLines(),
        ElementsAre(kAdd + " item " + item_->description(), kAdd + " error: " + all[0]->description(),
                    kRemove + " item " + item_->description(), kRemove + " error: " + all[0]->description()));
}

TEST_F(AgentTest, WithoutAnAgentARequestThatReturnsAtOnceRepliesLaterAndOnce) {
    Collected<BackgroundItemsReply> items;
    agent_.getBackgroundItemsWithReply(into(items));
    const MaybeError error = items.await(1)[0].error;
    EXPECT_EQ(items.all()[0].items, std::nullopt);
    EXPECT_TRUE(isConnectionError(error, ConnectionError::Unreachable));
    Collected<MaybeError> errors;
    agent_.setUserElection(1, URL::fileURL("/opt/tool"), into(errors));
    agent_.setUserElection(1, KSWBackgroundItem::initWithType(1, std::nullopt), into(errors));
    agent_.openLoginItemsWithReply(into(errors));
    EXPECT_THAT(errors.await(3), ElementsAre(error, error, error));
    EXPECT_THAT(items.all(), SizeIs(1));
    EXPECT_NE(items.threads().front(), std::this_thread::get_id());
    EXPECT_THAT(errors.threads(), Each(items.threads().front()));
    const std::string failed = " error: " + error->description();
    EXPECT_THAT(debugLines(), ::testing::UnorderedElementsAre(kGetBackground, kGetBackground + failed, kElectURL,
                                                              kElectURL + failed, kElectItem, kElectItem + failed,
                                                              kOpen, kOpen + failed));
}

TEST_F(AgentTest, WithoutAnAgentNothingIsImportedAndTheLogSaysWhy) {
    EXPECT_FALSE(agent_.importRosterLoginItemsAndDeleteWhenDone(true));
    const MaybeError error = errorOfGetting();
    EXPECT_THAT(log_.at(LogLevel::Error), ElementsAre(kImport + ": error: " + error->description()));
    EXPECT_EQ(debugLines().front(), "#BackgroundTasks " + kImport);
}

TEST_F(AgentTest, ElectsOnNothingThatIsNoBackgroundItemAndSendsNothing) {
    const auto server = agentThat([](ScriptedConnection& connection) { (void)connection.next(); });
    Collected<MaybeError> errors;
    agent_.setUserElection(1, nullptr, into(errors));
    agent_.setUserElection(1, item_, into(errors));
    agent_.setUserElection(1, std::shared_ptr<KSWLoginItem>(), into(errors));
    const Error wrong(kStatusErrorDomain, -50);
    EXPECT_THAT(errors.all(), ElementsAre(wrong, wrong, wrong));
    EXPECT_THAT(errors.threads(), Each(std::this_thread::get_id()));
    EXPECT_EQ(server->connections(), 0);
    const std::string unable = kElectItem + " unable to set user election on ";
    EXPECT_THAT(debugLines(), ElementsAre(kElectItem, unable + "(null)", kElectItem, unable + item_->description(),
                                          kElectItem, unable + "(null)"));
}

TEST_F(AgentTest, HandsOutTheLoginItemsOfTheMask) {
    ScriptedAgent agent;
    std::uint64_t mask = 0;
    agent.on(methods::kGetLoginItems,
             [&](const ipc::RequestContext&, ipc::Responder<methods::LoginItems, MaybeError> responder,
                 std::uint64_t typeMask) {
                 mask = typeMask;
                 responder.answer(LoginItemList{item_, KSWLoginItem::initWithBookmark(std::nullopt, false)}, {});
             });
    agent.start();
    Collected<LoginItemsReply> replies;
    agent_.getLoginItemsWithTypeMask(0xFFFF'FFFF'FFFF'FFFF, into(replies));
    ASSERT_THAT(replies.all(), SizeIs(1));
    const LoginItemsReply reply = replies.all()[0];
    ASSERT_TRUE(reply.items.has_value());
    EXPECT_EQ(mask, 0xFFFF'FFFF'FFFF'FFFF);
    ASSERT_EQ(reply.items->size(), 2U);
    EXPECT_EQ(reply.items->front()->identifier(), item_->identifier());
    EXPECT_EQ(reply.items->front()->bookmark(), item_->bookmark());
    EXPECT_TRUE(reply.items->front()->hidden());
    EXPECT_EQ(reply.items->back()->type(), 1U);  // an item that travels with type 0 arrives as a user item
    EXPECT_EQ(reply.error, std::nullopt);
    EXPECT_THAT(debugLines(),
                ElementsAre(kGet + " type mask FFFFFFFFFFFFFFFF", kGet + " reply with 2 items, error: (null)"));
}

TEST_F(AgentTest, PassesOnTheAgentsErrorAsItIs) {
    ScriptedAgent agent;
    agent.answer(methods::kGetLoginItems, std::nullopt, error_);
    agent.answer(methods::kGetBackgroundItems, std::nullopt, error_);
    agent.answer(methods::kAddLoginItem, error_);
    agent.answer(methods::kRemoveLoginItem, error_);
    agent.answer(methods::kSetElectionForURL, error_);
    agent.answer(methods::kSetElectionForIdentifier, error_);
    agent.answer(methods::kOpenLoginItems, error_);
    agent.answer(methods::kImportRosterLoginItems, error_);
    agent.start();
    EXPECT_EQ(errorOfGetting(), error_);
    Collected<MaybeError> errors;
    agent_.addLoginItem(item_, into(errors));
    agent_.removeLoginItem(item_, into(errors));
    agent_.setUserElection(1, URL::fileURL("/opt/tool"), into(errors));
    agent_.setUserElection(1, KSWBackgroundItem::initWithType(1, std::nullopt), into(errors));
    agent_.openLoginItemsWithReply(into(errors));
    EXPECT_THAT(errors.await(5), Each(error_));
    Collected<BackgroundItemsReply> items;
    agent_.getBackgroundItemsWithReply(into(items));
    EXPECT_EQ(items.await(1)[0].error, error_);
    EXPECT_FALSE(agent_.importRosterLoginItemsAndDeleteWhenDone(false));
    const std::string text = error_.description();
    EXPECT_THAT(log_.at(LogLevel::Error), ElementsAre(kImport + ": reply error: " + text));
    EXPECT_THAT(debugLines(),
                ElementsAre(kGet + " type mask 1", kGet + " reply with 0 items, error: " + text,
                            kAdd + " item " + item_->description(), kRemove + " item " + item_->description(),
                            kElectURL, kElectItem, kOpen, kOpen + " reply error: " + text, kGetBackground,
                            kGetBackground + " reply with 0 items, error: " + text, "#BackgroundTasks " + kImport));
}

TEST_F(AgentTest, HandsOutTheBackgroundItemsOnAThreadOfItsOwn) {
    ScriptedAgent agent;
    const auto item = KSWBackgroundItem::initWithIdentifier(UUID::random(), 3, Data{9}, -2);
    agent.answer(methods::kGetBackgroundItems, BackgroundItemList{item}, {});
    agent.start();
    Collected<BackgroundItemsReply> replies;
    agent_.getBackgroundItemsWithReply(into(replies));
    const BackgroundItemsReply reply = replies.await(1)[0];
    ASSERT_TRUE(reply.items.has_value());
    ASSERT_EQ(reply.items->size(), 1U);
    EXPECT_EQ(reply.items->front()->identifier(), item->identifier());
    EXPECT_EQ(reply.items->front()->userElection(), -2);
    EXPECT_NE(replies.threads()[0], std::this_thread::get_id());
    EXPECT_THAT(debugLines(), ElementsAre(kGetBackground, kGetBackground + " reply with 1 items, error: (null)"));
}

TEST_F(AgentTest, TellsTheAgentWhatItIsAskedTo) {
    ScriptedAgent agent;
    Collected<std::string> seen;
    using Responder = ipc::Responder<MaybeError>;
    const auto keep = [&seen](const char* what) {
        return [&seen, what](const ipc::RequestContext&, Responder responder,
                             const std::shared_ptr<KSWLoginItem>& item) {
            seen.add(what + item->identifier()->string() + (item->hidden() ? " hidden" : ""));
            responder.answer({});
        };
    };
    agent.on(methods::kAddLoginItem, keep("add "));
    agent.on(methods::kRemoveLoginItem, keep("remove "));
    agent.on(methods::kSetElectionForURL, [&](const ipc::RequestContext&, Responder responder,
                                              std::int64_t election, const std::optional<URL>& url) {
        seen.add(format("%ld %@", election, url));
        responder.answer({});
    });
    agent.on(methods::kSetElectionForIdentifier, [&](const ipc::RequestContext&, Responder responder,
                                                     std::int64_t election, const std::optional<UUID>& identifier) {
        seen.add(format("%ld %@", election, identifier));
        responder.answer({});
    });
    agent.on(methods::kOpenLoginItems, [&](const ipc::RequestContext&, Responder responder) {
        seen.add("open");
        responder.answer({});
    });
    agent.on(methods::kImportRosterLoginItems,
             [&](const ipc::RequestContext&, Responder responder, bool deleteWhenDone) {
                 seen.add(deleteWhenDone ? "import and delete" : "import");
                 responder.answer({});
             });
    agent.start();
    const auto background = KSWBackgroundItem::initWithIdentifier(UUID::random(), 3, std::nullopt, 0);
    Collected<MaybeError> errors;
    agent_.addLoginItem(item_, into(errors));
    agent_.removeLoginItem(item_, into(errors));
    agent_.setUserElection(-1, URL::fileURL("/opt/tool"), into(errors));
    errors.await(3);
    agent_.setUserElection(2, background, into(errors));
    errors.await(4);
    agent_.setUserElection(3, std::nullopt, into(errors));
    errors.await(5);
    agent_.openLoginItemsWithReply(into(errors));
    EXPECT_THAT(errors.await(6), Each(std::nullopt));
    EXPECT_TRUE(agent_.importRosterLoginItemsAndDeleteWhenDone(true));
    EXPECT_TRUE(agent_.importRosterLoginItemsAndDeleteWhenDone(false));
    const std::string identifier = item_->identifier()->string();
    EXPECT_THAT(seen.all(), ElementsAre("add " + identifier + " hidden", "remove " + identifier + " hidden",
                                        "-1 file:///opt/tool", "2 " + background->identifier()->string(),
                                        "3 (null)", "open", "import and delete", "import"));
    EXPECT_THAT(linesLike(log_, LogLevel::Debug, kOpen), ElementsAre(kOpen, kOpen + " reply error: (null)"));
    EXPECT_THAT(log_.at(LogLevel::Error), IsEmpty());
}

TEST_F(AgentTest, AnEmptyReplyIsNotCalled) {
    ScriptedAgent agent;
    agent.answer(methods::kGetLoginItems, LoginItemList{}, {});
    agent.answer(methods::kGetBackgroundItems, BackgroundItemList{}, {});
    agent.answer(methods::kAddLoginItem, error_);
    agent.start();
    agent_.getLoginItemsWithTypeMask(1, nullptr);
    agent_.addLoginItem(item_, nullptr);
    agent_.getBackgroundItemsWithReply(nullptr);
    agent_.setUserElection(1, nullptr, nullptr);
    Collected<MaybeError> errors;
    agent_.openLoginItemsWithReply(into(errors));  // refused: nobody serves it
    EXPECT_TRUE(isConnectionError(errors.await(1)[0], ConnectionError::Refused));
}

}  // namespace
}  // namespace ksw::test
