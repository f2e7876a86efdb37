// A file becomes an item that opens at login.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include "tests/client/manager/list_daemon.h"
#include "tests/support/signing_support.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const Error kBefore{"Before", 1};

/// An application "Tool", and a daemon whose answers a test sets before it asks.
class AUserItem : public ClientTest {
protected:
    AUserItem() {
        stored_->setUuid(UUID::random());
        stored_->setDisposition(KSWDispositionAllowed);
    }

    void start() {
        daemon_.on(methods::kAddItem, [this](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder,
                                             const std::shared_ptr<KSWItem>& item, Uid uid) {
            note("add", item, uid);
            responder.answer(addCode_);
        });
        daemon_.on(methods::kUpdateItem, [this](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder,
                                                const std::shared_ptr<KSWItem>& item, Uid uid) {
            note("update", item, uid);
            responder.answer(updateCode_);
        });
        daemon_.on(methods::kGetItemWithIdentifier,
                   [this](const ipc::RequestContext&, ipc::Responder<std::shared_ptr<KSWFetchResult>> responder,
                          const std::optional<std::string>& identifier, Uid) {
                       requests_.add("get " + identifier.value_or(""));
                       responder.answer(KSWFetchResult::resultWithCode(stored_ ? 0 : -95, stored_));
                   });
        daemon_.start();
    }
    std::shared_ptr<KSWItem> ask() {
        start();
        return manager()->addUserItemForURL(url_, 501, &error_);
    }
    void note(const std::string& what, const std::shared_ptr<KSWItem>& item, Uid uid) {
        requests_.add(what + " " + std::to_string(uid) + " " + item->identifier().value() + " " +
                      std::to_string(item->disposition()));
    }

    TempFolder files_;
    const URL url_ = URL::fileURL(files_.makeFolder("Tool.app"), PathKind::Directory);
    const std::string identifier_ = URL::fileURL(files_.at("Tool.app")).absoluteString();
    std::shared_ptr<KSWItem> stored_ = itemNamed(identifier_, KSWItemTypeUserItem);
    std::int64_t addCode_ = 0;
    std::int64_t updateCode_ = -93;
    Seen<std::string> requests_;
    ScriptedDaemon daemon_;
    std::optional<Error> error_ = kBefore;
};

TEST_F(AUserItem, IsAddedEnabledAndAllowed) {
    const auto item = ask();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->type(), KSWItemTypeUserItem);
    EXPECT_EQ(item->identifier(), identifier_);
    EXPECT_EQ(item->name(), "Tool");
    EXPECT_EQ(item->url(), url_);
    EXPECT_EQ(item->disposition(), 3U);
    EXPECT_THAT(requests_.all(), ElementsAre("add 501 " + identifier_ + " 3"));
    EXPECT_EQ(error_, kBefore);
    EXPECT_THAT(errors(), IsEmpty());
    const auto lines = log_.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().level, host::LogLevel::Debug);
    EXPECT_EQ(lines.back().publicForm, "addUserItemForURL: item.uuid=" + item->uuid()->string());
    EXPECT_EQ(lines.back().activity, "KSWManager.addUserItemForURL");
}

TEST_F(AUserItem, WithoutAUserIsTheCallersOwn) {
    start();
    EXPECT_NE(manager()->addUserItemForURL(url_), nullptr);
    EXPECT_NE(manager()->addUserItemForURL(url_, &error_), nullptr);
    const std::string request = "add " + std::to_string(::getuid()) + " " + identifier_ + " 3";
    EXPECT_THAT(requests_.all(), ElementsAre(request, request));
}

TEST_F(AUserItem, ThatExistsAndIsDisabledIsTheStoredOneEnabledByOneUpdate) {
    addCode_ = -96;
    const auto item = ask();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->uuid(), stored_->uuid());
    EXPECT_TRUE(item->isEnabled());
    EXPECT_THAT(requests_.all(), ElementsAre("add 501 " + identifier_ + " 3", "get " + identifier_,
                                             "update 501 " + identifier_ + " 3"));
    EXPECT_EQ(error_, kBefore);
    EXPECT_THAT(errors(), ElementsAre("addUserItemForURL: serviceResult=Error Domain=KSWErrorDomain Code=-96 "
                                      "\"record exists\""));
    EXPECT_THAT(log_.at(host::LogLevel::Info),
                ElementsAre("addUserItemForURL: fetching exiting item for identifier=" + identifier_));
    EXPECT_THAT(log_.at(host::LogLevel::Debug),
                ElementsAre("addUserItemForURL: item.uuid=" + stored_->uuid()->string()));
}

TEST_F(AUserItem, ThatExistsAndIsEnabledIsTheStoredOneWithoutAnUpdate) {
    addCode_ = -96;
    stored_->setEnabled(true);
    const auto item = ask();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->uuid(), stored_->uuid());
    EXPECT_EQ(requests_.all().size(), 2U);
}

TEST_F(AUserItem, IsTheStoredOneHoweverItsUpdateEnds) {
    addCode_ = -96;
    updateCode_ = -94;
    const auto item = ask();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->uuid(), stored_->uuid());
    EXPECT_EQ(error_, kBefore);
    EXPECT_EQ(errors().size(), 1U);
}

TEST_F(AUserItem, ThatExistsAndCannotBeFetchedIsNone) {
    addCode_ = -96;
    stored_ = nullptr;
    EXPECT_EQ(ask(), nullptr);
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_EQ(errors().back(), "addUserItemForURL: error fetching existing item: (null)");
}

TEST_F(AUserItem, ThatIsRefusedComesBackUnsavedWithoutAnError) {
    addCode_ = -97;
    const auto item = ask();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->identifier(), identifier_);
    EXPECT_EQ(error_, kBefore);
    EXPECT_THAT(requests_.all(), ElementsAre("add 501 " + identifier_ + " 3"));
    EXPECT_THAT(errors(), ElementsAre("addUserItemForURL: serviceResult=Error Domain=KSWErrorDomain Code=-97 "
                                      "\"permission denied\""));
}

TEST_F(AUserItem, WithoutADaemonComesBackUnsavedWithoutAnError) {
    EXPECT_NE(manager()->addUserItemForURL(url_, 501, &error_), nullptr);
    EXPECT_EQ(error_, kBefore);
    EXPECT_THAT(errors(), ElementsAre(StartsWith("KSWManager: connection failed, check entitlement of the calling "
                                                 "process. Error: Error Domain=KSWConnectionErrorDomain")));
}

TEST_F(AUserItem, OfAManagerThatIsOffComesBackUnsaved) {
    root_.setFeature("ControlAutomaticAppLaunch", false);
    EXPECT_NE(manager()->addUserItemForURL(url_, 501, &error_), nullptr);
    EXPECT_EQ(error_, kBefore);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(AUserItem, OfAFileThatIsNotThereIsNone) {
    start();
    EXPECT_EQ(manager()->addUserItemForURL(URL::fileURL(files_.at("Gone.app")), 501, &error_), nullptr);
    EXPECT_EQ(error_, Error(KSWErrorDomain, -98));
    EXPECT_TRUE(error_->userInfo().empty());
    EXPECT_THAT(requests_.all(), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre(StartsWith("addUserItemForURL: getResourceValue error: Error "
                                                 "Domain=KSWPosixErrorDomain Code=2")));
}

TEST_F(AUserItem, ThatIsASignedApplicationIsAnItemOfTheApplication) {
    facts::CertificateMaker certificates;
    const facts::Identity authority = certificates.root("root");
    root_.folder().writeFile("etc/kestrelwood/trust/root.pem",
                             facts::textOf(facts::contentOf(authority.certificate)));
    const facts::Identity signer = certificates.issue(authority, "signer");
    SigningRequest request;
    request.identifier = "com.example.tool";
    request.key = facts::contentOf(signer.key);
    request.chain = facts::contentOf(signer.chain);
    ASSERT_TRUE(facts::sign(facts::makeApplication(files_, "Tool.app", "com.example.tool"), request).ok());
    const auto item = ask();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->type(), KSWItemTypeApp);
    EXPECT_EQ(item->identifier(), "2.com.example.tool");
    EXPECT_EQ(item->name(), "Tool");
    EXPECT_EQ(item->bundleIdentifier(), "com.example.tool");
    EXPECT_THAT(requests_.all(), ElementsAre("add 501 2.com.example.tool 3"));
    EXPECT_EQ(error_, kBefore);
}

TEST_F(AUserItem, MayBeADocumentOrAnAddressInTheNet) {
    start();
    const auto document = manager()->addUserItemForURL(URL::fileURL(files_.writeFile("plan.txt", "")), 501);
    EXPECT_EQ(document->name(), "plan.txt");
    const auto address = manager()->addUserItemForURL(*URL::fromString("https://example.com/a"), 501);
    EXPECT_EQ(address->identifier(), "https://example.com/a");
    EXPECT_THAT(errors(), IsEmpty());
}

}  // namespace
}  // namespace ksw::test
