// The lightweight client: the manager's three operations over a service of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/protocol/registrar_service.h"
#include "tests/client/manager/scripted_daemon.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ARegistrar : public ClientTest {
protected:
    std::shared_ptr<KSWRegistrar> registrar_ = KSWRegistrar::init();
    ScriptedDaemon daemon_{kRegistrarService};
    std::shared_ptr<KSWItem> item_;
};

TEST_F(ARegistrar, HasAConnectionToItsService) {
    ASSERT_NE(registrar_->connection(), nullptr);
    EXPECT_EQ(registrar_->connection()->serviceName(), "com.velmont.kestrelwood.registrar");
}

TEST_F(ARegistrar, IsSharedAsOneObject) {
    EXPECT_EQ(&KSWRegistrar::shared(), &KSWRegistrar::shared());
}

TEST_F(ARegistrar, KeepsTheUidsThatItIsGivenAndFillsInNone) {
    EXPECT_THAT(registrar_->UIDs(), IsEmpty());
    registrar_->setUIDs({501, 502});
    EXPECT_THAT(registrar_->UIDs(), ElementsAre(501U, 502U));
}

TEST_F(ARegistrar, ConnectsEvenWhenTheFeatureThatSilencesTheManagerIsOff) {
    root_.setFeature("ControlAutomaticAppLaunch", false);
    daemon_.answer(protocol::registrar::kRegisterItemOfURL, KSWFetchResult::resultWithCode(0, someItem()));
    daemon_.start();
    const auto registrar = KSWRegistrar::init();
    EXPECT_EQ(registrar->registerItem(&item_, app_, 8, job_, configuration_, 501), 0);
    EXPECT_NE(item_, nullptr);
}

TEST_F(ARegistrar, RegistersAnItem) {
    daemon_.answer(protocol::registrar::kRegisterItemOfURL, KSWFetchResult::resultWithCode(-96, someItem()));
    daemon_.start();
    EXPECT_EQ(registrar_->registerItem(&item_, app_, 8, job_, configuration_, 501), -96);
    EXPECT_EQ(item_->identifier(), "8.com.example.agent");
}

TEST_F(ARegistrar, OpensNoActivityForARegistration) {
    EXPECT_EQ(registrar_->registerItem(&item_, app_, 8, job_, configuration_, 501), -1);
    const auto lines = log_.lines();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_TRUE(lines[0].fullForm.starts_with("registerItem: connection error: "));
    EXPECT_EQ(lines[0].activity, "");
}

TEST_F(ARegistrar, AsksForTheEffectiveDisposition) {
    daemon_.answer(protocol::registrar::kEffectiveDispositionOfURL, 3, Data{1}, 0);
    daemon_.start();
    std::int64_t disposition = 0;
    std::optional<Data> constraint;
    EXPECT_TRUE(registrar_->getEffectiveDisposition(&disposition, &constraint, app_, 8, job_, configuration_, 501));
    EXPECT_EQ(disposition, 3);
    EXPECT_EQ(constraint, Data{1});
    EXPECT_EQ(log_.lines().at(0).activity, "KSWRegistrar.getEffectiveDisposition");
}

TEST_F(ARegistrar, LogsAFailedConnectionUnderItsOwnName) {
    std::int64_t disposition = 0;
    EXPECT_FALSE(registrar_->getEffectiveDisposition(&disposition, nullptr, app_, 8, job_, configuration_, 501));
    EXPECT_TRUE(errors().at(0).starts_with(
        "KSWRegistrar: connection failed, check entitlement of the calling process. Error: "));
}

TEST_F(ARegistrar, FetchesAnItemAndHasNothingToSayAboutTheGateMenu) {
    daemon_.answer(protocol::registrar::kItemOfURL, KSWFetchResult::resultWithCode(0, someItem("VelmontGateMenu")));
    daemon_.start();
    const auto item = registrar_->fetchItemWithAppURL(app_, 8, job_, configuration_, 501);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->name(), "VelmontGateMenu");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ARegistrar, LogsAFetchWithoutADaemonUnderItsOwnName) {
    EXPECT_EQ(registrar_->fetchItemWithAppURL(app_, 8, job_, configuration_, 501), nullptr);
    EXPECT_TRUE(errors().at(1).starts_with(
        "-[KSWRegistrar fetchItemWithAppURL:type:relativeURL:configuration:uid:]: error: Error Domain="));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWRegistrar.fetchItemWithAppURL");
}

}  // namespace
}  // namespace ksw::test
