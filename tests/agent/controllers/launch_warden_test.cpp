// What the launch warden answers, and how it opens the user's settings.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kestrelwood/KSWLaunchWarden.h>
#include <kestrelwood/KSWManager.h>

#include "tests/agent/controllers/controller_test.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using URLs = KSWLaunchWarden::URLs;

class ALaunchWarden : public ControllerTest {
protected:
    KSWLaunchWarden& warden_ = KSWLaunchWarden::sharedInstance();
    const URLs urls_{URL::fileURL("/opt/a"), URL::fileURL("/opt/b")};
    Collected<bool> answers_;
    Collected<URLs> loadable_;
    Collected<std::string> opened_;
    const KSWLaunchWarden::BoolCompletion answer_ = [this](bool answer) { answers_.add(answer); };
    const KSWLaunchWarden::URLsCompletion loadableURLs_ = [this](URLs urls) { loadable_.add(std::move(urls)); };
    const KSWLaunchWarden::Completion open_ = [this] { opened_.add("opened"); };
};

TEST_F(ALaunchWarden, IsTheOnlyOneOfAProcess) {
    EXPECT_EQ(&warden_, &KSWLaunchWarden::sharedInstance());
}

TEST_F(ALaunchWarden, LetsEveryStewardJobLoadAtOnce) {
    warden_.canLoadStewardJobWithURL(urls_[0], answer_);
    warden_.canLoadStewardJobWithURLs(urls_, loadableURLs_);
    warden_.canLoadStewardJobWithURLs({}, loadableURLs_);
    EXPECT_THAT(answers_.all(), ElementsAre(true));
    EXPECT_THAT(loadable_.all(), ElementsAre(urls_, IsEmpty()));
    EXPECT_THAT(answers_.threads(), ElementsAre(std::this_thread::get_id()));
}

TEST_F(ALaunchWarden, LetsEveryLoginItemOfAServiceLoadAtOnce) {
    warden_.canLoadServiceLoginItemWithURL(urls_[0], answer_);
    warden_.canLoadServiceLoginItemWithURLs(urls_, loadableURLs_);
    warden_.canLoadServiceLoginItemWithURLs({}, loadableURLs_);
    EXPECT_THAT(answers_.all(), ElementsAre(true));
    EXPECT_THAT(loadable_.all(), ElementsAre(urls_, IsEmpty()));
}

TEST_F(ALaunchWarden, NeverPromptsWhateverItIsTold) {
    warden_.setPromptingEnabled(true, open_);
    warden_.getPromptingEnabledWithCompletion(answer_);
    EXPECT_THAT(opened_.all(), SizeIs(1));
    EXPECT_THAT(answers_.all(), ElementsAre(false));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ALaunchWarden, CallsNoEmptyCompletion) {
    warden_.canLoadStewardJobWithURL(urls_[0], nullptr);
    warden_.canLoadStewardJobWithURLs(urls_, nullptr);
    warden_.setPromptingEnabled(true, nullptr);
    warden_.openLoginItemsWithCompletion(nullptr);
    warden_.openLoginItemsWithCompletion(open_);
    opened_.await(1);
}

TEST_F(ALaunchWarden, WithoutAnAgentCompletesOnceAndSaysWhatFailed) {
    warden_.openLoginItemsWithCompletion(open_);
    opened_.await(1);
    EXPECT_NE(opened_.threads()[0], std::this_thread::get_id());
    ASSERT_THAT(errors(), SizeIs(1));
    EXPECT_THAT(errors()[0], ::testing::StartsWith("Error opening login items: Error "
                                                   "Domain=KSWConnectionErrorDomain Code=1 "));
    warden_.openLoginItemsWithCompletion(open_);
    opened_.await(2);
    EXPECT_THAT(opened_.all(), SizeIs(2));
}

TEST_F(ALaunchWarden, HasTheAgentOpenTheSettingsAlsoForAManager) {
    ScriptedAgent agent;
    std::atomic<int> asked = 0;
    agent.on(methods::kOpenLoginItems, [&](const ipc::RequestContext&, ipc::Responder<MaybeError> responder) {
        responder.answer(asked++ == 0 ? MaybeError() : error_);
    });
    agent.start();
    warden_.openLoginItemsWithCompletion(open_);
    opened_.await(1);
    EXPECT_THAT(errors(), IsEmpty());
    root_.setFeature("ControlAutomaticAppLaunch", false);  // a manager that is turned off forwards it all the same
    KSWManager::initWithMode(0)->openLoginItemsWithCompletion(open_);
    opened_.await(2);
    EXPECT_EQ(asked, 2);
    EXPECT_THAT(errors(), ElementsAre("Error opening login items: " + error_.description()));
}

}  // namespace
}  // namespace ksw::test
