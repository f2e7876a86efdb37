// What a user interface can do that has only the exported headers and the shared library: the agent's client and
// the main queue. Each operation is called once, so that one that is declared but not exported does not link.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>

#include <kestrelwood/kestrelwood.h>

namespace {

using ::testing::ElementsAre;

/// A host without servers.
class AUserInterfaceOutside : public ::testing::Test {
protected:
    AUserInterfaceOutside() {
        std::string folder = testing::TempDir() + "kestrelwood-XXXXXX";
        EXPECT_NE(::mkdtemp(folder.data()), nullptr);
        root_ = folder;
        ::setenv("KESTRELWOOD_ROOT", folder.c_str(), 1);
    }
    ~AUserInterfaceOutside() override {
        ::unsetenv("KESTRELWOOD_ROOT");
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    std::filesystem::path root_;
};

struct LoginItemDelegate : KSWLoginItemControllerDelegate {};
struct BackgroundItemDelegate : KSWBackgroundItemControllerDelegate {};

TEST_F(AUserInterfaceOutside, AsksTheAgentWithoutOne) {
    KSWAgentConnection& agent = KSWAgentConnection::sharedInstance();
    EXPECT_EQ(KSWAgentConnection::serviceName(), "com.velmont.kestrelwoodagent");
    EXPECT_NE(agent.connection(), nullptr);
    int replies = 0;
    const auto countError = [&replies](const std::optional<ksw::Error>& error) { replies += error ? 1 : 100; };
    const auto countItems = [&countError](const auto& items, const std::optional<ksw::Error>& error) {
        EXPECT_FALSE(items.has_value());
        countError(error);
    };
    const auto item = KSWLoginItem::initWithURL(ksw::URL::fileURL("/usr/bin/env"));
    agent.getLoginItemsWithTypeMask(KSWItemTypeAll, countItems);
    agent.addLoginItem(item, countError);
    agent.removeLoginItem(item, countError);
    agent.setUserElection(1, item, countError);
    agent.setUserElection(1, nullptr, countError);
    EXPECT_EQ(replies, 5);
    EXPECT_FALSE(agent.importRosterLoginItemsAndDeleteWhenDone(false));
}

TEST_F(AUserInterfaceOutside, KeepsControllersAndRunsItsMainQueue) {
    const auto loginItems =
        KSWLoginItemController::initWithTypeMask(KSWItemTypeAll, std::make_shared<LoginItemDelegate>());
    EXPECT_EQ(loginItems->typeMask(), KSWItemTypeAll);
    EXPECT_EQ(loginItems->delegate(), nullptr);
    EXPECT_TRUE(loginItems->items().empty());
    const auto item = KSWLoginItem::initWithBookmark(std::nullopt, false);
    loginItems->addLoginItem(item);
    loginItems->removeLoginItem(item);
    loginItems->handleLoginItemsChangeNotification({"another", std::nullopt});
    const auto delegate = std::make_shared<BackgroundItemDelegate>();
    const auto backgroundItems = KSWBackgroundItemController::initWithDelegate(nullptr);
    backgroundItems->setDelegate(delegate);
    EXPECT_EQ(backgroundItems->delegate(), delegate);
    EXPECT_TRUE(backgroundItems->items().empty());
    backgroundItems->handleBackgroundItemsChangeNotification({"another", std::nullopt});
    bool success = true;
    backgroundItems->setUserElection(1, nullptr, [&success](bool done) { success = done; });
    EXPECT_FALSE(success);
    ksw::MainQueue::stop();
    const auto tellMainQueue = [](bool) { ksw::MainQueue::async([] { ksw::MainQueue::stop(); }); };
    backgroundItems->setUserElection(1, ksw::URL::fileURL("/usr/bin/env"), tellMainQueue);
    ksw::MainQueue::run();  // ended before it began
    ksw::MainQueue::run();
    EXPECT_GE(ksw::MainQueue::descriptor(), 0);
    EXPECT_EQ(ksw::MainQueue::runWaiting(), 0U);
}

TEST_F(AUserInterfaceOutside, AsksTheLaunchWarden) {
    KSWLaunchWarden& warden = KSWLaunchWarden::sharedInstance();
    const ksw::URL url = ksw::URL::fileURL("/usr/bin/env");
    std::vector<bool> answers;
    const auto keep = [&answers](bool answer) { answers.push_back(answer); };
    const auto keepSome = [&answers](const std::vector<ksw::URL>& urls) { answers.push_back(!urls.empty()); };
    warden.canLoadStewardJobWithURL(url, keep);
    warden.canLoadServiceLoginItemWithURL(url, keep);
    warden.canLoadStewardJobWithURLs({url}, keepSome);
    warden.canLoadServiceLoginItemWithURLs({url}, keepSome);
    warden.setPromptingEnabled(true, [] {});
    warden.getPromptingEnabledWithCompletion(keep);
    EXPECT_THAT(answers, ElementsAre(true, true, true, true, false));
    const auto stopMainQueue = [] { ksw::MainQueue::async([] { ksw::MainQueue::stop(); }); };
    KSWManager::shared().openLoginItemsWithCompletion(stopMainQueue);
    ksw::MainQueue::run();
    warden.openLoginItemsWithCompletion(stopMainQueue);
    ksw::MainQueue::run();
}

}  // namespace
