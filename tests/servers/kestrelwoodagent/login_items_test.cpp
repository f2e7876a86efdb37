#include "servers/kestrelwoodagent/login_items.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include <kestrelwood/KSWErrors.h>

#include "platform/host/log_capture.h"
#include "servers/common/set_aside.h"
#include "tests/servers/kestrelwoodagent/some_items.h"
#include "tests/support/temp_folder.h"

namespace ksw::agentserver::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A user's login items in a store of the test's own.
class TheLoginItems : public testing::Test {
protected:
    TheLoginItems() { restart(); }

    void restart(std::int64_t pagesMax = kStorePagesMax) {
        items_.reset();
        Result<LoginItemStore> store = LoginItemStore::open(path_, pagesMax);
        ASSERT_TRUE(store.ok()) << store.error().description();
        Result<std::unique_ptr<LoginItems>> items = LoginItems::load(*std::move(store));
        ASSERT_TRUE(items.ok()) << items.error().description();
        items_ = *std::move(items);
    }
    void damage(const std::string& statements) {
        items_.reset();
        Result<servers::Database> database = servers::Database::open(path_);
        ASSERT_TRUE(database.ok() && database->execute(statements).ok());
    }
    std::vector<std::string> listed(KSWItemType mask = KSWItemTypeAll) const {
        return identifiersOf(items_->matching(mask));
    }
    static std::string nameOf(const Item& item) { return item->identifier()->string(); }
    static std::string textOf(const Result<Outcome>& outcome) {
        return outcome.ok() ? "done" : std::string(outcome.error().localizedDescription());
    }

    ksw::test::TempFolder folder_;
    const std::string path_ = folder_.at("loginitems.db");
    std::unique_ptr<LoginItems> items_;
};

TEST_F(TheLoginItems, AreListedInTheOrderInWhichTheyCameAlsoAfterARestart) {
    const std::vector<Item> items = itemsOf(1, 3);
    for (const Item& item : items) {
        EXPECT_EQ(*items_->add(item), Outcome::Changed);
    }
    EXPECT_EQ(listed(), identifiersOf(items));
    restart();
    EXPECT_EQ(listed(), identifiersOf(items));
    EXPECT_EQ(items_->matching(KSWItemTypeAll)[1]->bookmark(), items[1]->bookmark());
}

TEST_F(TheLoginItems, AreListedByTheirTypes) {
    const Item user = itemOf(1);
    const Item login = itemOf(2, false, KSWItemTypeLoginItem);
    EXPECT_TRUE(items_->add(user).ok());
    EXPECT_TRUE(items_->add(login).ok());
    EXPECT_THAT(listed(KSWItemTypeLoginItem), ElementsAre(nameOf(login)));
    EXPECT_THAT(listed(KSWItemTypeAgent), ElementsAre());
    EXPECT_THAT(listed(0), ElementsAre());
}

TEST_F(TheLoginItems, HaveOneForAFileWhichANewerOneReplacesInItsPlace) {
    const Item first = itemOf(1);
    const Item second = itemOf(2);
    const Item newer = itemOf(1, true);
    EXPECT_TRUE(items_->add(first).ok());
    EXPECT_TRUE(items_->add(second).ok());
    EXPECT_EQ(*items_->add(newer), Outcome::Changed);
    EXPECT_THAT(listed(), ElementsAre(nameOf(newer), nameOf(second)));
    restart();
    EXPECT_THAT(listed(), ElementsAre(nameOf(newer), nameOf(second)));
    EXPECT_TRUE(items_->matching(KSWItemTypeAll).front()->hidden());
}

TEST_F(TheLoginItems, StayAsTheyAreWhenOneIsAddedThatSaysTheSame) {
    const Item item = itemOf(1);
    EXPECT_EQ(*items_->add(item), Outcome::Changed);
    EXPECT_EQ(*items_->add(itemOf(1)), Outcome::AsBefore);
    EXPECT_THAT(listed(), ElementsAre(nameOf(item)));
}

TEST_F(TheLoginItems, LoseTheOneWithTheIdentifierGivenElseTheOneOfTheFile) {
    const std::vector<Item> items = itemsOf(1, 3);
    EXPECT_TRUE(items_->import(items).ok());
    EXPECT_EQ(*items_->remove(items[1]), Outcome::Changed);
    EXPECT_THAT(listed(), ElementsAre(nameOf(items[0]), nameOf(items[2])));
    EXPECT_EQ(*items_->remove(itemOf(3)), Outcome::Changed);
    EXPECT_THAT(listed(), ElementsAre(nameOf(items[0])));
    restart();
    EXPECT_THAT(listed(), ElementsAre(nameOf(items[0])));
}

TEST_F(TheLoginItems, HaveNoneToRemoveThatIsNotThere) {
    EXPECT_EQ(items_->remove(itemOf(1)).error(), KSWErrorWithCode(KSWErrorRecordNotFound));
    EXPECT_EQ(textOf(items_->remove(nullptr)), "no login item");
}

TEST_F(TheLoginItems, TakeNothingThatIsNone) {
    EXPECT_EQ(textOf(items_->add(nullptr)), "no login item");
    EXPECT_EQ(textOf(items_->add(std::make_shared<KSWLoginItem>())), "no login item");
    for (const KSWLoginItem::Bookmark& bookmark :
         {KSWLoginItem::Bookmark(), KSWLoginItem::Bookmark(Data{1, 2, 3})}) {
        const Result<Outcome> added = items_->add(KSWLoginItem::initWithBookmark(bookmark, false));
        EXPECT_EQ(textOf(added), "a login item without a bookmark");
        EXPECT_EQ(added.error().code(), -50);
    }
    const Item item = itemOf(1);
    item->setInstallerBookmark(Data(65'537));
    EXPECT_EQ(textOf(items_->add(item)), "a login item with a bookmark of more than 65536 bytes");
    EXPECT_THAT(listed(), ElementsAre());
}

TEST_F(TheLoginItems, Are1024AtMost) {
    EXPECT_EQ(*items_->import(itemsOf(1, 1023)), Outcome::Changed);
    EXPECT_EQ(*items_->add(itemOf(1024)), Outcome::Changed);
    EXPECT_EQ(textOf(items_->add(itemOf(1025))), "a user has 1024 login items of 32 MiB at most");
    EXPECT_EQ(textOf(items_->import(itemsOf(1025, 1))), "a user has 1024 login items of 32 MiB at most");
    EXPECT_EQ(*items_->add(itemOf(7, true)), Outcome::Changed);
    restart();
    EXPECT_EQ(listed().size(), 1024U);
}

TEST_F(TheLoginItems, TakeAllThatIsImportedOrNothing) {
    EXPECT_TRUE(items_->add(itemOf(5)).ok());
    std::vector<Item> items = itemsOf(1, 10);
    items.push_back(KSWLoginItem::initWithBookmark(std::nullopt, false));
    EXPECT_EQ(textOf(items_->import(items)), "a login item without a bookmark");
    EXPECT_EQ(listed().size(), 1U);
    items.pop_back();
    items.push_back(itemOf(3));  // a second one of its file
    EXPECT_EQ(*items_->import(items), Outcome::Changed);
    EXPECT_EQ(listed().size(), 10U);
    EXPECT_EQ(*items_->import(items), Outcome::AsBefore);
}

TEST_F(TheLoginItems, StayAsTheyWereWhenTheDiskIsFull) {
    restart(16);
    const host::LogCapture log;
    Result<Outcome> added = Outcome::AsBefore;
    std::uint64_t file = 0;
    while (added.ok()) {
        added = items_->add(itemOf(++file));
    }
    EXPECT_THAT(textOf(added), HasSubstr("database or disk is full"));
    EXPECT_EQ(listed().size(), file - 1);
    restart();
    EXPECT_EQ(listed().size(), file - 1);
    EXPECT_EQ(*items_->add(itemOf(file)), Outcome::Changed);
}

TEST_F(TheLoginItems, ThatCannotBeReadAreLeftOutWithAWordInTheLog) {
    EXPECT_TRUE(items_->import(itemsOf(1, 3)).ok());
    const std::vector<Item> before = items_->matching(KSWItemTypeAll);
    damage(
        "UPDATE login_items SET record = x'00' WHERE position = 1;"
        "UPDATE login_items SET identifier = randomblob(16) WHERE position = 2;");
    host::LogCapture log;
    restart();
    EXPECT_THAT(listed(), ElementsAre(nameOf(before[2])));
    EXPECT_THAT(
        log.at(host::LogLevel::Error),
        ElementsAre(HasSubstr("kestrelwoodagent: the login item at position 1 is left out: "),
                    "kestrelwoodagent: the login item at position 2 is left out: another item's identifier"));
    EXPECT_EQ(*items_->add(before[0]), Outcome::Changed);
}

TEST_F(TheLoginItems, OfADamagedStoreAreSetAsideWithAWordInTheLog) {
    EXPECT_TRUE(items_->add(itemOf(1)).ok());
    items_.reset();
    std::filesystem::remove(path_ + "-wal");
    folder_.writeFile("loginitems.db", std::string(5000, 'x'));
    host::LogCapture log;
    std::optional<std::string> loss;
    Result<std::unique_ptr<LoginItems>> opened = openLoginItems(path_, loss);
    ASSERT_TRUE(opened.ok()) << opened.error().description();
    EXPECT_TRUE((*opened)->matching(KSWItemTypeAll).empty());
    const std::string folder = servers::setAsideFolders(path_)->front();
    EXPECT_EQ(loss, path_ + ": is not a database; it was set aside in " + folder +
                        ", and the login items in it are lost");
    EXPECT_THAT(log.at(host::LogLevel::Error), ElementsAre("kestrelwoodagent: " + *loss));
}

TEST_F(TheLoginItems, OfAnotherProgramsStoreAreLeftAlone) {
    damage("PRAGMA application_id = 1");
    std::optional<std::string> loss;
    const Result<std::unique_ptr<LoginItems>> opened = openLoginItems(path_, loss);
    ASSERT_FALSE(opened.ok());
    EXPECT_THAT(std::string(opened.error().localizedDescription()), HasSubstr("is another program's database"));
    EXPECT_EQ(loss, std::nullopt);
}

}  // namespace
}  // namespace ksw::agentserver::test
