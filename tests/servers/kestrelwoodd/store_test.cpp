#include "servers/kestrelwoodd/store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/base/limits.h"
#include "tests/support/temp_folder.h"

namespace ksw::daemon {

using namespace servers;
namespace {

ItemRow row(Uid uid, std::string identifier, std::optional<UUID> container = std::nullopt) {
    return {uid, UUID::random(), std::move(identifier), 0x10008, 1, 3, 7, container, Data{1, 2, 3}};
}

Change putting(std::vector<ItemRow> rows) {
    Change change;
    for (const ItemRow& row : rows) {
        change.users.push_back({row.uid, "uid-" + std::to_string(row.uid)});
    }
    change.put = std::move(rows);
    return change;
}

std::vector<StoredItem> itemsOf(Store& store) {
    std::vector<StoredItem> items;
    EXPECT_TRUE(store.readItems([&](StoredItem item) { items.push_back(std::move(item)); }).ok());
    return items;
}

std::string bytesOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Runs statements on the file behind the store's back.
void runBehindTheBack(const std::string& path, const std::string& statements) {
    Result<Database> database = Database::open(path);
    ASSERT_TRUE(database.ok());
    const Status done = database->execute(statements);
    ASSERT_TRUE(done.ok()) << done.error().description();
}

class AStore : public testing::Test {
protected:
    Store open(std::int64_t pagesMax = kStorePagesMax) {
        Result<Store> store = Store::open(path_, pagesMax);
        EXPECT_TRUE(store.ok()) << store.error().description();
        return *std::move(store);
    }
    std::string refusal() {
        Result<Store> store = Store::open(path_);
        return store.ok() ? "opened" : std::string(store.error().localizedDescription());
    }

    test::TempFolder folder_;
    const std::string path_ = folder_.at("kestrelwood.db");
};

TEST_F(AStore, KeepsEveryColumnOfARowUntilItIsOpenedAgain) {
    const ItemRow parent = row(501, "Unknown Developer");
    ItemRow child = row(501, "8.my.agent", parent.uuid);
    child.type = 0x8000000000000008U;
    child.generation = -1;
    {
        Store store = open();
        ASSERT_TRUE(store.apply(putting({parent, child})).ok());
    }
    Store store = open();
    const std::vector<StoredItem> items = itemsOf(store);
    ASSERT_EQ(items.size(), 2U);
    const ItemRow& read = items[1].row;
    EXPECT_TRUE(items[1].readable);
    EXPECT_EQ(read.uid, 501U);
    EXPECT_EQ(read.uuid, child.uuid);
    EXPECT_EQ(read.identifier, "8.my.agent");
    EXPECT_EQ(read.type, child.type);
    EXPECT_EQ(read.flags, 1U);
    EXPECT_EQ(read.disposition, 3U);
    EXPECT_EQ(read.generation, -1);
    EXPECT_EQ(read.container, parent.uuid);
    EXPECT_EQ(read.record, (Data{1, 2, 3}));
}

TEST_F(AStore, HandsOutUsersAscending) {
    Store store = open();
    ASSERT_TRUE(store.apply(putting({row(502, "8.b"), row(501, "8.a"), row(kEveryUser, "16.c")})).ok());
    std::vector<Uid> uids;
    ASSERT_TRUE(store.readUsers([&](Uid uid, std::string_view) { uids.push_back(uid); }).ok());
    EXPECT_EQ(uids, (std::vector<Uid>{501, 502, kEveryUser}));
}

TEST_F(AStore, PutsARowInThePlaceOfTheOneWithItsUUID) {
    Store store = open();
    ItemRow item = row(501, "8.my.agent");
    ASSERT_TRUE(store.apply(putting({item, row(501, "8.another")})).ok());
    item.disposition = 1;
    item.record = {9};
    ASSERT_TRUE(store.apply(putting({item})).ok());
    const std::vector<StoredItem> items = itemsOf(store);
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[0].row.identifier, "8.my.agent");
    EXPECT_EQ(items[0].row.disposition, 1U);
    EXPECT_EQ(items[0].row.record, (Data{9}));
}

TEST_F(AStore, PutsARowUnderAnotherIdentifierOrContainerThanBefore) {
    Store store = open();
    const ItemRow parent = row(501, "Unknown Developer");
    ItemRow item = row(501, "8.my.agent");
    ASSERT_TRUE(store.apply(putting({parent, item})).ok());
    item.identifier = "8.renamed";
    ASSERT_TRUE(store.apply(putting({item})).ok());
    item.container = parent.uuid;
    ASSERT_TRUE(store.apply(putting({item})).ok());
    const std::vector<StoredItem> items = itemsOf(store);
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[1].row.identifier, "8.renamed");
    EXPECT_EQ(items[1].row.container, parent.uuid);
}

TEST_F(AStore, WritesNoIndexForAChangeOfAnItemThatIsFoundAsBefore) {
    constexpr std::uintmax_t kJournalledPage = kPageSize + 24;
    Store store = open();
    ItemRow item = row(501, "8.my.agent");
    ASSERT_TRUE(store.apply(putting({item})).ok());
    const std::uintmax_t before = std::filesystem::file_size(path_ + "-wal");
    ++item.generation;
    ASSERT_TRUE(store.apply({{}, {item}, {}}).ok());
    EXPECT_EQ(std::filesystem::file_size(path_ + "-wal"), before + kJournalledPage);
}

TEST_F(AStore, RefusesASecondRowWithOneIdentifierForAUser) {
    Store store = open();
    ASSERT_TRUE(store.apply(putting({row(501, "8.my.agent")})).ok());
    EXPECT_FALSE(store.apply(putting({row(501, "8.my.agent")})).ok());
    EXPECT_TRUE(store.apply(putting({row(502, "8.my.agent")})).ok());
}

TEST_F(AStore, RemovesAParentTogetherWithTheLastOfItsItems) {
    Store store = open();
    const ItemRow parent = row(501, "Unknown Developer");
    ASSERT_TRUE(store.apply(putting({parent, row(501, "8.my.agent", parent.uuid)})).ok());
    Change change;
    change.removed = {{501, "Unknown Developer"}, {501, "8.my.agent"}};
    ASSERT_TRUE(store.apply(change).ok());
    EXPECT_TRUE(itemsOf(store).empty());
}

TEST_F(AStore, RefusesToRemoveAParentThatStillHasItems) {
    Store store = open();
    const ItemRow parent = row(501, "Unknown Developer");
    ASSERT_TRUE(store.apply(putting({parent, row(501, "8.my.agent", parent.uuid)})).ok());
    Change change;
    change.removed = {{501, "Unknown Developer"}};
    EXPECT_FALSE(store.apply(change).ok());
    EXPECT_EQ(itemsOf(store).size(), 2U);
}

TEST_F(AStore, CarriesOutAChangeWholeOrNotAtAll) {
    Store store = open();
    EXPECT_FALSE(store.apply(putting({row(501, "8.a"), row(501, "8.b", UUID::random())})).ok());
    EXPECT_TRUE(itemsOf(store).empty());
    EXPECT_TRUE(store.apply(putting({row(501, "8.a")})).ok());
}

TEST_F(AStore, AnswersAnErrorWhenTheDiskIsFullAndWorksOn) {
    Store store = open(40);
    ItemRow large = row(501, "8.large");
    large.record.assign(limits::kRecordMax, 0);
    const Status full = store.apply(putting({large}));
    ASSERT_FALSE(full.ok());
    EXPECT_EQ(full.error().domain(), kStoreErrorDomain);
    EXPECT_EQ(full.error().code(), SQLITE_FULL);
    EXPECT_TRUE(itemsOf(store).empty());
    EXPECT_TRUE(store.apply(putting({row(501, "8.small")})).ok());
}

TEST_F(AStore, LeavesAStoreOfANewerSchemaUntouched) {
    { open(); }
    runBehindTheBack(path_, "PRAGMA journal_mode = DELETE; PRAGMA user_version = 3");
    const std::string before = bytesOf(path_);
    EXPECT_THAT(refusal(), testing::HasSubstr("has schema 3, and this daemon knows none above 2"));
    EXPECT_EQ(bytesOf(path_), before);
}

TEST_F(AStore, LeavesANewerSchemaUntouchedThatStandsInTheJournalOnly) {
    { open(); }
    Result<Database> newer = Database::open(path_);
    ASSERT_TRUE(newer.ok());
    newer->leaveUntouched();
    ASSERT_TRUE(newer->execute("PRAGMA user_version = 3").ok());
    const std::string before = bytesOf(path_);
    const std::string journal = bytesOf(path_ + "-wal");
    ASSERT_FALSE(journal.empty());
    EXPECT_THAT(refusal(), testing::HasSubstr("has schema 3"));
    EXPECT_EQ(bytesOf(path_), before);
    EXPECT_EQ(bytesOf(path_ + "-wal"), journal);
}

TEST_F(AStore, RefusesAnotherProgramsDatabase) {
    runBehindTheBack(path_, "CREATE TABLE recipes (name TEXT)");
    const std::string before = bytesOf(path_);
    EXPECT_THAT(refusal(), testing::HasSubstr("is another program's database"));
    EXPECT_EQ(bytesOf(path_), before);
}

TEST_F(AStore, RefusesAFileThatIsNoDatabase) {
    folder_.writeFile("kestrelwood.db", std::string(200, 'x'));
    EXPECT_EQ(refusal(), path_ + ": is not a database");
    EXPECT_EQ(bytesOf(path_), std::string(200, 'x'));
}

TEST_F(AStore, RefusesAFileThatIsCutShort) {
    { open(); }
    folder_.writeFile("kestrelwood.db", bytesOf(path_).substr(0, 60));
    EXPECT_THAT(refusal(), testing::HasSubstr("is not a database"));
}

TEST_F(AStore, NamesTheFileWhosePagesAreDamaged) {
    {
        Store store = open();
        std::vector<ItemRow> rows;
        for (int number = 0; number < 100; ++number) {
            rows.push_back(row(501, "8.agent." + std::to_string(number)));
        }
        ASSERT_TRUE(store.apply(putting(rows)).ok());
    }
    std::string bytes = bytesOf(path_);
    ASSERT_GT(bytes.size(), 8192U);
    std::fill(bytes.begin() + 4096, bytes.end(), '\x5a');
    folder_.writeFile("kestrelwood.db", bytes);
    EXPECT_THAT(refusal(), testing::StartsWith(path_ + ": "));
    EXPECT_EQ(bytesOf(path_), bytes);
}

TEST_F(AStore, CannotBeMadeWhereNothingCanBeWritten) {
    const std::string file = folder_.writeFile("file", "");
    const Result<Store> store = Store::open(file + "/kestrelwood.db");
    ASSERT_FALSE(store.ok());
    EXPECT_THAT(std::string(store.error().localizedDescription()), testing::HasSubstr(file));
}

TEST_F(AStore, SaysWhichRowIsNotReadable) {
    {
        Store store = open();
        ASSERT_TRUE(store.apply(putting({row(501, "8.whole"), row(501, "8.large")})).ok());
    }
    const std::string tooLong = std::to_string(limits::kRecordMax + 1);
    runBehindTheBack(path_, "UPDATE items SET record = zeroblob(" + tooLong + ") WHERE identifier = '8.large'");
    Store store = open();
    const std::vector<StoredItem> items = itemsOf(store);
    ASSERT_EQ(items.size(), 2U);
    EXPECT_TRUE(items[0].readable);
    EXPECT_FALSE(items[1].readable);
    EXPECT_EQ(items[1].row.identifier, "8.large");
}

TEST_F(AStore, TakesARecordOfTheLargestSize) {
    Store store = open();
    ItemRow large = row(501, "8.large");
    large.record.assign(limits::kRecordMax, 7);
    ASSERT_TRUE(store.apply(putting({large})).ok());
    const std::vector<StoredItem> items = itemsOf(store);
    ASSERT_EQ(items.size(), 1U);
    EXPECT_TRUE(items[0].readable);
    EXPECT_EQ(items[0].row.record, large.record);
}

TEST_F(AStore, MovesItsJournalIntoTheFileWhenAsked) {
    Store store = open();
    ASSERT_TRUE(store.apply(putting({row(501, "8.my.agent")})).ok());
    ASSERT_FALSE(bytesOf(path_ + "-wal").empty());
    ASSERT_TRUE(store.checkpoint().ok());
    EXPECT_TRUE(bytesOf(path_ + "-wal").empty());
}

TEST_F(AStore, KeepsItsJournalShort) {
    Store store = open();
    ItemRow item = row(501, "8.large");
    std::uintmax_t longest = 0;
    for (int time = 0; time < 60; ++time) {
        item.record.assign(limits::kRecordMax / 4, static_cast<std::uint8_t>(time));
        ASSERT_TRUE(store.apply(putting({item})).ok());
        longest = std::max(longest, std::filesystem::file_size(path_ + "-wal"));
    }
    // The change that makes it too long is still in it.
    EXPECT_LT(longest, static_cast<std::uintmax_t>(kJournalLength) + limits::kRecordMax);
}

TEST_F(AStore, CutsAJournalThatALargeChangeHasMadeLong) {
    Store store = open();
    std::vector<ItemRow> rows;
    for (int number = 0; number < 8; ++number) {
        rows.push_back(row(501, "8.large." + std::to_string(number)));
        rows.back().record.assign(limits::kRecordMax, 7);
    }
    ASSERT_TRUE(store.apply(putting(rows)).ok());
    ASSERT_TRUE(store.apply(putting({row(501, "8.small")})).ok());
    EXPECT_LE(std::filesystem::file_size(path_ + "-wal"), static_cast<std::uintmax_t>(kJournalLength));
}

TEST_F(AStore, KeepsTheLengthOfAJournalThatRoomWasMadeIn) {
    Store store = open();
    ASSERT_TRUE(store.makeRoomInJournal().ok());
    ItemRow item = row(501, "8.my.agent");
    for (std::int64_t time = 0; time < 3 * kJournalPages; ++time) {
        item.generation = time;
        ASSERT_TRUE(store.apply(putting({item})).ok());
        ASSERT_EQ(std::filesystem::file_size(path_ + "-wal"), static_cast<std::uintmax_t>(kJournalLength));
    }
}

TEST_F(AStore, ReadsAJournalWithRoomAsIfThereWereNone) {
    Store store = open();
    ASSERT_TRUE(store.makeRoomInJournal().ok());
    ASSERT_TRUE(store.apply(putting({row(501, "8.my.agent")})).ok());
    const std::string copied = folder_.path() + "/copy.db";
    for (const char* ending : {"", "-wal"}) {
        std::filesystem::copy_file(path_ + ending, copied + ending);
    }
    Result<Store> copy = Store::open(copied);
    ASSERT_TRUE(copy.ok());
    EXPECT_EQ(itemsOf(*copy).size(), 1U);
}

TEST_F(AStore, IsMadeWholeBeforeItTakesItsName) {
    folder_.writeFile("kestrelwood.db.new", "what a start that got no further left");
    folder_.writeFile("kestrelwood.db.new-wal", "its journal");
    { open(); }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path()), {}), 1);
}

TEST_F(AStore, WritesAheadAndThroughToTheDisk) {
    { open(); }
    Result<Database> database = openWithSchema(path_, kTables, kStorePagesMax);
    ASSERT_TRUE(database.ok());
    Result<Statement> mode = database->prepare("PRAGMA journal_mode");
    ASSERT_TRUE(mode.ok());
    ASSERT_TRUE(*mode->step());
    EXPECT_EQ(mode->text(0, 16), "wal");
    EXPECT_EQ(*database->number("PRAGMA synchronous"), 2);
}

}  // namespace
}  // namespace ksw::daemon
