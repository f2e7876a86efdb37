// Registering items, withdrawing them, and fetching one by its launch facts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/client/manager/scripted_daemon.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ARegistration : public ClientTest {
protected:
    std::int64_t registerAt(std::int64_t code, const std::shared_ptr<KSWItem>& item) {
        daemon_.answer(methods::kRegisterItemOfURL, KSWFetchResult::resultWithCode(code, item));
        daemon_.start();
        return manager()->registerItem(&item_, app_, 8, job_, configuration_, 501);
    }

    ScriptedDaemon daemon_;
    const std::shared_ptr<KSWItem> before_ = someItem("before");
    std::shared_ptr<KSWItem> item_ = before_;
};

TEST_F(ARegistration, AnsweredWithSuccessFillsTheItem) {
    EXPECT_EQ(registerAt(0, someItem()), 0);
    EXPECT_EQ(item_->name(), "Tool Helper");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ARegistration, AnsweredThatTheRecordWasUpdatedFillsTheItem) {
    EXPECT_EQ(registerAt(-93, someItem()), -93);
    EXPECT_EQ(item_->name(), "Tool Helper");
}

TEST_F(ARegistration, AnsweredThatTheRecordExistsFillsTheItem) {
    EXPECT_EQ(registerAt(-96, someItem()), -96);
    EXPECT_EQ(item_->name(), "Tool Helper");
}

TEST_F(ARegistration, AnsweredWithAnotherCodeLeavesTheItem) {
    EXPECT_EQ(registerAt(-95, someItem()), -95);
    EXPECT_EQ(item_, before_);
}

TEST_F(ARegistration, WithoutADaemonIsMinusOneAndLogsItsOwnLine) {
    EXPECT_EQ(manager()->registerItem(&item_, app_, 8, job_, configuration_, 501), -1);
    EXPECT_EQ(item_, before_);
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(errors().size(), 1U);
    EXPECT_EQ(lines[0].text, "registerItem: connection error: %{public}@");
    EXPECT_EQ(lines[0].activity, "KSWManager.registerItem");
}

TEST_F(ARegistration, NeedsNoPlaceForTheItem) {
    daemon_.answer(methods::kRegisterItemOfURL, KSWFetchResult::resultWithCode(0, someItem()));
    daemon_.start();
    EXPECT_EQ(manager()->registerItem(nullptr, app_, 8, job_, configuration_, 501), 0);
}

TEST_F(ARegistration, OfAProcessSendsTheToken) {
    daemon_.answer(methods::kRegisterItemOfProcess, KSWFetchResult::resultWithCode(0, someItem()));
    daemon_.start();
    const AuditToken token{{501, 20, 501, 20, 4711, 1, 0, 99}};
    EXPECT_EQ(manager()->registerItem(&item_, token, 8, job_, configuration_, 501), 0);
    EXPECT_EQ(daemon_.onlyRequest().token, token);
    EXPECT_EQ(item_->name(), "Tool Helper");
}

TEST_F(ARegistration, KeepsTheChainOfContainersAliveWithTheItem) {
    const auto developer = KSWItem::itemWithType(KSWItemTypeDeveloper, "Example Inc.");
    const auto app = KSWItem::itemWithType(KSWItemTypeApp, "2.com.example.tool");
    const auto helper = someItem();
    app->setContainer(developer);
    helper->setContainer(app);
    ASSERT_EQ(registerAt(0, helper), 0);
    ASSERT_NE(item_->container(), nullptr);
    EXPECT_EQ(item_->container()->identifier(), "2.com.example.tool");
    ASSERT_NE(item_->container()->container(), nullptr);
    EXPECT_EQ(item_->container()->container()->identifier(), "Example Inc.");
}

class AnUnregistration : public ClientTest {
protected:
    void answer(std::int64_t code) {
        daemon_.on(methods::kUnregisterItemOfURL,
                   [code](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder, std::optional<URL>,
                          std::int64_t, std::optional<URL>, Uid) { responder.answer(code); });
        daemon_.on(
            methods::kUnregisterItemOfProcess,
            [code](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder, std::optional<AuditToken>,
                   std::int64_t, std::optional<URL>, Uid) { responder.answer(code); });
        daemon_.start();
    }

    ScriptedDaemon daemon_;
};

TEST_F(AnUnregistration, AnsweredZeroReturnsZero) {
    answer(0);
    EXPECT_EQ(manager()->unregisterItemWithBundleURL(app_, 8, job_, 501), 0);
    EXPECT_EQ(manager()->unregisterItemWithAuditToken(AuditToken{}, 8, job_, 501), 0);
}

TEST_F(AnUnregistration, ReturnsTheDaemonsCode) {
    answer(-95);
    EXPECT_EQ(manager()->unregisterItemWithBundleURL(app_, 8, job_, 501), -95);
    EXPECT_EQ(manager()->unregisterItemWithAuditToken(AuditToken{}, 8, job_, 501), -95);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AnUnregistration, WithoutADaemonIsMinusOneAndLogsInTheWordsOfARegistration) {
    EXPECT_EQ(manager()->unregisterItemWithBundleURL(app_, 8, job_, 501), -1);
    EXPECT_EQ(manager()->unregisterItemWithAuditToken(AuditToken{}, 8, job_, 501), -1);
    const auto lines = errors();
    ASSERT_EQ(lines.size(), 2U);
    for (const std::string& line : lines) {
        EXPECT_TRUE(line.starts_with("registerItem: connection error: Error Domain=KSWConnectionErrorDomain"));
    }
    EXPECT_EQ(log_.lines().at(0).activity, "");
}

class AFetchedItem : public ClientTest {
protected:
    std::shared_ptr<KSWItem> fetch(std::int64_t code, const std::shared_ptr<KSWItem>& item) {
        ScriptedDaemon daemon;
        daemon.answer(methods::kItemOfURL, KSWFetchResult::resultWithCode(code, item));
        daemon.start();
        return manager()->fetchItemWithAppURL(app_, 8, job_, configuration_, 501);
    }
};

TEST_F(AFetchedItem, IsTheFirstOfTheResult) {
    EXPECT_EQ(fetch(0, someItem())->name(), "Tool Helper");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AFetchedItem, ComesWhateverTheCodeSays) {
    EXPECT_NE(fetch(-95, someItem()), nullptr);
    EXPECT_EQ(fetch(-95, nullptr), nullptr);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AFetchedItem, IsNoneWithoutADaemonAndLogsTheError) {
    EXPECT_EQ(manager()->fetchItemWithAppURL(app_, 8, job_, configuration_, 501), nullptr);
    const auto lines = errors();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[0].starts_with("KSWManager: connection failed, "));
    EXPECT_TRUE(lines[1].starts_with(
        "-[KSWManager fetchItemWithAppURL:type:relativeURL:configuration:uid:]: error: Error Domain="));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.fetchItemWithAppURL");
}

TEST_F(AFetchedItem, NamedAfterTheGateMenuIsWrittenToTheLogWithItsFamily) {
    const auto developer = KSWItem::itemWithType(KSWItemTypeDeveloper, "Velmont");
    const auto menu = someItem("VelmontGateMenu");
    menu->setContainer(developer);
    const auto item = fetch(0, menu);
    ASSERT_NE(item, nullptr);
    const std::string operation = "-[KSWManager fetchItemWithAppURL:type:relativeURL:configuration:uid:]: ";
    EXPECT_THAT(log_.at(host::LogLevel::Notice),
                ElementsAre(operation + "item=" + item->description(),
                            operation + "container=" + item->container()->description(),
                            operation + "item.fullPath=(null)"));
    EXPECT_EQ(log_.lines().at(0).publicForm, operation + "item=<private>");
    EXPECT_EQ(log_.lines().at(1).publicForm, operation + "container=<private>");
    EXPECT_EQ(log_.lines().at(2).publicForm, operation + "item.fullPath=<private>");
}

}  // namespace
}  // namespace ksw::test
