// One suite of what a user interface does, for every agent.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kestrelwood/KSWLaunchWarden.h>

#include "tests/agent/controllers/agents.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

enum class Kind { Script, Real };

std::unique_ptr<AnyAgent> agentOf(Kind kind) {
    switch (kind) {
        case Kind::Script:
            return std::make_unique<ScriptAgent>();
        case Kind::Real:
            return std::make_unique<RealAgent>();
    }
    return nullptr;
}

class EitherAgent : public ::testing::TestWithParam<Kind> {
protected:
    void start() {
        agent_->start();
        loginItems_ = KSWLoginItemController::initWithTypeMask(KSWItemTypeAll, loginItemsTold_);
        backgroundItems_ = KSWBackgroundItemController::initWithDelegate(backgroundItemsTold_);
    }
    /// Runs the main queue until it is so.
    template <class Condition>
    void awaitThat(const Condition& condition) {
        while (!condition() && !HasFatalFailure()) {
            runMainQueue();
        }
    }
    void awaitLoginItems(std::size_t count) {
        awaitThat([&] {
            const std::vector<std::size_t> told = loginItemsTold_->told().all();
            return !told.empty() && told.back() == count && loginItems_->items().size() == count;
        });
    }
    std::shared_ptr<KSWLoginItem> itemOfType(KSWItemType type) const {
        const URL file = URL::fileURL(files_.writeFile("item", "x"));
        return KSWLoginItem::initWithType(type, std::nullopt, KSWLoginItem::initWithURL(file)->bookmark());
    }
    bool elected(std::int64_t election, const std::shared_ptr<KSWBackgroundItem>& item) {
        Collected<bool> completed;
        backgroundItems_->setUserElection(election, item, [&](bool success) { completed.add(success); });
        return completed.await(1).front();
    }
    std::vector<std::string> errors() const { return log_.at(host::LogLevel::Error); }

    std::unique_ptr<AnyAgent> agent_ = agentOf(GetParam());
    host::LogCapture log_;
    TempFolder files_;
    std::shared_ptr<LoginItemsWitness> loginItemsTold_ = std::make_shared<LoginItemsWitness>();
    std::shared_ptr<BackgroundItemsWitness> backgroundItemsTold_ = std::make_shared<BackgroundItemsWitness>();
    std::shared_ptr<KSWLoginItemController> loginItems_;
    std::shared_ptr<KSWBackgroundItemController> backgroundItems_;
};

INSTANTIATE_TEST_SUITE_P(Agents, EitherAgent, ::testing::Values(Kind::Script, Kind::Real), [](const auto& kind) {
    return kind.param == Kind::Script ? std::string("Script") : std::string("Real");
});

TEST_P(EitherAgent, ShowsALoginItemThatIsAddedAndNoneAfterItIsRemoved) {
    start();
    EXPECT_TRUE(loginItems_->items().empty());
    const auto item = KSWLoginItem::initWithType(
        KSWItemTypeUserItem, std::nullopt,
        KSWLoginItem::initWithURL(URL::fileURL(files_.writeFile("a", "a")))->bookmark(), true);
    loginItems_->addLoginItem(item);
    awaitLoginItems(1);
    const auto shown = *loginItems_->items().begin();
    EXPECT_EQ(shown->identifier(), item->identifier());
    EXPECT_EQ(shown->name(), "a");
    EXPECT_TRUE(shown->hidden());
    EXPECT_TRUE(loginItems_->items().contains(item));
    loginItems_->removeLoginItem(item);
    awaitLoginItems(0);
    EXPECT_THAT(loginItemsTold_->told().threads(), ::testing::Each(std::this_thread::get_id()));
    EXPECT_THAT(errors(), ::testing::IsEmpty());
}

TEST_P(EitherAgent, ShowsTheLoginItemsOfAMaskOnly) {
    start();
    loginItems_->addLoginItem(itemOfType(KSWItemTypeApp));
    awaitLoginItems(1);
    EXPECT_EQ(KSWLoginItemController::initWithTypeMask(KSWItemTypeDaemon, nullptr)->items().size(), 0U);
    EXPECT_EQ(KSWLoginItemController::initWithTypeMask(KSWItemTypeApp, nullptr)->items().size(), 1U);
}

TEST_P(EitherAgent, SaysThatThereIsNoSuchLoginItem) {
    start();
    loginItems_->removeLoginItem(KSWLoginItem::initWithBookmark(std::nullopt, false));
    ASSERT_THAT(errors(), SizeIs(1));
    EXPECT_THAT(errors().front(), ::testing::StartsWith("Failed to add login item with error: Error "
                                                        "Domain=KSWErrorDomain Code=-95"));
}

TEST_P(EitherAgent, ShowsABackgroundItemAndWhatItsUserDecides) {
    agent_->haveBackgroundItem();
    start();
    awaitThat([&] { return backgroundItems_->items().size() == 1; });
    const auto item = *backgroundItems_->items().begin();
    for (const std::int64_t election : {2, 1}) {
        EXPECT_TRUE(elected(election, item));
        awaitThat([&] { return (*backgroundItems_->items().begin())->userElection() == election; });
    }
    EXPECT_THAT(backgroundItemsTold_->told().threads(), ::testing::Each(std::this_thread::get_id()));
}

TEST_P(EitherAgent, TakesNoElectionThatIsNoneOrOnAnItemThatItDoesNotHave) {
    agent_->haveBackgroundItem();
    start();
    awaitThat([&] { return backgroundItems_->items().size() == 1; });
    EXPECT_FALSE(elected(7, *backgroundItems_->items().begin()));
    EXPECT_FALSE(elected(1, KSWBackgroundItem::initWithType(KSWItemTypeAgent, std::nullopt)));
    EXPECT_FALSE(elected(1, nullptr));
    EXPECT_THAT(errors(), ElementsAre(::testing::StartsWith("Failed to set user election: 7 with error: "),
                                      ::testing::StartsWith("Failed to set user election: 1 with error: "),
                                      ::testing::StartsWith("Failed to set user election: 1 with error: Error "
                                                            "Domain=KSWStatusErrorDomain Code=-50")));
}

TEST_P(EitherAgent, OpensNoSettingsWhereThereAreNone) {
    start();
    Collected<std::string> opened;
    KSWLaunchWarden::sharedInstance().openLoginItemsWithCompletion([&] { opened.add("opened"); });
    opened.await(1);
    EXPECT_THAT(linesLike(log_, host::LogLevel::Error, "Error opening login items: "), SizeIs(1));
}

TEST_P(EitherAgent, IsMissedWhenItStopsAndTheProcessGoesOn) {
    start();
    loginItems_->addLoginItem(itemOfType(KSWItemTypeApp));
    awaitLoginItems(1);
    agent_->stop();
    loginItems_->addLoginItem(KSWLoginItem::initWithBookmark(std::nullopt, false));
    EXPECT_FALSE(elected(1, KSWBackgroundItem::initWithType(KSWItemTypeAgent, std::nullopt)));
    EXPECT_FALSE(KSWAgentConnection::sharedInstance().importRosterLoginItemsAndDeleteWhenDone(true));
    agent_->start();  // one that is there again has other items, and is not asked
    loginItems_->handleLoginItemsChangeNotification(changeNotification());
    EXPECT_EQ(loginItems_->items().size(), 1U);
    EXPECT_THAT(linesLike(log_, host::LogLevel::Error, "Failed to get login items with error: "),
                ::testing::Not(::testing::IsEmpty()));
}

}  // namespace
}  // namespace ksw::test
