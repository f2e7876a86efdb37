#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <mutex>

#include "platform/host/peer_identity.h"
#include "platform/ipc/authorization.h"
#include "servers/kestrelwoodd/dump.h"
#include "servers/kestrelwoodd/garbage.h"
#include "servers/kestrelwoodd/given_item.h"
#include "tests/servers/kestrelwoodd/record_requests.h"

namespace ksw::daemon::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class Maintenance : public WithRecords {
protected:
    Report dump(const Caller& caller, const std::optional<Data>& authorization = std::nullopt) {
        return daemon_.housekeeping().perform(&Housekeeping::dump, Rule::Maintain, caller, authorization);
    }
    Report erase(const Caller& caller, const std::optional<Data>& authorization = std::nullopt) {
        return daemon_.housekeeping().perform(&Housekeeping::erase, Rule::Maintain, caller, authorization);
    }
    void scan(const std::string& folder, bool isBegun) {
        const auto operation = isBegun ? &Housekeeping::willScan : &Housekeeping::didScan;
        EXPECT_EQ(daemon_.housekeeping().perform(operation, Rule::Manage, kRoot, std::optional(folder)).code,
                  KSWErrorNone);
    }
    /// An agent whose job file is there; the file's path.
    std::string enterWithFile(std::string_view name) {
        const URL url = daemon_.writeJob(name, name);
        EXPECT_EQ(
            daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, url, jobNamed(name), owner_.uid).code,
            KSWErrorNone);
        return url.path();
    }
    ItemPointer agent(std::string_view label) { return daemon_.record(owner_.uid, "8." + std::string(label)); }
    void collect() {
        const Outcome outcome = daemon_.registry().removeGone(goneRecords(daemon_.registry().records(), {}));
        EXPECT_EQ(outcome.code, KSWErrorNone);
    }
};

TEST_F(Maintenance, DumpsItemsByUserAndDeveloper) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    daemon_.enterAgent(owner_, "second.agent", owner_.uid);
    daemon_.enterDaemon(kRoot, "my.daemon");
    const Report report = dump(kRoot);
    ASSERT_EQ(report.code, KSWErrorNone);
    std::string expected = "Records of kestrelwoodd\n";
    for (const Uid uid : {owner_.uid, kEveryUser}) {
        const std::string user =
            "User: " + *daemon_.registry().records().userIdentifier(uid) + " (" + std::to_string(uid) + ")";
        expected += "\n" + user + "\n" + std::string(user.size(), '=') +
                    "\n\nDeveloper: Unknown Developer\n----------------------------\n";
        for (const char* identifier : {"Unknown Developer", "8.my.agent", "8.second.agent", "16.my.daemon"}) {
            if (const ItemPointer item = daemon_.record(uid, identifier)) {
                expected += "\n" + item->dumpVerboseDescription();
            }
        }
    }
    EXPECT_EQ(report.text, expected);
}

TEST_F(Maintenance, NamesDamagedRecordsInADump) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = '8.my.agent'");
    EXPECT_THAT(*dump(kRoot).text, HasSubstr("\n  Damaged record: 8.my.agent\n"));
}

TEST_F(Maintenance, CountsWhatADumpHasNoRoomFor) {
    for (const char* label : {"a", "b", "c"}) {
        daemon_.enterAgent(owner_, label, owner_.uid);
    }
    const std::string text = dumpOf(daemon_.registry().records(), 800);
    EXPECT_LE(text.size(), 900U);
    EXPECT_THAT(text, testing::ContainsRegex("[0-9] more items are left out\n$"));
    EXPECT_THAT(dumpOf(daemon_.registry().records()), Not(HasSubstr("left out")));
}

TEST_F(Maintenance, ErasesAllThatIsKept) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    daemon_.enterDaemon(kRoot, "my.daemon");
    ASSERT_EQ(daemon_.registry().setEnablement(owner_.uid, "x", true), KSWErrorNone);
    ASSERT_EQ(daemon_.registry().setAlwaysPosts(true), KSWErrorNone);
    ASSERT_EQ(daemon_.registry()
                  .setPayload("x", std::make_shared<const Dictionary>(Dictionary{{"Key", Value(1)}}), true)
                  .code,
              KSWErrorNone);
    ASSERT_EQ(requests_.list(owner_, KSWItemTypeAll, owner_.uid).items.size(), 4U);
    const Report report = erase(kRoot);
    EXPECT_EQ(report.code, KSWErrorNone);
    EXPECT_EQ(report.changes, (std::vector<protocol::UserDataChange>{{kEveryUser, KSWItemTypeAll}}));
    for (int start = 0; start < 2; ++start) {
        EXPECT_TRUE(daemon_.registry().records().users().empty());
        EXPECT_TRUE(requests_.list(owner_, KSWItemTypeAll, owner_.uid).items.empty());
        EXPECT_EQ(daemon_.registry().settings().of(owner_.uid)->generation(), 0);
        EXPECT_FALSE(daemon_.registry().settings().alwaysPosts());
        EXPECT_TRUE(daemon_.registry().managed()->payloads().empty());
        daemon_.restart();
    }
    EXPECT_EQ(daemon_.enterAgent(owner_, "my.agent", owner_.uid).code, KSWErrorNone);
    EXPECT_EQ(erase(kRoot).code, KSWErrorNone);
    EXPECT_EQ(daemon_.enterAgent(owner_, "my.agent", owner_.uid).code, KSWErrorNone);
}

TEST_F(Maintenance, IsForTheAdministratorAndWhomTheHostLets) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const Result<AuditToken> self = host::auditTokenForPid(::getpid());
    ASSERT_TRUE(self.ok());
    AuditToken another = *self;
    another.words[0] += 1;
    Caller caller = owner_;
    caller.process = *self;
    const Data authorization = ipc::serializedAuthorization(*self);
    const std::optional<Data> unusable[] = {std::nullopt, Data{}, Data{1, 2, 3},
                                            ipc::serializedAuthorization(another)};
    for (const bool isAuthorised : {false, true}) {
        daemon_.setAuthorised(isAuthorised);
        for (const std::optional<Data>& other : unusable) {
            EXPECT_EQ(dump(caller, other).code, KSWErrorPermissionDenied);
            EXPECT_EQ(erase(caller, other).code, KSWErrorPermissionDenied);
        }
        EXPECT_NE(agent("my.agent"), nullptr);
        const std::int64_t expected = isAuthorised ? KSWErrorNone : KSWErrorPermissionDenied;
        EXPECT_EQ(dump(caller, authorization).code, expected);
        EXPECT_EQ(erase(caller, authorization).code, expected);
    }
    EXPECT_EQ(agent("my.agent"), nullptr);
    EXPECT_EQ(dump({anOther().uid, anOther().gid, true}).code, KSWErrorNone);
}

TEST_F(Maintenance, RemovesWhatHasNoFileAnyMore) {
    const std::string path = enterWithFile("kept.agent");
    const std::string gone = enterWithFile("gone.agent");
    const ItemPointer link = KSWItem::initWithType(KSWItemTypeUserItem, "https://example.com/x");
    link->setUrl(URL::fromString("https://example.com/x"));
    ASSERT_EQ(requests_.add(owner_, link, owner_.uid).code, KSWErrorNone);
    std::filesystem::remove(gone);
    collect();
    EXPECT_NE(agent("kept.agent"), nullptr);
    EXPECT_EQ(agent("gone.agent"), nullptr);
    EXPECT_NE(daemon_.record(owner_.uid, "https://example.com/x"), nullptr);
    std::filesystem::remove(path);
    collect();
    daemon_.restart();
    EXPECT_EQ(agent("kept.agent"), nullptr);
    EXPECT_NE(daemon_.record(owner_.uid, "Unknown Developer"), nullptr);
}

TEST_F(Maintenance, KeepsWhatABookmarkStillFinds) {
    const std::string path = daemon_.folder().writeFile("file", "content");
    std::filesystem::permissions(path, std::filesystem::perms(0644));
    const std::optional<URL> url = URL::fileURL(path);
    const Answer entered =
        daemon_.ask(&Operations::enter, owner_, KSWItemTypeUserItem, kNoURL, url, std::nullopt, owner_.uid);
    ASSERT_EQ(entered.code, KSWErrorNone);
    ASSERT_TRUE(entered.item->bookmark().has_value());
    const std::string identifier = *entered.item->identifier();
    std::filesystem::rename(path, daemon_.folder().at("elsewhere"));
    collect();
    EXPECT_NE(daemon_.record(owner_.uid, identifier), nullptr);
    std::filesystem::remove(daemon_.folder().at("elsewhere"));
    collect();
    EXPECT_EQ(daemon_.record(owner_.uid, identifier), nullptr);
}

TEST_F(Maintenance, RemovesDevelopersWithoutItemsUnlessTheyAreForbidden) {
    const auto put = [&](std::string_view name, KSWDisposition disposition) {
        const ItemPointer developer = bareItem(KSWItemTypeDeveloper, std::string(name));
        developer->setUuid(UUID::random());
        developer->setName(std::string(name));
        developer->setDeveloperName(std::string(name));
        developer->setDisposition(disposition);
        const Result<ItemRow> row = rowOf(owner_.uid, *developer);
        ASSERT_TRUE(row.ok());
        daemon_.put({*row});
    };
    put("Maker", KSWDispositionAllowed);
    put("Forbidden Maker", 0);
    collect();
    daemon_.restart();
    EXPECT_EQ(daemon_.record(owner_.uid, "Maker"), nullptr);
    EXPECT_NE(daemon_.record(owner_.uid, "Forbidden Maker"), nullptr);
}

TEST_F(Maintenance, LeavesAloneWhatHasChangedSinceItWasLookedAt) {
    const std::string path = enterWithFile("my.agent");
    std::filesystem::remove(path);
    const auto gone = goneRecords(daemon_.registry().records(), {});
    ASSERT_EQ(gone.size(), 1U);
    const ItemPointer changed = copyOf(agent("my.agent"));
    changed->setNotified(true);
    ASSERT_EQ(requests_.update(owner_, changed, owner_.uid).code, KSWErrorRecordUpdated);
    EXPECT_TRUE(daemon_.registry().removeGone(gone).changes.empty());
    EXPECT_NE(agent("my.agent"), nullptr);
}

TEST_F(Maintenance, RemovesJobsThatAScanHasNotFoundAnyMore) {
    std::filesystem::remove(enterWithFile("my.agent"));
    daemon_.enterAgent(owner_, "elsewhere.agent", owner_.uid);
    scan(daemon_.folder().path() + "/", true);
    EXPECT_TRUE(goneRecords(daemon_.registry().records(), {daemon_.folder().path()}).size() == 1);
    EXPECT_NE(agent("my.agent"), nullptr);
    scan(daemon_.folder().path(), false);
    EXPECT_EQ(agent("my.agent"), nullptr);
    EXPECT_NE(agent("elsewhere.agent"), nullptr);
}

TEST_F(Maintenance, TakesNoFolderThatIsNone) {
    for (const std::optional<std::string>& path : {std::optional<std::string>(), std::optional<std::string>("x")}) {
        EXPECT_EQ(daemon_.housekeeping().perform(&Housekeeping::willScan, Rule::Manage, kRoot, path).code,
                  KSWErrorInvalidParameter);
        EXPECT_EQ(daemon_.housekeeping().perform(&Housekeeping::didScan, Rule::Manage, kRoot, path).code,
                  KSWErrorInvalidParameter);
    }
    for (std::size_t number = 0; number <= Housekeeping::kScannedFoldersMax; ++number) {
        const std::optional<std::string> folder = "/nowhere/" + std::to_string(number);
        EXPECT_EQ(daemon_.housekeeping().perform(&Housekeeping::willScan, Rule::Manage, kRoot, folder).code,
                  number < Housekeeping::kScannedFoldersMax ? KSWErrorNone : KSWErrorInvalidParameter);
    }
}

TEST_F(Maintenance, CollectsAfterADelayAndTellsOfIt) {
    std::mutex mutex;
    std::condition_variable told;
    std::vector<protocol::UserDataChange> changes;
    daemon_.setAnnounce([&](const protocol::UserDataChange& change, pid_t cause, ipc::Audience audience) {
        EXPECT_EQ(cause, 0);
        EXPECT_EQ(audience, ipc::Audience::Others);
        const std::lock_guard lock(mutex);
        changes.push_back(change);
        told.notify_one();
    });
    daemon_.restart();
    std::filesystem::remove(enterWithFile("my.agent"));
    const auto schedule = [&](double delay) {
        return daemon_.housekeeping().perform(&Housekeeping::scheduleCollection, Rule::Manage, kRoot, delay).code;
    };
    for (const double delay : {-1.0, Housekeeping::kCollectionDelayMax + 1, std::nan("")}) {
        EXPECT_EQ(schedule(delay), KSWErrorInvalidParameter);
    }
    EXPECT_EQ(schedule(Housekeeping::kCollectionDelayMax), KSWErrorNone);
    EXPECT_EQ(schedule(0.05), KSWErrorNone);
    EXPECT_NE(agent("my.agent"), nullptr);
    std::unique_lock lock(mutex);
    told.wait(lock, [&] { return !changes.empty(); });
    EXPECT_EQ(changes.front().uid, owner_.uid);
    EXPECT_EQ(agent("my.agent"), nullptr);
}

TEST_F(Maintenance, ForgetsWhatItKeepsForAUserWhoHasLoggedOut) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const auto before = requests_.ask(owner_, KSWItemTypeAll, owner_.uid).list;
    EXPECT_EQ(requests_.ask(owner_, KSWItemTypeAll, owner_.uid).list, before);
    const auto note = [&](Uid uid) {
        return daemon_.housekeeping().perform(&Housekeeping::noteLogout, Rule::Change, kRoot, uid).code;
    };
    EXPECT_EQ(note(owner_.uid), KSWErrorNone);
    EXPECT_NE(requests_.ask(owner_, KSWItemTypeAll, owner_.uid).list, before);
    EXPECT_EQ(note(kNoUser), KSWErrorInvalidParameter);
    EXPECT_EQ(note(kEveryUser), KSWErrorInvalidParameter);
}

/// The legacy store of login items.
class TheRoster : public WithRecords {
protected:
    Report add(const Caller& caller, const std::optional<URL>& url, KSWItemType type = KSWItemTypeUserItem,
               bool isGlobal = false, bool isManaged = false) {
        return daemon_.housekeeping().perform(&Housekeeping::addToRoster, Rule::Change, caller, url,
                                              static_cast<std::int64_t>(type), isGlobal, isManaged);
    }
    std::vector<std::string> fetch(const Caller& caller, std::int64_t mask = KSWItemTypeAll) {
        const Report report = daemon_.housekeeping().perform(&Housekeeping::fetchRoster, Rule::Ask, caller, mask);
        EXPECT_EQ(report.code, KSWErrorNone);
        std::vector<std::string> identifiers;
        const std::vector<ItemPointer> items = itemsOf(*report.data).value();
        for (const ItemPointer& item : items) {
            identifiers.push_back(item->identifier().value_or("none"));
        }
        return identifiers;
    }
    std::int64_t update(const Caller& caller, const ItemPointer& item) {
        return daemon_.housekeeping().perform(&Housekeeping::updateInRoster, Rule::Change, caller, item).code;
    }
    std::int64_t remove(const Caller& caller, const ItemPointer& item) {
        return daemon_.housekeeping().perform(&Housekeeping::removeFromRoster, Rule::Change, caller, item).code;
    }
    /// A file that anybody may read.
    std::optional<URL> write(const std::string& name) {
        const std::string path = daemon_.folder().writeFile(name, "content");
        std::filesystem::permissions(path, std::filesystem::perms(0644));
        return URL::fileURL(path);
    }
    const std::optional<URL> url_ = write("file");
};

TEST_F(TheRoster, HasTheLoginItemsOfItsUserAndOfTheSystem) {
    const Report added = add(owner_, url_);
    ASSERT_EQ(added.code, KSWErrorNone);
    const std::string own = *added.item->identifier();
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const Report global = add(kRoot, write("global"), KSWItemTypeUserItem, true, true);
    ASSERT_EQ(global.code, KSWErrorNone);
    EXPECT_EQ(fetch(owner_), (std::vector<std::string>{own, *global.item->identifier()}));
    EXPECT_EQ(fetch(anOther()), (std::vector<std::string>{*global.item->identifier()}));
    EXPECT_TRUE(fetch(owner_, KSWItemTypeAgent | KSWItemTypeApp).empty());
    EXPECT_TRUE(global.item->isGlobal());
    EXPECT_TRUE(global.item->isManaged());
    EXPECT_FALSE(added.item->isGlobal());
}

TEST_F(TheRoster, AllowsAnItemThatIsAddedAgain) {
    const Report added = add(owner_, url_);
    ASSERT_EQ(added.code, KSWErrorNone);
    const ItemPointer forbidden = copyOf(added.item);
    forbidden->setDisposition(KSWDispositionHidden);
    ASSERT_EQ(update(owner_, forbidden), KSWErrorRecordUpdated);
    const Report again = add(owner_, url_);
    EXPECT_EQ(again.code, KSWErrorRecordExists);
    ASSERT_NE(again.item, nullptr);
    EXPECT_EQ(again.item->disposition(), KSWDispositionHidden | KSWDispositionEnabled | KSWDispositionAllowed);
    EXPECT_EQ(again.item->generation(), 2);
    const Report onceMore = add(owner_, url_);
    EXPECT_EQ(onceMore.code, KSWErrorRecordExists);
    EXPECT_EQ(onceMore.item->generation(), 2);
}

TEST_F(TheRoster, UpdatesAndRemovesItsOwnItemsOnly) {
    const Report added = add(owner_, url_);
    ASSERT_EQ(added.code, KSWErrorNone);
    const ItemPointer stale = copyOf(added.item);
    ASSERT_EQ(update(owner_, copyOf(added.item)), KSWErrorRecordUpdated);
    EXPECT_EQ(update(owner_, stale), KSWErrorInvalidGeneration);
    EXPECT_EQ(update(anOther(), stale), KSWErrorRecordNotFound);
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const ItemPointer agent = copyOf(daemon_.record(owner_.uid, "8.my.agent"));
    EXPECT_EQ(update(owner_, agent), KSWErrorInvalidParameter);
    EXPECT_EQ(remove(owner_, agent), KSWErrorInvalidParameter);
    EXPECT_EQ(update(owner_, nullptr), KSWErrorInvalidParameter);
    EXPECT_EQ(remove(owner_, nullptr), KSWErrorInvalidParameter);
    EXPECT_EQ(remove(anOther(), added.item), KSWErrorRecordNotFound);
    EXPECT_EQ(remove(owner_, added.item), KSWErrorNone);
    EXPECT_EQ(remove(owner_, added.item), KSWErrorRecordNotFound);
    EXPECT_TRUE(fetch(owner_).empty());
}

TEST_F(TheRoster, LeavesWhatIsGlobalOrManagedToTheAdministrator) {
    EXPECT_EQ(add(owner_, url_, KSWItemTypeUserItem, true, false).code, KSWErrorPermissionDenied);
    EXPECT_EQ(add(owner_, url_, KSWItemTypeUserItem, false, true).code, KSWErrorPermissionDenied);
    const Report global = add(kRoot, url_, KSWItemTypeUserItem, true, false);
    ASSERT_EQ(global.code, KSWErrorNone);
    EXPECT_EQ(update(owner_, copyOf(global.item)), KSWErrorPermissionDenied);
    EXPECT_EQ(remove(owner_, global.item), KSWErrorPermissionDenied);
    EXPECT_EQ(remove(kRoot, global.item), KSWErrorNone);
}

TEST_F(TheRoster, TakesOneKindThatItHas) {
    EXPECT_EQ(add(owner_, url_, KSWItemTypeAgent).code, KSWErrorInvalidParameter);
    EXPECT_EQ(add(owner_, url_, KSWItemTypeUserItem | KSWItemTypeApp).code, KSWErrorInvalidParameter);
    EXPECT_EQ(add(owner_, url_, KSWItemTypeUserItem | KSWItemTypeAgent).code, KSWErrorInvalidParameter);
    EXPECT_EQ(add(owner_, url_, 0).code, KSWErrorInvalidParameter);
    EXPECT_EQ(add(owner_, std::nullopt).code, KSWErrorInvalidParameter);
    EXPECT_EQ(add(owner_, URL::fileURL("/nowhere/file")).code, KSWErrorInvalidParameter);
    // An application is known by its signature, which this one has not.
    EXPECT_EQ(add(owner_, URL::fileURL("/nowhere/My.app/"), KSWItemTypeApp).code, KSWErrorInvalidParameter);
}

}  // namespace
}  // namespace ksw::daemon::test
