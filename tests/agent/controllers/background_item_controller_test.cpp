// How a controller of background items is made, fetches, elects, tells its delegate, and goes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/base/text.h"
#include "tests/agent/controllers/controller_test.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Controller = KSWBackgroundItemController;

const std::string kGet = "#BackgroundTasks -[KSWAgentConnection getBackgroundItemsWithReply:]";

class ABackgroundItemController : public ControllerTest {
protected:
    void startAgent() {
        using Responder = ipc::Responder<methods::BackgroundItems, MaybeError>;
        agent_.on(methods::kGetBackgroundItems, [this](const ipc::RequestContext&, Responder responder) {
            meanwhile_.run();
            const auto [items, error] = answer_.take();
            responder.answer(items, error);
        });
        agent_.answer(methods::kSetElectionForIdentifier, electionError_);
        agent_.answer(methods::kSetElectionForURL, electionError_);
        agent_.start();
    }
    std::shared_ptr<Controller> make() { return Controller::initWithDelegate(witness_); }
    static BackgroundItemList items(std::size_t count) {
        BackgroundItemList list;
        while (list.size() < count) {
            list.push_back(KSWBackgroundItem::initWithType(3, std::nullopt));
        }
        return list;
    }
    static Controller::Completion into(Collected<bool>& completed) {
        return [&completed](bool success) { completed.add(success); };
    }

    MaybeError electionError_;
    Meanwhile meanwhile_;
    Answer<BackgroundItemList> answer_;
    ScriptedAgent agent_;
    std::shared_ptr<BackgroundItemsWitness> witness_ = std::make_shared<BackgroundItemsWitness>();
    const std::shared_ptr<KSWBackgroundItem> item_ = items(1)[0];
    const URL url_ = URL::fileURL("/opt/tool");
};

TEST_F(ABackgroundItemController, StartsEmptyAndTellsItsDelegateOnTheMainQueueWhenTheAgentHasAnswered) {
    answer_.set(items(2));
    Gate gate;
    meanwhile_.set([&] { gate.pass(); });
    startAgent();
    const auto controller = make();
    EXPECT_EQ(controller->delegate(), witness_);
    EXPECT_TRUE(controller->items().empty());
    EXPECT_TRUE(isMainQueueEmpty());
    EXPECT_THAT(steps(), ElementsAre("KSWBackgroundItemController fetching items.", kGet));
    gate.open();
    runMainQueue();
    EXPECT_EQ(controller->items().size(), 2U);
    EXPECT_THAT(witness_->told().all(), ElementsAre(2));
    EXPECT_THAT(witness_->told().threads(), ElementsAre(std::this_thread::get_id()));
    EXPECT_THAT(
        steps(),
        ElementsAre(
            "KSWBackgroundItemController fetching items.", kGet, kGet + " reply with 2 items, error: (null)",
            "KSWBackgroundItemController items set.",
            format("KSWBackgroundItemController notifying delegate: "
                   "<KSWBackgroundItemControllerDelegate: %p>",
                   static_cast<const void*>(static_cast<KSWBackgroundItemControllerDelegate*>(witness_.get())))));
}

TEST_F(ABackgroundItemController, ObservesChangesAndFetchesAnewForThem) {
    ServedHub hub(ipc::Domain::Session);
    startAgent();
    const auto controller = make();
    hub.awaitObservers(1);
    answer_.set(items(3));
    hub->post(changeNotification());
    while (controller->items().size() != 3U) {
        runMainQueue();
    }
    EXPECT_GE(log_.count("KSWBackgroundItemController recieved change notification: "
                         "com.velmont.private.BackgroundItemsChangeNotification"),
              1U);
    const std::size_t asked = answer_.asked();
    controller->handleBackgroundItemsChangeNotification({"com.example.other", std::nullopt});
    EXPECT_EQ(log_.count("KSWBackgroundItemController recieved change notification: com.example.other"), 1U);
    EXPECT_EQ(answer_.asked(), asked);
}

TEST_F(ABackgroundItemController, WithoutAnAgentIsEmptySaysSoAndTellsNobody) {
    const auto controller = make();
    Collected<bool> completed;
    controller->setUserElection(1, item_, into(completed));  // its reply comes after the fetch's
    EXPECT_THAT(completed.await(1), ElementsAre(false));
    EXPECT_TRUE(controller->items().empty());
    EXPECT_TRUE(isMainQueueEmpty());
    ASSERT_THAT(errors(), SizeIs(2));
    EXPECT_THAT(errors()[0], ::testing::StartsWith("Failed to get login items with error: Error "
                                                   "Domain=KSWConnectionErrorDomain Code=1 "));
    EXPECT_THAT(errors()[1], ::testing::StartsWith("Failed to set user election: 1 with error: Error "
                                                   "Domain=KSWConnectionErrorDomain Code=1 "));
}

TEST_F(ABackgroundItemController, KeepsItsItemsWhenAFetchFails) {
    answer_.set(items(2));
    startAgent();
    const auto controller = make();
    runMainQueue();
    answer_.set(std::nullopt, error_);
    controller->handleBackgroundItemsChangeNotification(changeNotification());
    Collected<bool> completed;
    controller->setUserElection(1, item_, into(completed));
    completed.await(1);
    EXPECT_EQ(controller->items().size(), 2U);
    EXPECT_TRUE(isMainQueueEmpty());
    EXPECT_THAT(errors(), ElementsAre("Failed to get login items with error: " + error_.description()));
}

TEST_F(ABackgroundItemController, CompletesElectionsOnTheThreadOfReplies) {
    startAgent();
    const auto controller = make();
    Collected<bool> completed;
    controller->setUserElection(1, item_, into(completed));
    completed.await(1);
    controller->setUserElection(0, url_, into(completed));
    EXPECT_THAT(completed.await(2), ElementsAre(true, true));
    EXPECT_NE(completed.threads()[0], std::this_thread::get_id());
    EXPECT_EQ(completed.threads()[0], completed.threads()[1]);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ABackgroundItemController, SaysWhichElectionFailed) {
    electionError_ = error_;
    startAgent();
    const auto controller = make();
    Collected<bool> completed;
    controller->setUserElection(2, item_, into(completed));
    completed.await(1);
    controller->setUserElection(3, url_, into(completed));
    EXPECT_THAT(completed.await(2), ElementsAre(false, false));
    EXPECT_THAT(errors(),
                ElementsAre("Failed to set user election: 2 with error: " + error_.description(),
                            "Failed to set user election: 3 for URL file:///opt/tool: " + error_.description()));
    EXPECT_THAT(log_.lines().back().publicForm,
                ::testing::StartsWith("Failed to set user election: 3 for URL <private>: Error "));
    controller->setUserElection(3, url_, nullptr);
}

TEST_F(ABackgroundItemController, CompletesAtOnceForWhatIsNoItem) {
    const auto controller = make();
    Collected<bool> completed;
    controller->setUserElection(1, nullptr, into(completed));
    EXPECT_THAT(completed.all(), ElementsAre(false));
    EXPECT_THAT(completed.threads(), ElementsAre(std::this_thread::get_id()));
    EXPECT_EQ(log_.count("Failed to set user election: 1 with error: Error Domain=KSWStatusErrorDomain Code=-50"),
              1U);
}

TEST_F(ABackgroundItemController, TellsTheDelegateThatItHasWhenTheMainQueueRuns) {
    Gate gate;
    meanwhile_.set([&] { gate.pass(); });
    startAgent();
    const auto controller = Controller::initWithDelegate(nullptr);
    EXPECT_EQ(controller->delegate(), nullptr);
    controller->setDelegate(std::make_shared<BackgroundItemsWitness>());
    gate.open();
    controller->setDelegate(witness_);
    runMainQueue();
    EXPECT_THAT(witness_->told().all(), SizeIs(1));
    witness_ = std::make_shared<BackgroundItemsWitness>(false);
    controller->setDelegate(witness_);
    controller->handleBackgroundItemsChangeNotification(changeNotification());
    runMainQueue();
    EXPECT_THAT(witness_->told().all(), IsEmpty());
    controller->setDelegate(nullptr);
    EXPECT_EQ(controller->delegate(), nullptr);
}

TEST_F(ABackgroundItemController, ThatIsLetGoInAFetchGoesAtOnceAndTellsNobody) {
    Gate gate;
    meanwhile_.set([&] { gate.pass(); });
    startAgent();
    auto controller = make();
    gate.awaitReached();
    Collected<bool> completed;
    controller->setUserElection(1, item_, into(completed));
    const std::weak_ptr<Controller> gone = controller;
    controller = nullptr;
    EXPECT_TRUE(gone.expired());
    gate.open();
    EXPECT_THAT(completed.await(1),
                ElementsAre(true));  // answered after the fetch; elections complete all the same
    EXPECT_TRUE(isMainQueueEmpty());
    EXPECT_THAT(linesLike(log_, host::LogLevel::Debug, "KSWBackgroundItemController items set."), IsEmpty());
}

TEST_F(ABackgroundItemController, GoesAtOnceWhenItsAgentNeverAnswers) {
    const auto server = agentThat([](ScriptedConnection& connection) {
        while (connection.next()) {
        }
    });
    auto controller = make();
    EXPECT_TRUE(controller->items().empty());
    const std::weak_ptr<Controller> gone = controller;
    controller = nullptr;
    EXPECT_TRUE(gone.expired());
}

TEST_F(ABackgroundItemController, ElectsWhileAFetchIsNotAnswered) {
    const auto server = agentThat([](ScriptedConnection& connection) {
        while (const auto request = connection.next()) {
            if (request->selector != methods::kGetBackgroundItems.selector) {
                connection.reply(request->serial, MaybeError());
            }
        }
    });
    const auto controller = make();
    Collected<bool> completed;
    controller->setUserElection(1, item_, into(completed));
    controller->setUserElection(1, url_, into(completed));
    EXPECT_THAT(completed.await(2), ElementsAre(true, true));
    EXPECT_TRUE(controller->items().empty());
}

TEST_F(ABackgroundItemController, SurvivesAnAgentThatDiesWhileItWaits) {
    const auto server = agentThat([](ScriptedConnection& connection) { (void)connection.next(); });
    const auto controller = make();
    Collected<bool> completed;
    controller->setUserElection(1, item_, into(completed));
    EXPECT_THAT(completed.await(1), ElementsAre(false));
    controller->handleBackgroundItemsChangeNotification(changeNotification());
    controller->setUserElection(1, url_, into(completed));
    EXPECT_THAT(completed.await(2), ElementsAre(false, false));
    EXPECT_TRUE(controller->items().empty());
    EXPECT_TRUE(isMainQueueEmpty());
    EXPECT_THAT(linesLike(log_, host::LogLevel::Error, "Failed to get login items"), SizeIs(2));
}

TEST_F(ABackgroundItemController, ComesAndGoesWhileItsItemsAreOnTheirWay) {
    answer_.set(items(2));
    startAgent();
    std::thread maker([&] {
        for (int round = 0; round < 200; ++round) {
            const auto controller = make();
            controller->handleBackgroundItemsChangeNotification(changeNotification());
            controller->setDelegate(round % 2 == 0 ? witness_ : nullptr);
            EXPECT_LE(controller->items().size(), 2U);
        }
        MainQueue::async([] { MainQueue::stop(); });
    });
    MainQueue::run();
    maker.join();
    Collected<bool> completed;
    make()->setUserElection(1, item_, into(completed));
    completed.await(1);
    MainQueue::runWaiting();
    EXPECT_TRUE(isMainQueueEmpty());
}

}  // namespace
}  // namespace ksw::test
