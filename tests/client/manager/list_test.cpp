// A list of items: what it holds, and how it changes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include <unistd.h>

#include "tests/client/manager/list_daemon.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Two agents of an application, and one without.
class AList : public ListTest {
protected:
    AList() {
        app_->setContainer(developer_);
        first_->setContainer(app_);
        second_->setContainer(app_);
        list_ = KSWList::initWithItems({first_, alone_, nullptr, second_}, 501, 8, manager_);
    }

    std::shared_ptr<KSWItem> developer_ = itemNamed("Dev", KSWItemTypeDeveloper);
    std::shared_ptr<KSWItem> app_ = itemNamed("2.app", KSWItemTypeApp);
    std::shared_ptr<KSWItem> first_ = itemNamed("8.first");
    std::shared_ptr<KSWItem> second_ = itemNamed("8.second");
    std::shared_ptr<KSWItem> alone_ = itemNamed("8.alone");
    std::shared_ptr<KSWList> list_;
};

TEST_F(AList, IsMadeEmptyForTheCallerAndEveryType) {
    const auto list = KSWList::init();
    EXPECT_THAT(list->items(), IsEmpty());
    EXPECT_EQ(list->uid(), ::getuid());
    EXPECT_EQ(list->type(), 4095);
    EXPECT_THAT(list->observers(), IsEmpty());
}

TEST_F(AList, HoldsTheItemsInTheirOrder) {
    EXPECT_EQ(names(list_->items()), (Names{"8.first", "8.alone", "8.second"}));
    EXPECT_EQ(list_->count(), 3U);
    EXPECT_EQ(list_->itemAtIndex(2), second_);
    EXPECT_THROW(list_->itemAtIndex(3), std::out_of_range);
}

TEST_F(AList, FindsItemsByTheirIdentifiers) {
    EXPECT_EQ(list_->indexOfItem(itemNamed("8.second")), 2U);
    EXPECT_EQ(list_->indexOfItem(itemNamed("8.third")), std::nullopt);
    EXPECT_EQ(list_->indexOfItem(nullptr), std::nullopt);
    EXPECT_TRUE(list_->containsItem(first_));
    EXPECT_FALSE(list_->containsItem(app_));
}

TEST_F(AList, HoldsEachContainerOnce) {
    const auto same = itemNamed("2.app", KSWItemTypeApp);
    const auto third = itemNamed("8.third");
    third->setContainer(same);
    const auto list = KSWList::initWithItems({first_, app_, second_, third}, 501, 8);
    EXPECT_THAT(list->containers(), ElementsAre(app_, developer_));
}

TEST_F(AList, KeepsTheContainersAlive) {
    const std::weak_ptr<KSWItem> app = app_;
    developer_.reset();
    app_.reset();
    EXPECT_FALSE(app.expired());
    list_.reset();
    EXPECT_TRUE(app.expired());
}

TEST_F(AList, TakesOtherItems) {
    list_->setItems({alone_, nullptr});
    EXPECT_EQ(names(list_->items()), (Names{"8.alone"}));
    EXPECT_THAT(list_->containers(), IsEmpty());
}

TEST_F(AList, DescribesItself) {
    EXPECT_EQ(list_->description(), "<KSWList " + place(list_.get()) + "> uid=501 type=agent, count=3");
    list_->setUid(kEveryUser);
    EXPECT_EQ(list_->description(), "<KSWList " + place(list_.get()) + "> uid=-2 type=agent, count=3");
}

TEST_F(AList, ComesBackFromItsArchive) {
    const auto archive = list_->encodeWithCoder();
    ASSERT_TRUE(archive.has_value());
    const auto decoded = KSWList::initWithCoder(*archive, &error_);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->uid(), 501U);
    EXPECT_EQ(decoded->type(), 8);
    EXPECT_EQ(names(decoded->items()), names(list_->items()));
    EXPECT_EQ(names(decoded->containers()), (Names{"2.app"}));
    EXPECT_EQ(decoded->itemAtIndex(0)->container()->container()->identifier(), "Dev");
    EXPECT_THAT(decoded->observers(), IsEmpty());
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_EQ(decoded->encodeWithCoder(), archive);
}

TEST_F(AList, CannotBeArchivedWithAnItemThatNoReaderTakes) {
    alone_->setName(std::string(70'000, 'x'));
    EXPECT_EQ(list_->encodeWithCoder(&error_), std::nullopt);
    EXPECT_EQ(error_.value().domain(), kFormatErrorDomain);
    EXPECT_EQ(list_->encodeWithCoder(), std::nullopt);
}

TEST_F(AList, IsNotMadeOfAnArchiveWithoutItems) {
    const ListRecord record{501, 8, {}};
    const auto archive = archive::archive(record, archive::Coder::Ordinary);
    EXPECT_EQ(KSWList::initWithCoder(*archive, &error_), nullptr);
    EXPECT_EQ(error_, Error(FormatError::WrongType, "root: items: missing"));
    EXPECT_EQ(KSWList::initWithCoder(Data{1, 2, 3}), nullptr);
}

TEST_F(AList, SendsChangesOfItemsUnderItsUser) {
    EXPECT_TRUE(list_->addItem(first_, &error_));
    EXPECT_TRUE(list_->removeItem(first_, &error_));
    EXPECT_TRUE(list_->updateItem(first_, &error_));
    list_->setUid(502);
    EXPECT_TRUE(list_->updateItems(ItemSet::of({first_, second_}), &error_));
    EXPECT_THAT(daemon_.changes(), ElementsAre(Change{"add", 501}, Change{"remove", 501}, Change{"update", 501},
                                               Change{"update", 502}));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_EQ(first_->generation(), 2);
}

TEST_F(AList, HandsOutTheManagersError) {
    daemon_.stop();
    EXPECT_FALSE(list_->addItem(first_, &error_));
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    error_.reset();
    EXPECT_TRUE(list_->removeItem(first_, &error_));
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    const auto lines = log_.lines();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(lines[0].activity, "KSWList.removeItem");
}

TEST_F(AList, LeavesItsItemsAloneUntilItIsRefreshed) {
    EXPECT_TRUE(list_->addItem(itemNamed("8.new")));
    EXPECT_EQ(list_->count(), 3U);
    daemon_.has({first_, itemNamed("8.new")});
    EXPECT_TRUE(list_->refresh());
    EXPECT_EQ(names(list_->items()), (Names{"8.first", "8.new"}));
    EXPECT_EQ(names(list_->containers()), (Names{"2.app"}));
    EXPECT_THAT(daemon_.queries(), ElementsAre(Query{8, 501}));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AList, IsRefreshedForTheUserThatItHasThen) {
    list_->setUid(777);
    EXPECT_TRUE(list_->refreshWithError());
    EXPECT_THAT(daemon_.queries(), ElementsAre(Query{8, 777}));
    EXPECT_EQ(list_->uid(), 777U);
}

TEST_F(AList, IsAsItWasWhenARefreshFails) {
    daemon_.stop();
    EXPECT_FALSE(list_->refreshWithError(&error_));
    EXPECT_EQ(error_.value().domain(), kConnectionErrorDomain);
    EXPECT_EQ(list_->count(), 3U);
    EXPECT_THAT(list_->containers(), ElementsAre(app_));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWList.refresh");
    log_.clear();
    EXPECT_FALSE(list_->refresh());
    EXPECT_EQ(errors().back(), list_->description() + ": refresh error: " + error_->description());
}

TEST_F(AList, IsAsItWasWhenARefreshFindsNeitherListNorError) {
    daemon_.says(std::nullopt);
    error_ = KSWErrorWithCode(-1);
    EXPECT_TRUE(list_->refreshWithError(&error_));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_EQ(list_->count(), 3U);
}

TEST_F(AList, WithoutAManagerChangesNothing) {
    const auto list = KSWList::initWithItems({first_}, 501, 8, nullptr);
    EXPECT_FALSE(list->addItem(first_));
    EXPECT_FALSE(list->removeItem(first_));
    EXPECT_FALSE(list->updateItem(first_));
    EXPECT_FALSE(list->updateItems(ItemSet::of({first_})));
    EXPECT_TRUE(list->refresh());
    EXPECT_EQ(list->count(), 1U);
}

TEST_F(AList, HasEachObserverOnce) {
    const auto witness = std::make_shared<Witness>();
    list_->addListObserver(witness);
    list_->addListObserver(witness);
    list_->addListObserver(nullptr);
    list_->removeListObserver(nullptr);
    EXPECT_THAT(list_->observers(), ElementsAre(witness));
    const auto& live = list_->observers();
    list_->removeListObserver(*live.begin());
    EXPECT_THAT(live, IsEmpty());
    const std::string observer = "observer=<KSWListObserver " + place(witness.get()) + ">";
    EXPECT_THAT(debugLines(),
                ElementsAre("-[KSWList addListObserver:]: " + observer, "-[KSWList addListObserver:]: " + observer,
                            "-[KSWList removeListObserver:]: " + observer));
    EXPECT_EQ(log_.lines().at(0).text, "%s: observer=%@");
}

TEST_F(AList, KeepsItsObserversAlive) {
    auto witness = std::make_shared<Witness>();
    const std::weak_ptr<Witness> held = witness;
    list_->addListObserver(witness);
    witness = nullptr;
    EXPECT_FALSE(held.expired());
    list_ = nullptr;
    EXPECT_TRUE(held.expired());
}

}  // namespace
}  // namespace ksw::test
