// The lists that a manager hands out, and what happens to them when a user's items change.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include "platform/base/limits.h"
#include "tests/client/manager/list_daemon.h"

namespace ksw::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr std::string_view kHandler = "-[KSWManager handleUserDataDidChangeNotification:]: ";

Notification change(std::optional<Dictionary> userInfo = std::nullopt) {
    return {std::string(KSWUserDataDidChangeNotification), std::move(userInfo)};
}

class AQuery : public ListTest {};

TEST_F(AQuery, NamesTypeAndUser) {
    daemon_.has({itemNamed("8.a"), itemNamed("8.b")}, 777, 12);
    const auto list = manager_->getItemsMatching(12, 777, &error_);
    ASSERT_NE(list, nullptr);
    EXPECT_THAT(daemon_.queries(), ElementsAre(Query{12, 777}));
    EXPECT_EQ(list->uid(), 777U);
    EXPECT_EQ(list->type(), 12);
    EXPECT_EQ(names(list->items()), (Names{"8.a", "8.b"}));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(debugLines(), ElementsAre("-[KSWManager getItemsMatching:uid:error:]: adding list " +
                                          place(list.get()) + ", type=0xc"));
}

TEST_F(AQuery, WithoutAUserIsTheCallersOwn) {
    EXPECT_NE(manager_->getItemsMatching(8), nullptr);
    EXPECT_NE(manager_->getItemsMatching(8, &error_), nullptr);
    EXPECT_NE(manager_->getItemsMatching(8, 0), nullptr);
    EXPECT_THAT(daemon_.queries(), ElementsAre(Query{8, ::getuid()}, Query{8, ::getuid()}, Query{8, 0}));
}

TEST_F(AQuery, AnswersItemsThatKeepTheirContainersAlive) {
    {
        const auto developer = itemNamed("Dev", KSWItemTypeDeveloper);
        const auto app = itemNamed("2.app", KSWItemTypeApp);
        const auto agent = itemNamed("8.a");
        app->setContainer(developer);
        agent->setContainer(app);
        daemon_.has({agent});
    }
    auto list = manager_->getItemsMatching(8, 501);
    const auto item = list->itemAtIndex(0);
    const auto container = list->containers().at(0);
    list = nullptr;
    ASSERT_NE(item->container(), nullptr);
    EXPECT_EQ(item->container(), container);
    EXPECT_EQ(item->container()->container()->identifier(), "Dev");
    EXPECT_NE(container->memberOfEmbeddedItems(item), nullptr);
}

TEST_F(AQuery, ThatIsRefusedLogsAndHandsOutTheDaemonsError) {
    daemon_.says(std::nullopt, Error("com.example.Store", 7, "locked"));
    EXPECT_EQ(manager_->getItemsMatching(8, 501, &error_), nullptr);
    EXPECT_EQ(error_, Error("com.example.Store", 7, "locked"));
    EXPECT_THAT(errors(), ElementsAre("-[KSWManager _getItemsMatching:uid:error:]_reply: error: Error "
                                      "Domain=com.example.Store Code=7 \"locked\""));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.getItemsMatching");
}

TEST_F(AQuery, AnsweredWithAListAndAnErrorLogsTheErrorAndHandsOutTheList) {
    daemon_.says(archiveOfList({itemNamed("8.a")}), KSWErrorWithCode(-1));
    EXPECT_NE(manager_->getItemsMatching(8, 501, &error_), nullptr);
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(errors(), SizeIs(1));
}

TEST_F(AQuery, AnsweredWithWhatIsNoListHandsOutTheReadersError) {
    for (const Data& bytes : {Data(), Data{0xff}, *archive::archiveArray<KSWItem>({}, archive::Coder::Ordinary)}) {
        daemon_.says(bytes);
        error_.reset();
        EXPECT_EQ(manager_->getItemsMatching(8, 501, &error_), nullptr);
        EXPECT_EQ(error_.value().domain(), kFormatErrorDomain);
    }
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AQuery, HasRoomForAsManyItemsAsAListMayHave) {
    Items items;
    for (std::size_t number = 0; number < limits::kListItemsMax; ++number) {
        items.push_back(itemNamed("8." + std::to_string(number)));
    }
    daemon_.has(items);
    const auto list = manager_->getItemsMatching(8, 501, &error_);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->count(), limits::kListItemsMax);
    EXPECT_TRUE(list->refresh());
    EXPECT_EQ(list->indexOfItem(items.back()), limits::kListItemsMax - 1);
    items.push_back(itemNamed("8.one-more"));
    daemon_.has(items);
    EXPECT_EQ(manager_->getItemsMatching(8, 501, &error_), nullptr);
    EXPECT_EQ(error_, Error(FormatError::LimitPassed, "root: items: more than 16384"));
    EXPECT_FALSE(list->refresh());
    EXPECT_EQ(list->count(), limits::kListItemsMax);
}

TEST_F(AQuery, AnsweredWithNothingHandsOutNoError) {
    daemon_.says(std::nullopt);
    error_ = KSWErrorWithCode(-1);
    EXPECT_EQ(manager_->getItemsMatching(8, 501, &error_), nullptr);
    EXPECT_EQ(error_, std::nullopt);
}

TEST_F(AQuery, WithoutADaemonLogsAndHandsOutTheConnectionsError) {
    daemon_.stop();
    EXPECT_EQ(manager_->getItemsMatching(8, 501, &error_), nullptr);
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(errors(), ElementsAre("KSWManager: connection failed, check entitlement of the calling process. "
                                      "Error: " +
                                      error_->description()));
    EXPECT_EQ(manager_->getItemsMatching(8, 501), nullptr);
}

/// A query during which the items change, and the manager is told so.
class AnOvertakenQuery : public AQuery {
protected:
    AnOvertakenQuery() {
        daemon_.meanwhile([this] {
            daemon_.has({itemNamed("8.a"), itemNamed("8.b")});
            manager_->handleUserDataDidChangeNotification(change());
        });
    }
};

TEST_F(AnOvertakenQuery, HandsOutAListThatWasRefreshedOnce) {
    const auto list = manager_->getItemsMatching(8, 501, &error_);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(names(list->items()), (Names{"8.a", "8.b"}));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(daemon_.queries(), ElementsAre(Query{8, 501}, Query{8, 501}));
}

TEST_F(AnOvertakenQuery, HandsOutTheOldItemsWhenListsAreNotRefreshed) {
    root_.setFeature("AutoRefreshLists", false);
    const auto list = manager_->getItemsMatching(8, 501);
    EXPECT_EQ(names(list->items()), (Names{"8.a"}));
    EXPECT_THAT(daemon_.queries(), SizeIs(1));
}

TEST_F(AnOvertakenQuery, HandsOutNoListWhenItFailed) {
    daemon_.says(std::nullopt, KSWErrorWithCode(-97));
    EXPECT_EQ(manager_->getItemsMatching(8, 501, &error_), nullptr);
    EXPECT_EQ(error_, KSWErrorWithCode(-97));
    EXPECT_THAT(daemon_.queries(), SizeIs(1));
}

/// A manager that has handed out a list of the user 501's agents.
class AChange : public ListTest {
protected:
    AChange() {
        list_->addListObserver(witness_);
        log_.clear();
        daemon_.has({itemNamed("8.a"), itemNamed("8.b")});
    }

    void tell(std::optional<Dictionary> userInfo = std::nullopt) {
        manager_->handleUserDataDidChangeNotification(change(std::move(userInfo)));
    }
    std::size_t listCount() {
        log_.clear();
        tell(Dictionary{{"uid", 1}});
        for (std::size_t count = 0; count < 100; ++count) {
            if (log_.count(std::string(kHandler) + "uid=1, type=0, list count=" + std::to_string(count)) == 1) {
                return count;
            }
        }
        return 100;
    }

    const Names old_{"8.a"};
    const Names new_{"8.a", "8.b"};
    std::shared_ptr<KSWList> list_ = manager_->getItemsMatching(8, 501);
    std::shared_ptr<Witness> witness_ = std::make_shared<Witness>();
};

TEST_F(AChange, OfNobodyAndNothingInParticularRefreshesEveryListAndTellsItsObservers) {
    daemon_.has({itemNamed("8.c")}, 502);
    const auto another = manager_->getItemsMatching(8, 502);
    another->addListObserver(witness_);
    tell();
    EXPECT_EQ(names(list_->items()), (Names{"8.c"}));
    EXPECT_THAT(witness_->told(), ElementsAre(Names{"8.c"}, Names{"8.c"}));
}

TEST_F(AChange, OfAnotherUserTouchesNoList) {
    tell(Dictionary{{"uid", 502}});
    EXPECT_EQ(names(list_->items()), old_);
    EXPECT_THAT(witness_->told(), IsEmpty());
    EXPECT_THAT(daemon_.queries(), SizeIs(1));
}

TEST_F(AChange, OfTheListsUserRefreshesIt) {
    tell(Dictionary{{"uid", 501}, {"type", 8}});
    EXPECT_EQ(names(list_->items()), new_);
    EXPECT_THAT(witness_->told(), ElementsAre(new_));
    EXPECT_THAT(daemon_.queries(), ElementsAre(Query{8, 501}, Query{8, 501}));
}

TEST_F(AChange, ThatNamesEveryUserTouchesEveryList) {
    tell(Dictionary{{"uid", 4294967294}});
    EXPECT_THAT(witness_->told(), ElementsAre(new_));
    tell(Dictionary{{"uid", -2}});
    EXPECT_THAT(witness_->told(), SizeIs(2));
}

TEST_F(AChange, OfAnotherTypeRefreshesTheListAndTellsNobody) {
    tell(Dictionary{{"type", 0x2}});
    EXPECT_EQ(names(list_->items()), new_);
    EXPECT_THAT(witness_->told(), IsEmpty());
}

TEST_F(AChange, OfNoTypeTellsNobody) {
    tell(Dictionary{{"type", 0}});
    EXPECT_EQ(names(list_->items()), new_);
    EXPECT_THAT(witness_->told(), IsEmpty());
}

TEST_F(AChange, OfAnotherTypeAndEveryTypeTellsTheObservers) {
    tell(Dictionary{{"type", 0x40000002}});
    EXPECT_THAT(witness_->told(), ElementsAre(new_));
}

TEST_F(AChange, WithoutRefreshingTellsTheObserversOfOldItems) {
    root_.setFeature("AutoRefreshLists", false);
    tell();
    EXPECT_EQ(names(list_->items()), old_);
    EXPECT_THAT(witness_->told(), ElementsAre(old_));
    EXPECT_THAT(daemon_.queries(), SizeIs(1));
}

TEST_F(AChange, WhoseRefreshFailsTellsTheObserversOfOldItems) {
    daemon_.says(std::nullopt, KSWErrorWithCode(-97));
    tell();
    EXPECT_THAT(witness_->told(), ElementsAre(old_));
    const std::string error = "Error Domain=KSWErrorDomain Code=-97 \"permission denied\"";
    EXPECT_THAT(errors(), ElementsAre("-[KSWManager _getItemsMatching:uid:error:]_reply: error: " + error,
                                      "<KSWList " + place(list_.get()) +
                                          "> uid=501 type=agent, count=1: refresh error: " + error));
}

TEST_F(AChange, IsLoggedStepByStep) {
    tell(Dictionary{{"uid", 501}, {"type", 8}});
    const std::string list = place(list_.get());
    const std::string handler(kHandler);
    EXPECT_THAT(debugLines(),
                ElementsAre(handler + "uid=501, type=0x8, list count=1", handler + "handling list " + list,
                            handler + "refreshing list " + list,
                            handler + "notifying observer " + place(witness_.get()) + " of list " + list));
    for (const host::LogLine& line : log_.lines()) {
        EXPECT_EQ(line.publicForm, line.fullForm);
        EXPECT_EQ(line.activity, "KSWManager.userDataDidChange");
    }
}

TEST_F(AChange, OfNobodyInParticularIsLoggedAsUserMinusOneAndNoType) {
    tell();
    EXPECT_THAT(debugLines(), Contains(std::string(kHandler) + "uid=-1, type=0, list count=1"));
}

TEST_F(AChange, DoesNotTouchAListThatIsGone) {
    EXPECT_EQ(listCount(), 1U);
    list_ = nullptr;
    EXPECT_EQ(listCount(), 0U);
    tell();
    EXPECT_THAT(witness_->told(), IsEmpty());
    EXPECT_THAT(daemon_.queries(), SizeIs(1));
}

TEST_F(AChange, KnowsTheListsOfTwoQueriesApart) {
    const auto another = manager_->getItemsMatching(8, 501);
    EXPECT_NE(another, list_);
    EXPECT_EQ(listCount(), 2U);
}

TEST_F(AChange, DoesNotTouchListsThatNobodyAskedFor) {
    const auto made = KSWList::initWithItems({}, 501, 8, manager_);
    const auto initial = KSWList::init();
    const auto decoded = KSWList::initWithCoder(archiveOfList({}));
    for (const auto& list : {made, initial, decoded}) {
        list->addListObserver(witness_);
    }
    list_->removeListObserver(witness_);
    list_->refresh();
    EXPECT_EQ(listCount(), 1U);
    tell();
    log_.clear();
    KSWManager::shared().handleUserDataDidChangeNotification(change());
    EXPECT_THAT(debugLines(), ElementsAre(std::string(kHandler) + "uid=-1, type=0, list count=0"));
    EXPECT_THAT(witness_->told(), IsEmpty());
}

/// Adds another observer and removes itself; asks the daemon, too.
class Meddler : public Witness, public std::enable_shared_from_this<Meddler> {
public:
    explicit Meddler(std::shared_ptr<Witness> another) : another_(std::move(another)) {}
    void listDidChange(const std::shared_ptr<KSWList>& list) override {
        Witness::listDidChange(list);
        list->addListObserver(another_);
        list->removeListObserver(shared_from_this());
        EXPECT_TRUE(list->refresh());
    }

private:
    std::shared_ptr<Witness> another_;
};

TEST_F(AChange, LetsAnObserverChangeTheObserversAndUseTheList) {
    const auto another = std::make_shared<Witness>();
    const auto meddler = std::make_shared<Meddler>(another);
    list_->addListObserver(meddler);
    tell();
    EXPECT_THAT(meddler->told(), SizeIs(1));
    EXPECT_THAT(another->told(), IsEmpty());
    tell();
    EXPECT_THAT(meddler->told(), SizeIs(1));
    EXPECT_THAT(another->told(), SizeIs(1));
}

/// Lets go of the last pointer to the list that it is told of.
class Releaser : public KSWListObserver {
public:
    explicit Releaser(std::shared_ptr<KSWList>& list) : list_(list) {}
    void listDidChange(const std::shared_ptr<KSWList>& list) override {
        list_ = nullptr;
        EXPECT_EQ(list->count(), 2U);
    }

private:
    std::shared_ptr<KSWList>& list_;
};

TEST_F(AChange, KeepsTheListAsLongAsItTellsOfIt) {
    list_->addListObserver(std::make_shared<Releaser>(list_));
    tell();
    EXPECT_EQ(list_, nullptr);
    EXPECT_EQ(listCount(), 0U);
}

}  // namespace
}  // namespace ksw::test
