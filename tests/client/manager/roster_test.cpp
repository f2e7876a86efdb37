// Items of the legacy login-item store.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/protocol/roster_service.h"
#include "model/item/item_archive.h"
#include "tests/client/manager/answering.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
namespace roster = protocol::roster;

const Error kBefore{"Before", 1};
constexpr const char* kConnectionFailed =
    "KSWManager: connection failed, check entitlement of the calling process. Error: ";

class TheRoster : public ClientTest {
protected:
    std::shared_ptr<KSWManager> roster() { return KSWManager::initWithMode(1); }

    /// The texts at the default level.
    std::vector<std::string> notices() const {
        std::vector<std::string> texts;
        for (const host::LogLine& line : log_.lines()) {
            if (line.level == host::LogLevel::Notice) {
                EXPECT_EQ(line.publicForm, line.fullForm);
                texts.push_back(line.publicForm);
            }
        }
        return texts;
    }

    std::optional<Error> error_ = kBefore;
};

class FetchedRosterItems : public TheRoster {
protected:
    std::optional<Items> answered(const std::optional<Data>& archive, const std::optional<Error>& error) {
        answer(daemon_, roster::kFetchRosterItemsMatching, seen_, archive, error);
        daemon_.start();
        return roster()->fetchRosterItemsMatching(6, &error_);
    }
    static Data archiveOf(const Items& items) {
        return *archive::archiveArray<KSWItem>(items, archive::Coder::Ordinary);
    }

    SeenBy<roster::kFetchRosterItemsMatching> seen_;
    ScriptedDaemon daemon_{kRosterService};
};

TEST_F(FetchedRosterItems, AreThoseInTheArchive) {
    const auto items = answered(archiveOf({itemNamed("2.a"), itemNamed("4.b")}), std::nullopt);
    ASSERT_TRUE(items.has_value());
    EXPECT_THAT(names(*items), ElementsAre("2.a", "4.b"));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_EQ(std::get<0>(seen_.only()), 6);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FetchedRosterItems, MayBeNoneOfThem) {
    const auto items = answered(archiveOf({}), std::nullopt);
    ASSERT_TRUE(items.has_value());
    EXPECT_THAT(*items, IsEmpty());
}

TEST_F(FetchedRosterItems, AreAbsentWhenTheArchiveHoldsSomethingElse) {
    EXPECT_EQ(answered(archiveOfList({itemNamed("2.a")}), std::nullopt), std::nullopt);
    EXPECT_EQ(error_.value().domain(), kFormatErrorDomain);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FetchedRosterItems, CountThoughAnErrorCameWithThem) {
    EXPECT_TRUE(answered(archiveOf({}), Error("Other", 3)).has_value());
    EXPECT_EQ(error_, std::nullopt);
}

TEST_F(FetchedRosterItems, AreAbsentWithTheDaemonsErrorWhichIsLogged) {
    const Error refusal = KSWErrorWithCode(-97);
    EXPECT_EQ(answered(std::nullopt, refusal), std::nullopt);
    EXPECT_EQ(error_, refusal);
    EXPECT_THAT(errors(), ElementsAre("-[KSWManager fetchRosterItemsMatching:error:]_reply: error: " +
                                      refusal.description()));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.fetchRosterItemsMatching");
}

TEST_F(FetchedRosterItems, AreAbsentWithoutAReasonToo) {
    EXPECT_EQ(answered(std::nullopt, std::nullopt), std::nullopt);
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(errors(), ElementsAre("-[KSWManager fetchRosterItemsMatching:error:]_reply: error: (null)"));
}

TEST_F(FetchedRosterItems, AreAbsentWithoutADaemonAndItsErrorIsTheConnections) {
    EXPECT_EQ(roster()->fetchRosterItemsMatching(6, &error_), std::nullopt);
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(kConnectionFailed)));
    EXPECT_EQ(roster()->fetchRosterItemsMatching(6), std::nullopt);
}

class AnAddedRosterItem : public TheRoster {
protected:
    std::shared_ptr<KSWItem> answered(std::int64_t code, const std::shared_ptr<KSWItem>& item) {
        answer(daemon_, roster::kAddURL, seen_, code, item);
        daemon_.start();
        return roster()->addRosterItemWithURL(url_, 4, true, false, &error_);
    }

    SeenBy<roster::kAddURL> seen_;
    ScriptedDaemon daemon_{kRosterService};
    std::optional<URL> url_ = URL::fileURL("/Apps/Tool.app", PathKind::Directory);
};

TEST_F(AnAddedRosterItem, IsThatOfTheReply) {
    const auto item = answered(0, itemNamed("4.a", KSWItemTypeLoginItem));
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->identifier(), "4.a");
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_EQ(seen_.only(), std::tuple(url_, std::int64_t{4}, true, false));
}

TEST_F(AnAddedRosterItem, IsLoggedBeforeItIsSent) {
    answered(0, itemNamed("4.a"));
    EXPECT_THAT(notices(), ElementsAre("addRosterItemWithURL: url=file:///Apps/Tool.app/, type=login item"));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.addRosterItemWithURL");
    EXPECT_THAT(log_.lines(), SizeIs(1));
}

TEST_F(AnAddedRosterItem, ThatExistsCountsAsAdded) {
    const auto item = answered(-96, itemNamed("4.a"));
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->identifier(), "4.a");
    EXPECT_EQ(error_, std::nullopt);
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1].level, host::LogLevel::Info);
    EXPECT_EQ(lines[1].fullForm, "Existing item found for file:///Apps/Tool.app/ and was changed to 'allow'");
    EXPECT_EQ(lines[1].publicForm, "Existing item found for <private> and was changed to 'allow'");
}

TEST_F(AnAddedRosterItem, IsNoneWithAnyOtherCodeWhichIsLogged) {
    EXPECT_EQ(answered(-97, itemNamed("4.a")), nullptr);
    EXPECT_EQ(error_, KSWErrorWithCode(-97));
    EXPECT_THAT(errors(), ElementsAre("addRosterItemWithURL: result=permission denied"));
}

TEST_F(AnAddedRosterItem, IsNoneWithoutADaemon) {
    EXPECT_EQ(roster()->addRosterItemWithURL(url_, 4, false, false, &error_), nullptr);
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(kConnectionFailed)));
}

class AChangedRosterItem : public TheRoster {
protected:
    AChangedRosterItem() { item_->setGeneration(3); }

    bool updated(std::int64_t code) {
        answer(daemon_, roster::kUpdateItem, seen_, code);
        daemon_.start();
        return roster()->updateRosterItem(item_, &error_);
    }
    bool removed(std::int64_t code) {
        answer(daemon_, roster::kRemoveItem, seen_, code);
        daemon_.start();
        return roster()->removeRosterItem(item_, &error_);
    }

    SeenBy<roster::kUpdateItem> seen_;
    ScriptedDaemon daemon_{kRosterService};
    std::shared_ptr<KSWItem> item_ = itemNamed("4.a", KSWItemTypeLoginItem);
    std::string uuid_ = item_->uuid()->string();
};

TEST_F(AChangedRosterItem, IsStoredByTheCodeThatSaysUpdated) {
    EXPECT_TRUE(updated(-93));
    EXPECT_EQ(item_->generation(), 4);
    EXPECT_EQ(error_, kBefore);
    EXPECT_EQ(std::get<0>(seen_.only())->uuid(), item_->uuid());
    EXPECT_EQ(std::get<0>(seen_.only())->generation(), 3);
    EXPECT_THAT(notices(), ElementsAre("updateRosterItem: " + uuid_));
    EXPECT_THAT(log_.lines(), SizeIs(1));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.updateRosterItem");
}

TEST_F(AChangedRosterItem, IsNotStoredByTheCodeOfOtherSuccesses) {
    EXPECT_FALSE(updated(0));
    EXPECT_EQ(error_, KSWErrorWithCode(0));
    EXPECT_EQ(item_->generation(), 3);
    EXPECT_THAT(errors(), ElementsAre("updateRosterItem: result=no error"));
}

TEST_F(AChangedRosterItem, ThatIsOutOfDateIsRefused) {
    EXPECT_FALSE(updated(-94));
    EXPECT_EQ(error_, KSWErrorWithCode(-94));
    EXPECT_THAT(errors(), ElementsAre("updateRosterItem: result=invalid record generation"));
}

TEST_F(AChangedRosterItem, IsRemovedByTheCodeOfSuccess) {
    EXPECT_TRUE(removed(0));
    EXPECT_EQ(error_, kBefore);
    EXPECT_EQ(item_->generation(), 3);
    EXPECT_THAT(notices(), ElementsAre("removeRosterItem: " + uuid_));
    EXPECT_THAT(log_.lines(), SizeIs(1));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.removeRosterItem");
}

TEST_F(AChangedRosterItem, IsNotRemovedByTheCodeThatSaysUpdated) {
    EXPECT_FALSE(removed(-93));
    EXPECT_EQ(error_, KSWErrorWithCode(-93));
    EXPECT_THAT(errors(), ElementsAre("removeRosterItem: result=record updated"));
}

TEST_F(AChangedRosterItem, WithoutADaemonHandsOutTheConnectionsError) {
    EXPECT_FALSE(roster()->updateRosterItem(item_, &error_));
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_FALSE(roster()->removeRosterItem(item_, &error_));
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(errors(), ElementsAre(StartsWith(kConnectionFailed), StartsWith(kConnectionFailed)));
    EXPECT_EQ(item_->generation(), 3);
}

TEST_F(AChangedRosterItem, MayBeNone) {
    item_ = nullptr;
    EXPECT_TRUE(updated(-93));
    EXPECT_EQ(std::get<0>(seen_.only()), nullptr);
    EXPECT_THAT(notices(), ElementsAre("updateRosterItem: (null)"));
}

TEST_F(TheRoster, OfAManagerThatIsOffAnswersNothingAndNoError) {
    root_.setFeature("ControlAutomaticAppLaunch", false);
    const auto off = roster();
    const auto item = itemNamed("4.a");
    EXPECT_EQ(off->fetchRosterItemsMatching(6, &error_), std::nullopt);
    EXPECT_EQ(std::exchange(error_, kBefore), std::nullopt);
    EXPECT_EQ(off->addRosterItemWithURL(std::nullopt, 4, false, false, &error_), nullptr);
    EXPECT_EQ(std::exchange(error_, kBefore), std::nullopt);
    EXPECT_FALSE(off->updateRosterItem(item, &error_));
    EXPECT_EQ(std::exchange(error_, kBefore), std::nullopt);
    EXPECT_FALSE(off->removeRosterItem(item, &error_));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(TheRoster, ImportsNoSingleFileAndAsksNobody) {
    EXPECT_FALSE(roster()->importRosterLoginItemFromURL(URL::fileURL("/a"), 501, true));
    EXPECT_FALSE(manager()->importRosterLoginItemFromURL(std::nullopt, 501, false));
    const std::string line = "-[KSWManager importRosterLoginItemFromURL:uid:deleteWhenDone:]: not implemented";
    EXPECT_THAT(errors(), ElementsAre(line, line));
}

}  // namespace
}  // namespace ksw::test
