// One suite of requests about records, against a script and against the real daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include <unistd.h>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "tests/client/manager/daemons.h"
#include "tests/client/manager/list_daemon.h"
#include "tests/support/file_times.h"

namespace ksw::test {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

enum class Kind { Script, Real };

class RecordsOfEitherDaemon : public ::testing::TestWithParam<Kind> {
protected:
    RecordsOfEitherDaemon() {
        // The process's own manager may have been left with the connection of an earlier test.
        KSWManager::shared().UIDs();
        if (GetParam() == Kind::Script) {
            daemon_ = std::make_unique<ScriptDaemon>();
        } else {
            daemon_ = std::make_unique<RealDaemon>();
        }
        daemon_->start();
        manager_ = KSWManager::initWithMode(0);
        item_->setName("Example");
        item_->setUrl(URL::fileURL("/jobs/a.plist"));
        item_->setDisposition(0x3);
    }

    std::shared_ptr<KSWItem> stored() { return manager_->getItemWithIdentifier("8.com.example.a", ::getuid()); }

    std::unique_ptr<AnyDaemon> daemon_;
    std::shared_ptr<KSWManager> manager_;
    std::shared_ptr<KSWItem> item_ = itemNamed("8.com.example.a");
    std::optional<Error> error_;
};

INSTANTIATE_TEST_SUITE_P(Daemons, RecordsOfEitherDaemon, ::testing::Values(Kind::Script, Kind::Real),
                         [](const auto& kind) { return kind.param == Kind::Script ? "Script" : "Real"; });

TEST_P(RecordsOfEitherDaemon, AreFoundByIdentifierAndByUUIDAfterTheyWereAdded) {
    EXPECT_EQ(stored(), nullptr);
    ASSERT_TRUE(manager_->addItem(item_, ::getuid(), &error_));
    EXPECT_EQ(error_, std::nullopt);
    const auto found = stored();
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->name(), "Example");
    EXPECT_EQ(found->url(), item_->url());
    const auto same = manager_->fetchItemWithUUID(found->uuid(), ::getuid(), &error_);
    ASSERT_NE(same, nullptr);
    EXPECT_EQ(same->identifier(), "8.com.example.a");
    EXPECT_EQ(manager_->fetchItemWithUUID(UUID::random(), ::getuid(), &error_), nullptr);
    EXPECT_EQ(error_, std::nullopt);
}

TEST_P(RecordsOfEitherDaemon, MayBeAddedAgain) {
    ASSERT_TRUE(manager_->addItem(item_, ::getuid(), &error_));
    EXPECT_TRUE(manager_->addItem(item_, ::getuid(), &error_));
    EXPECT_EQ(error_, std::nullopt);
}

TEST_P(RecordsOfEitherDaemon, AreRemovedOnce) {
    ASSERT_TRUE(manager_->addItem(item_, ::getuid()));
    const auto record = stored();
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE(manager_->removeItem(record, ::getuid(), &error_));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_TRUE(manager_->removeItem(record, ::getuid(), &error_));
    EXPECT_EQ(error_, KSWErrorWithCode(KSWErrorRecordNotFound));
    EXPECT_EQ(stored(), nullptr);
}

TEST_P(RecordsOfEitherDaemon, AreChangedAndOneGenerationOlderOnBothSides) {
    ASSERT_TRUE(manager_->addItem(item_, ::getuid()));
    const auto record = stored();
    ASSERT_NE(record, nullptr);
    const std::int64_t before = record->generation();
    record->setHidden(true);
    EXPECT_TRUE(manager_->updateItem(record, ::getuid(), &error_));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_EQ(record->generation(), before + 1);
    EXPECT_EQ(stored()->generation(), before + 1);
    EXPECT_TRUE(stored()->isHidden());
}

TEST_P(RecordsOfEitherDaemon, AreNotChangedByWhatIsOutOfDate) {
    ASSERT_TRUE(manager_->addItem(item_, ::getuid()));
    const auto older = stored();
    const auto newer = stored();
    ASSERT_NE(newer, nullptr);
    ASSERT_TRUE(manager_->updateItem(newer, ::getuid()));
    older->setHidden(true);
    EXPECT_FALSE(manager_->updateItem(older, ::getuid(), &error_));
    EXPECT_EQ(error_, KSWErrorWithCode(KSWErrorInvalidGeneration));
    EXPECT_FALSE(stored()->isHidden());
}

TEST_P(RecordsOfEitherDaemon, AreChangedAllOrNone) {
    ASSERT_TRUE(manager_->addItem(item_, ::getuid()));
    const auto record = stored();
    ASSERT_NE(record, nullptr);
    const std::int64_t before = record->generation();
    record->setHidden(true);
    EXPECT_FALSE(manager_->updateItems({record, itemNamed("8.unknown")}, ::getuid(), &error_));
    EXPECT_EQ(error_, KSWErrorWithCode(KSWErrorRecordNotFound));
    EXPECT_EQ(record->generation(), before);
    EXPECT_FALSE(stored()->isHidden());
}

TEST_P(RecordsOfEitherDaemon, ComeInListsOfTheirTypes) {
    ASSERT_TRUE(manager_->addItem(item_, ::getuid()));
    ASSERT_TRUE(manager_->addItem(itemNamed("4.com.example.b", KSWItemTypeLoginItem), ::getuid()));
    const auto agents = manager_->getItemsMatching(8, ::getuid(), &error_);
    ASSERT_NE(agents, nullptr);
    EXPECT_EQ(agents->uid(), ::getuid());
    EXPECT_EQ(agents->type(), 8);
    EXPECT_THAT(names(agents->items()), UnorderedElementsAre("8.com.example.a"));
    const auto both = manager_->getItemsMatching(12, ::getuid());
    EXPECT_THAT(names(both->items()), UnorderedElementsAre("8.com.example.a", "4.com.example.b"));
    const auto none = manager_->getItemsMatching(0x800, ::getuid());
    ASSERT_NE(none, nullptr);
    EXPECT_THAT(none->items(), IsEmpty());
}

TEST_P(RecordsOfEitherDaemon, ShowInAListWhenItIsRefreshed) {
    const auto list = manager_->getItemsMatching(8, ::getuid());
    ASSERT_NE(list, nullptr);
    EXPECT_TRUE(list->addItem(item_));
    if (GetParam() == Kind::Script) {  // the real one announces the change, and lists refresh themselves then
        EXPECT_THAT(list->items(), IsEmpty());
    }
    EXPECT_TRUE(list->refresh());
    ASSERT_EQ(list->count(), 1U);
    const auto item = list->itemAtIndex(0);
    item->setHidden(true);
    EXPECT_TRUE(list->updateItem(item, &error_));
    EXPECT_TRUE(list->refresh());
    EXPECT_TRUE(list->itemAtIndex(0)->isHidden());
    EXPECT_TRUE(list->removeItem(item, &error_));
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_TRUE(list->refresh());
    EXPECT_THAT(list->items(), IsEmpty());
}

TEST_P(RecordsOfEitherDaemon, KeepTheDatesOfTheirFilesToTheLastBit) {
    const TempFolder files;
    const std::string path = files.writeFile("a.plist", "");
    constexpr std::int64_t today = 1'790'000'000;
    setChanged(path, today, 123'456'789);
    item_->setUrl(URL::fileURL(path));
    item_->setExecutablePath(path);
    item_->setModificationDate(Date::fromUnix(today, 123'456'789).secondsSinceReference);
    item_->_setExecutableModificationDateFromURL(URL::fileURL(path));
    ASSERT_TRUE(manager_->addItem(item_, ::getuid()));
    daemon_->stop();
    daemon_->start();
    const auto list = manager_->getItemsMatching(8, ::getuid());
    for (const auto& found : {stored(), list->itemAtIndex(0)}) {
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->modificationDate(), item_->modificationDate());
        EXPECT_TRUE(found->modificationDateMatchesFileSystem());
        EXPECT_TRUE(found->executableModificationDateMatchesFileSystem());
    }
    // The least that a number of today tells is 119 ns.
    setChanged(path, today, 123'456'789 + 120);
    EXPECT_FALSE(stored()->modificationDateMatchesFileSystem());
    EXPECT_FALSE(stored()->executableModificationDateMatchesFileSystem());
}

TEST_P(RecordsOfEitherDaemon, AreMadeOfAUsersFilesOnce) {
    const TempFolder files;
    const URL file = URL::fileURL(files.writeFile("plan.txt", ""));
    const auto added = manager_->addUserItemForURL(file, &error_);
    ASSERT_NE(added, nullptr);
    const auto record = manager_->getItemWithIdentifier(added->identifier(), ::getuid());
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->name(), "plan.txt");
    record->setEnabled(false);
    ASSERT_TRUE(manager_->updateItem(record, ::getuid(), &error_));
    const auto again = manager_->addUserItemForURL(file, &error_);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->uuid(), record->uuid());
    EXPECT_TRUE(again->isEnabled());
    EXPECT_TRUE(manager_->getItemWithIdentifier(added->identifier(), ::getuid())->isEnabled());
    EXPECT_EQ(error_, std::nullopt);
}

}  // namespace
}  // namespace ksw::test
