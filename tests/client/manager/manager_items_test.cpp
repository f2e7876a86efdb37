// Records are added, removed and changed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/item/item_archive.h"
#include "tests/client/manager/list_daemon.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

const Error kBefore{"Before", 1};

/// An item as it came, and its user.
using Sent = std::pair<std::shared_ptr<KSWItem>, Uid>;

class AnAddedItem : public ClientTest {
protected:
    AnAddedItem() { item_->setUrl(URL::fileURL("/jobs/a.plist")); }

    bool addAnswered(std::int64_t code) {
        daemon_.on(methods::kAddItem,
                   [this, code](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder,
                                std::shared_ptr<KSWItem> item, Uid uid) {
                       sent_.add({std::move(item), uid});
                       responder.answer(code);
                   });
        daemon_.start();
        return manager()->addItem(item_, 501, &error_);
    }

    Seen<Sent> sent_;
    ScriptedDaemon daemon_;
    std::shared_ptr<KSWItem> item_ = someItem();
    std::optional<Error> error_ = kBefore;
};

TEST_F(AnAddedItem, ReachesTheDaemonWithItsUser) {
    EXPECT_TRUE(addAnswered(0));
    const auto [item, uid] = sent_.only();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->uuid(), item_->uuid());
    EXPECT_EQ(item->identifier(), "8.com.example.agent");
    EXPECT_EQ(item->embeddedItems(), nullptr);
    EXPECT_EQ(uid, 501U);
}

TEST_F(AnAddedItem, AnsweredWithSuccessClearsTheErrorAndLogsNothing) {
    EXPECT_TRUE(addAnswered(0));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AnAddedItem, ThatExistsCountsAsAddedAndIsLogged) {
    EXPECT_TRUE(addAnswered(-96));
    EXPECT_EQ(error_, std::nullopt);
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, host::LogLevel::Info);
    EXPECT_EQ(lines[0].text, "Existing item found for %@");
    EXPECT_EQ(lines[0].fullForm, "Existing item found for file:///jobs/a.plist");
    EXPECT_EQ(lines[0].publicForm, "Existing item found for <private>");
    EXPECT_EQ(lines[0].activity, "KSWManager.addItem");
}

TEST_F(AnAddedItem, ThatIsRefusedHandsOutTheCodesError) {
    EXPECT_FALSE(addAnswered(-97));
    EXPECT_EQ(error_, KSWErrorWithCode(-97));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AnAddedItem, WithoutADaemonHandsOutTheConnectionsErrorAndLogsNothing) {
    EXPECT_FALSE(manager()->addItem(item_, 501, &error_));
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_FALSE(manager()->addItem(item_, 501));
}

TEST_F(AnAddedItem, MayBeNone) {
    item_ = nullptr;
    EXPECT_TRUE(addAnswered(-96));
    EXPECT_EQ(sent_.only().first, nullptr);
    EXPECT_EQ(log_.count("Existing item found for (null)"), 1U);
}

class ARemovedItem : public ClientTest {
protected:
    void removeAnswered(std::optional<Error> answer) {
        daemon_.on(methods::kRemoveItemWithUUID,
                   [this, answer](const ipc::RequestContext&, ipc::Responder<std::optional<Error>> responder,
                                  std::optional<UUID> uuid, Uid uid) {
                       sent_.add({uuid, uid});
                       responder.answer(answer);
                   });
        daemon_.start();
        EXPECT_TRUE(manager()->removeItem(item_, 501, &error_));
    }

    Seen<std::pair<std::optional<UUID>, Uid>> sent_;
    ScriptedDaemon daemon_;
    std::shared_ptr<KSWItem> item_ = someItem();
    std::optional<Error> error_ = kBefore;
};

TEST_F(ARemovedItem, IsNamedByItsUUID) {
    removeAnswered(std::nullopt);
    EXPECT_EQ(sent_.only(), std::pair(item_->uuid(), Uid{501}));
    EXPECT_EQ(error_, kBefore);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ARemovedItem, ThatTheDaemonDoesNotKnowCountsAsRemovedAndHandsOutTheDaemonsError) {
    const Error unknown("com.example.Store", 7, "no such row");
    removeAnswered(unknown);
    EXPECT_EQ(error_, unknown);
    EXPECT_THAT(errors(), ElementsAre("removeItem: error=Error Domain=com.example.Store Code=7 \"no such row\""));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.removeItem");
}

TEST_F(ARemovedItem, WithoutADaemonCountsAsRemovedAndHandsOutTheConnectionsError) {
    EXPECT_TRUE(manager()->removeItem(item_, 501, &error_));
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(errors(), ElementsAre(StartsWith("removeItem: error=Error Domain=KSWConnectionErrorDomain")));
    EXPECT_TRUE(manager()->removeItem(item_, 501));
}

TEST_F(ARemovedItem, MayBeNone) {
    item_ = nullptr;
    removeAnswered(KSWErrorWithCode(-98));
    EXPECT_EQ(sent_.only().first, std::nullopt);
    EXPECT_EQ(error_, KSWErrorWithCode(-98));
}

/// An agent, a daemon and a login item of one application, which a developer made.
class ChangedItems : public ClientTest {
protected:
    ChangedItems() {
        app_->setContainer(developer_);
        for (const auto& item : items_) {
            item->setContainer(app_);
            item->setGeneration(generation_++);
        }
    }

    void answer(std::int64_t code) {
        daemon_.on(methods::kUpdateItems,
                   [this, code](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder,
                                std::optional<Data> archive, Uid uid) {
                       sent_.add({archive.value_or(Data()), uid});
                       responder.answer(code);
                   });
        daemon_.start();
    }
    bool update() { return manager()->updateItems(items_, 501, &error_); }

    /// The items as the daemon reads them.
    archive::UnarchivedArray<KSWItem> arrived() {
        const Data archive = sent_.only().first;
        archive::DecodeBudget budget(archive.size());
        auto items = archive::unarchiveArray<KSWItem>(archive, {.cycles = archive::Cycles::Allowed}, budget);
        EXPECT_TRUE(items.ok());
        return *std::move(items);
    }
    std::vector<std::int64_t> generations() const {
        std::vector<std::int64_t> all;
        for (const auto& item : items_) {
            all.push_back(item->generation());
        }
        return all;
    }

    std::shared_ptr<KSWItem> developer_ = itemNamed("Dev", KSWItemTypeDeveloper);
    std::shared_ptr<KSWItem> app_ = itemNamed("2.app", KSWItemTypeApp);
    Items items_{itemNamed("8.a"), itemNamed("16.b", KSWItemTypeDaemon), itemNamed("4.c", KSWItemTypeLoginItem)};
    std::int64_t generation_ = 4;
    Seen<std::pair<Data, Uid>> sent_;
    ScriptedDaemon daemon_;
    std::optional<Error> error_ = kBefore;
};

TEST_F(ChangedItems, AreStoredAndOneGenerationOlder) {
    answer(-93);
    EXPECT_TRUE(update());
    EXPECT_THAT(generations(), ElementsAre(5, 6, 7));
    EXPECT_EQ(error_, kBefore);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ChangedItems, AnsweredWithZeroAreNotStored) {
    answer(0);
    EXPECT_FALSE(update());
    EXPECT_THAT(generations(), ElementsAre(4, 5, 6));
    EXPECT_EQ(error_, KSWErrorWithCode(0));
    EXPECT_EQ(error_.value().localizedDescription(), "no error");
    EXPECT_THAT(errors(), ElementsAre("updateItems error: Error Domain=KSWErrorDomain Code=0 \"no error\" (0)"));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.updateItems");
}

TEST_F(ChangedItems, ThatAreRefusedHandOutTheCodesError) {
    answer(-94);
    EXPECT_FALSE(update());
    EXPECT_EQ(error_, KSWErrorWithCode(-94));
    EXPECT_THAT(
        errors(),
        ElementsAre("updateItems error: Error Domain=KSWErrorDomain Code=-94 \"invalid record generation\" (-94)"));
}

TEST_F(ChangedItems, WithoutADaemonHandOutTheConnectionsErrorAndLogNothing) {
    EXPECT_FALSE(update());
    EXPECT_THAT(generations(), ElementsAre(4, 5, 6));
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ChangedItems, TravelInTheOrderOfTheSetWithTheirContainers) {
    items_[1]->setFlags(KSWItemFlagManaged | KSWItemFlagSandboxed);
    app_->setFlags(KSWItemFlagCurated);
    answer(-93);
    update();
    EXPECT_EQ(sent_.only().second, 501U);
    const auto items = arrived();
    EXPECT_EQ(names(items.roots), (Names{"8.a", "16.b", "4.c"}));
    EXPECT_EQ(items.roots[1]->flags(), KSWItemFlagManaged | KSWItemFlagSandboxed);
    EXPECT_EQ(items.roots[1]->uuid(), items_[1]->uuid());
    EXPECT_EQ(items.roots[1]->generation(), 5);
    const auto container = items.roots[1]->container();
    ASSERT_NE(container, nullptr);
    EXPECT_EQ(container, items.roots[0]->container());
    EXPECT_EQ(container->identifier(), "2.app");
    EXPECT_EQ(container->flags(), KSWItemFlagCurated);
    ASSERT_NE(container->container(), nullptr);
    EXPECT_EQ(container->container()->identifier(), "Dev");
}

TEST_F(ChangedItems, TravelWithoutTheirContainersChildren) {
    answer(-93);
    EXPECT_TRUE(manager()->updateItem(items_[0], 501));
    const auto items = arrived();
    EXPECT_EQ(items.graph->size(), 3U);
    EXPECT_EQ(items.roots.at(0)->container()->countOfEmbeddedItems(), 0U);
    EXPECT_EQ(app_->countOfEmbeddedItems(), 3U);
}

TEST_F(ChangedItems, TravelWithTheirOwnChildren) {
    answer(-93);
    EXPECT_TRUE(manager()->updateItem(app_, 501));
    const auto items = arrived();
    EXPECT_EQ(items.graph->size(), 5U);
    EXPECT_EQ(items.roots.at(0)->countOfEmbeddedItems(), 3U);
    EXPECT_EQ(items.roots[0]->memberOfEmbeddedItems(items_[2])->container().get(), items.roots[0].get());
    EXPECT_EQ(items.roots[0]->container()->countOfEmbeddedItems(), 0U);
}

TEST_F(ChangedItems, OfAFamilyOfThousandsFitASmallRequest) {
    std::vector<std::shared_ptr<KSWItem>> family;
    for (int number = 0; number < 10'000; ++number) {
        family.push_back(itemNamed("8.agent-" + std::to_string(number)));
    }
    app_->setEmbeddedItems(family);
    for (const auto& member : family) {
        member->_setContainer(nullptr);
    }
    answer(-93);
    EXPECT_TRUE(manager()->updateItem(items_[0], 501));
    EXPECT_LT(sent_.only().first.size(), 2'000U);
}

TEST_F(ChangedItems, OfWhichThereIsOneAreASetOfOne) {
    answer(0);
    EXPECT_FALSE(manager()->updateItem(items_[0], 501, &error_));
    EXPECT_EQ(names(arrived().roots), (Names{"8.a"}));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.updateItem");
}

TEST_F(ChangedItems, OfWhichThereIsNoneAreAnEmptySet) {
    answer(-93);
    EXPECT_TRUE(manager()->updateItems(ItemSet::Pointer(), 501, &error_));
    EXPECT_THAT(arrived().roots, IsEmpty());
}

TEST_F(ChangedItems, ThatCannotBeArchivedAreNotSent) {
    items_[2]->setName(std::string(70'000, 'x'));
    answer(-93);
    EXPECT_FALSE(update());
    EXPECT_EQ(error_.value().domain(), kFormatErrorDomain);
    EXPECT_THAT(generations(), ElementsAre(4, 5, 6));
    EXPECT_THAT(sent_.all(), IsEmpty());
    const auto lines = log_.lines();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(lines[0].level, host::LogLevel::Error);
    EXPECT_EQ(lines[0].text, "failed archiving changedItems: %{public}@, error: %{public}@");
    EXPECT_THAT(lines[0].publicForm, StartsWith("failed archiving changedItems: (uuid="));
}

TEST_F(ChangedItems, OfTheHighestGenerationBeginAgain) {
    items_[0]->setGeneration(INT64_MAX);
    answer(-93);
    EXPECT_TRUE(update());
    EXPECT_EQ(items_[0]->generation(), INT64_MIN);
}

class AManagerThatIsOff : public ClientTest {
protected:
    AManagerThatIsOff() { root_.setFeature("ControlAutomaticAppLaunch", false); }

    std::optional<Error> error_ = kBefore;
};

TEST_F(AManagerThatIsOff, AnswersRequestsForRecordsWithNothingAndNoError) {
    const auto off = manager();
    EXPECT_FALSE(off->addItem(someItem(), 501, &error_));
    EXPECT_EQ(error_, std::nullopt);
    error_ = kBefore;
    EXPECT_FALSE(off->updateItem(someItem(), 501, &error_));
    EXPECT_EQ(error_, std::nullopt);
    error_ = kBefore;
    EXPECT_EQ(off->getItemWithIdentifier("8.a", 501, &error_), nullptr);
    EXPECT_EQ(error_, std::nullopt);
    error_ = kBefore;
    EXPECT_EQ(off->fetchItemWithUUID(UUID::random(), 501, &error_), nullptr);
    EXPECT_EQ(error_, std::nullopt);
    error_ = kBefore;
    EXPECT_EQ(off->getItemsMatching(8, 501, &error_), nullptr);
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AManagerThatIsOff, RemovesItemsAllTheSame) {
    EXPECT_TRUE(manager()->removeItem(someItem(), 501, &error_));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_THAT(errors(), ElementsAre("removeItem: error=(null)"));
}

}  // namespace
}  // namespace ksw::test
