// One record is looked up.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/client/manager/list_daemon.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Error kBefore{"Before", 1};

/// Both ways to look one record up: by identifier and by UUID.
class ALookup : public ClientTest, public ::testing::WithParamInterface<bool> {
protected:
    using Responder = ipc::Responder<std::shared_ptr<KSWFetchResult>>;

    void answer(const std::shared_ptr<KSWFetchResult>& result) {
        daemon_.on(methods::kGetItemWithIdentifier,
                   [this, result](const ipc::RequestContext&, Responder responder,
                                  const std::optional<std::string>& identifier, Uid uid) {
                       sent_.add({identifier.value_or("none"), uid});
                       responder.answer(result);
                   });
        daemon_.on(methods::kGetItemWithUUID, [this, result](const ipc::RequestContext&, Responder responder,
                                                             std::optional<UUID> uuid, Uid uid) {
            sent_.add({uuid ? uuid->string() : "none", uid});
            responder.answer(result);
        });
        daemon_.start();
    }
    std::string key() const { return GetParam() ? uuid_.string() : "8.com.example.agent"; }
    std::shared_ptr<KSWItem> lookUp() {
        return GetParam() ? manager()->fetchItemWithUUID(uuid_, 501, &error_)
                          : manager()->getItemWithIdentifier("8.com.example.agent", 501, &error_);
    }
    std::string activity() const {
        return GetParam() ? "KSWManager.fetchItemWithUUID" : "KSWManager.getItemWithIdentifier";
    }

    const UUID uuid_ = UUID::random();
    Seen<std::pair<std::string, Uid>> sent_;
    ScriptedDaemon daemon_;
    std::optional<Error> error_ = kBefore;
};

INSTANTIATE_TEST_SUITE_P(By, ALookup, ::testing::Bool(),
                         [](const auto& way) { return way.param ? "UUID" : "Identifier"; });

TEST_P(ALookup, AnswersTheRecordWithItsContainers) {
    {
        const auto developer = itemNamed("Dev", KSWItemTypeDeveloper);
        const auto item = someItem();
        item->setContainer(developer);
        answer(KSWFetchResult::resultWithCode(0, item));
    }
    const auto item = lookUp();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->identifier(), "8.com.example.agent");
    ASSERT_NE(item->container(), nullptr);
    EXPECT_EQ(item->container()->identifier(), "Dev");
    EXPECT_EQ(sent_.only(), std::pair(key(), Uid{501}));
    EXPECT_EQ(error_, kBefore);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_P(ALookup, OfAnUnknownRecordAnswersNoneAndNoError) {
    answer(KSWFetchResult::resultWithCode(-95, nullptr));
    error_.reset();
    EXPECT_EQ(lookUp(), nullptr);
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_P(ALookup, TakesTheItemWhateverTheCode) {
    answer(KSWFetchResult::resultWithCode(-1, someItem()));
    EXPECT_NE(lookUp(), nullptr);
}

TEST_P(ALookup, AnsweredWithNothingHandsOutNoError) {
    answer(nullptr);
    EXPECT_EQ(lookUp(), nullptr);
    EXPECT_EQ(error_, std::nullopt);
}

TEST_P(ALookup, WithoutADaemonLogsAndHandsOutTheConnectionsError) {
    EXPECT_EQ(lookUp(), nullptr);
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(errors(), ElementsAre("KSWManager: connection failed, check entitlement of the calling process. "
                                      "Error: " +
                                      error_->description()));
    EXPECT_EQ(log_.lines().at(0).activity, activity());
}

}  // namespace
}  // namespace ksw::test
