// How a controller of login items is made, fetches, tells its delegate, and goes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/base/text.h"
#include "tests/agent/controllers/controller_test.h"

namespace ksw::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Controller = KSWLoginItemController;

const std::string kGet = "#LoginItems -[KSWAgentConnection getLoginItemsWithTypeMask:reply:]";

class ALoginItemController : public ControllerTest {
protected:
    /// An agent that answers `answer_` and runs `meanwhile_` before it does.
    void startAgent() {
        using Responder = ipc::Responder<methods::LoginItems, MaybeError>;
        agent_.on(methods::kGetLoginItems,
                  [this](const ipc::RequestContext&, Responder responder, std::uint64_t typeMask) {
                      mask_ = typeMask;
                      meanwhile_.run();
                      const auto [items, error] = answer_.take();
                      responder.answer(items, error);
                  });
        agent_.answer(methods::kAddLoginItem, error_);
        agent_.answer(methods::kRemoveLoginItem, error_);
        agent_.start();
    }
    std::shared_ptr<Controller> make(std::uint64_t mask = 0xFFF) {
        return Controller::initWithTypeMask(mask, witness_);
    }
    static LoginItemList items(std::size_t count) {
        LoginItemList list;
        while (list.size() < count) {
            list.push_back(KSWLoginItem::initWithBookmark(std::nullopt, false));
        }
        return list;
    }

    std::atomic<std::uint64_t> mask_ = 0;
    Meanwhile meanwhile_;
    Answer<LoginItemList> answer_;
    ScriptedAgent agent_;
    std::shared_ptr<LoginItemsWitness> witness_ = std::make_shared<LoginItemsWitness>();
};

TEST_F(ALoginItemController, HasItsItemsWhenItIsMadeAndTellsItsDelegateOnTheMainQueue) {
    answer_.set(items(2));
    startAgent();
    const auto controller = make(0x5);
    EXPECT_EQ(controller->typeMask(), 0x5U);
    EXPECT_EQ(mask_, 0x5U);
    EXPECT_EQ(controller->delegate(), witness_);
    EXPECT_EQ(controller->items().size(), 2U);
    EXPECT_THAT(witness_->told().all(), IsEmpty());
    runMainQueue();
    EXPECT_THAT(witness_->told().all(), ElementsAre(2));
    EXPECT_THAT(witness_->told().threads(), ElementsAre(std::this_thread::get_id()));
    EXPECT_THAT(
        steps(),
        ElementsAre(
            "KSWLoginItemController fetching items.", kGet + " type mask 5",
            kGet + " reply with 2 items, error: (null)", "KSWLoginItemController items set.",
            format("KSWLoginItemController notifying delegate: "
                   "<KSWLoginItemControllerDelegate: %p>",
                   static_cast<const void*>(static_cast<KSWLoginItemControllerDelegate*>(witness_.get())))));
    for (const host::LogLine& line : log_.lines()) {
        EXPECT_EQ(line.publicForm, line.fullForm);
    }
}

TEST_F(ALoginItemController, ObservesChangesOnlyAfterItsFirstFetch) {
    ServedHub hub(ipc::Domain::Session);
    std::atomic<std::size_t> observers = 99;
    meanwhile_.set([&] { observers = hub->observers(); });
    startAgent();
    const auto controller = make();
    EXPECT_EQ(observers, 0U);
    hub.awaitObservers(1);
    agent_.stop();  // it may be asked once more, and look at the hub
}

TEST_F(ALoginItemController, WithoutAnAgentHasNoItemsAndTellsNobody) {
    const auto controller = make();
    EXPECT_TRUE(controller->items().empty());
    EXPECT_TRUE(isMainQueueEmpty());
    ASSERT_THAT(errors(), SizeIs(1));
    EXPECT_THAT(errors()[0], ::testing::StartsWith("Failed to get login items with error: Error "
                                                   "Domain=KSWConnectionErrorDomain Code=1 "));
}

TEST_F(ALoginItemController, KeepsItsItemsWhenAFetchFails) {
    answer_.set(items(2));
    startAgent();
    const auto controller = make();
    runMainQueue();
    answer_.set(std::nullopt, error_);
    controller->handleLoginItemsChangeNotification(changeNotification());
    EXPECT_EQ(controller->items().size(), 2U);
    EXPECT_TRUE(isMainQueueEmpty());
    EXPECT_THAT(errors(), ElementsAre("Failed to get login items with error: " + error_.description()));
    // An agent that answers neither items nor an error has not answered items.
    answer_.set(std::nullopt);
    controller->handleLoginItemsChangeNotification(changeNotification());
    EXPECT_EQ(controller->items().size(), 2U);
    EXPECT_EQ(errors().back(), "Failed to get login items with error: (null)");
}

TEST_F(ALoginItemController, FetchesForItsOwnNotificationOnly) {
    startAgent();
    const auto controller = make();
    answer_.set(items(1));
    controller->handleLoginItemsChangeNotification({"com.example.other", Dictionary{{"a", 1}}});
    EXPECT_EQ(answer_.asked(), 1U);
    EXPECT_THAT(steps().back(), ::testing::StartsWith("KSWLoginItemController recieved change notification: "
                                                      "com.example.other {"));
    controller->handleLoginItemsChangeNotification(changeNotification());
    EXPECT_EQ(answer_.asked(), 2U);
    EXPECT_EQ(controller->items().size(), 1U);
    EXPECT_EQ(log_.count("KSWLoginItemController recieved change notification: "
                         "com.velmont.private.BackgroundItemsChangeNotification"),
              1U);
}

TEST_F(ALoginItemController, TellsNoDelegateThatDoesNotWantIt) {
    startAgent();
    witness_ = std::make_shared<LoginItemsWitness>(false);
    const auto controller = make();
    runMainQueue();
    EXPECT_THAT(witness_->told().all(), IsEmpty());
    EXPECT_THAT(linesLike(log_, host::LogLevel::Debug, "KSWLoginItemController notifying"), IsEmpty());
}

TEST_F(ALoginItemController, DoesNotOwnItsDelegate) {
    startAgent();
    const auto controller = make();
    const std::weak_ptr<LoginItemsWitness> gone = witness_;
    witness_ = nullptr;
    EXPECT_TRUE(gone.expired());
    EXPECT_EQ(controller->delegate(), nullptr);
    runMainQueue();
    EXPECT_THAT(linesLike(log_, host::LogLevel::Debug, "KSWLoginItemController notifying"), IsEmpty());
    EXPECT_NE(Controller::initWithTypeMask(1, nullptr), nullptr);
}

TEST_F(ALoginItemController, HasEqualItemsOnce) {
    const auto item = items(1)[0];
    answer_.set(LoginItemList{item, item, items(1)[0]});
    startAgent();
    EXPECT_EQ(make()->items().size(), 2U);
}

TEST_F(ALoginItemController, LogsWhatTheAgentDidNotAddOrRemoveInTheSameWords) {
    startAgent();
    const auto controller = make();
    const auto item = items(1)[0];
    controller->addLoginItem(item);
    controller->removeLoginItem(item);
    const std::string text = "Failed to add login item with error: " + error_.description();
    EXPECT_THAT(errors(), ElementsAre(text, text));
    EXPECT_TRUE(controller->items().empty());
    EXPECT_EQ(answer_.asked(), 1U);
}

TEST_F(ALoginItemController, ShowsWhatWasAddedWhenTheAgentSaysSo) {
    ServedHub hub(ipc::Domain::Session);
    using Responder = ipc::Responder<MaybeError>;
    agent_.on(methods::kAddLoginItem,
              [&](const ipc::RequestContext&, Responder responder, const std::shared_ptr<KSWLoginItem>& item) {
                  answer_.set(LoginItemList{item});
                  hub->post(changeNotification());
                  responder.answer({});
              });
    agent_.on(
        methods::kGetLoginItems,
        [&](const ipc::RequestContext&, ipc::Responder<methods::LoginItems, MaybeError> responder, std::uint64_t) {
            const auto [list, error] = answer_.take();
            responder.answer(list, error);
        });
    agent_.start();
    const auto controller = make();
    hub.awaitObservers(1);
    controller->addLoginItem(KSWLoginItem::initWithType(4, std::nullopt, Data{7}));
    EXPECT_THAT(errors(), IsEmpty());
    while (witness_->told().all().empty() || witness_->told().all().back() != 1U) {
        runMainQueue();
    }
    EXPECT_THAT(witness_->told().threads(), Each(std::this_thread::get_id()));
    EXPECT_EQ((*controller->items().begin())->bookmark(), Data{7});
}

TEST_F(ALoginItemController, ThatIsLetGoBeforeTheMainQueueRunsTellsNobody) {
    startAgent();
    auto controller = make();
    const std::weak_ptr<Controller> gone = controller;
    controller = nullptr;
    EXPECT_TRUE(gone.expired());
    runMainQueue();
    EXPECT_THAT(witness_->told().all(), IsEmpty());
}

TEST_F(ALoginItemController, ThatIsLetGoInAFetchGoesAtOnceAndTellsNobody) {
    ServedHub hub(ipc::Domain::Session);
    startAgent();
    auto controller = make();
    runMainQueue();
    Gate gate;
    meanwhile_.set([&] { gate.pass(); });
    hub.awaitObservers(1);  // the thread of notifications fetches, since something may have been missed
    gate.awaitReached();
    const std::weak_ptr<Controller> gone = controller;
    const std::size_t told = witness_->told().all().size();
    controller = nullptr;
    EXPECT_TRUE(gone.expired());
    // Who observes next is told after the fetch has ended.
    Told next;
    const auto later =
        ipc::NotificationCenter::of(ipc::Domain::Session).observe("com.example.next", next.handler());
    gate.open();
    next.await(1);
    MainQueue::runWaiting();
    EXPECT_THAT(witness_->told().all(), SizeIs(told));
    const std::size_t asked = answer_.asked();
    hub->post(changeNotification());
    hub->post({"com.example.next", std::nullopt});
    next.await(2);
    EXPECT_EQ(answer_.asked(), asked);
}

TEST_F(ALoginItemController, MayBeLetGoByItsDelegate) {
    startAgent();
    auto controller = make();
    const std::weak_ptr<Controller> gone = controller;
    witness_->whenTold = [&controller] { controller = nullptr; };
    runMainQueue();
    EXPECT_TRUE(gone.expired());
    EXPECT_THAT(witness_->told().all(), SizeIs(1));
}

TEST_F(ALoginItemController, KeepsItsItemsWhenTheAgentDiesWhileItWaits) {
    const auto server = agentThat([](ScriptedConnection& connection) {
        const auto first = connection.next();
        connection.reply(first->serial, methods::LoginItems(items(3)), MaybeError());
        (void)connection.next();
    });
    const auto controller = make();
    runMainQueue();
    controller->handleLoginItemsChangeNotification(changeNotification());
    EXPECT_EQ(controller->items().size(), 3U);
    ASSERT_THAT(errors(), SizeIs(1));
    EXPECT_THAT(errors()[0], ::testing::StartsWith("Failed to get login items with error: Error "
                                                   "Domain=KSWConnectionErrorDomain Code=3 "));
    controller->handleLoginItemsChangeNotification(changeNotification());
    EXPECT_THAT(errors(), SizeIs(2));
    EXPECT_TRUE(isMainQueueEmpty());
}

TEST_F(ALoginItemController, IsReadWholeWhileItIsSetAnew) {
    answer_.set(items(1));
    startAgent();
    const auto controller = make();
    std::atomic<bool> isOver = false;
    std::vector<std::thread> readers;
    for (int number = 0; number < 3; ++number) {
        readers.emplace_back([&] {
            while (!isOver) {
                const Controller::Items now = controller->items();
                EXPECT_EQ(now.size(), static_cast<std::size_t>(std::distance(now.begin(), now.end())));
                EXPECT_LE(now.size(), 3U);
            }
        });
    }
    for (std::size_t round = 0; round < 60; ++round) {
        answer_.set(items(round % 3 + 1));
        controller->handleLoginItemsChangeNotification(changeNotification());
        MainQueue::runWaiting();
    }
    isOver = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(controller->items().size(), 3U);
    MainQueue::runWaiting();
    EXPECT_THAT(witness_->told().all(), SizeIs(61));
}

TEST_F(ALoginItemController, ComesAndGoesWhileChangesAreAnnouncedAndDelegatesAreCalled) {
    ServedHub hub(ipc::Domain::Session);
    answer_.set(items(2));
    startAgent();
    const auto witness = witness_;
    std::atomic<bool> isOver = false;
    std::thread announcer([&] {
        while (!isOver) {
            hub->post(changeNotification());
            std::this_thread::yield();
        }
    });
    std::thread maker([&] {
        for (int round = 0; round < 40; ++round) {
            const auto controller = Controller::initWithTypeMask(1, witness);
            const auto another = Controller::initWithTypeMask(2, witness);
            EXPECT_EQ(controller->items().size(), another->items().size());
        }
        isOver = true;
        MainQueue::async([] { MainQueue::stop(); });
    });
    MainQueue::run();
    maker.join();
    announcer.join();
    MainQueue::runWaiting();
    const std::size_t told = witness->told().all().size();
    hub->post(changeNotification());
    Told next;
    const auto later =
        ipc::NotificationCenter::of(ipc::Domain::Session).observe("com.example.next", next.handler());
    next.await(1);
    MainQueue::runWaiting();
    EXPECT_THAT(witness->told().all(), SizeIs(told));
}

}  // namespace
}  // namespace ksw::test
