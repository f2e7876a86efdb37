#include "servers/common/set_aside.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/host/log_capture.h"
#include "servers/kestrelwoodd/open_registry.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"
#include "tests/servers/kestrelwoodd/record_requests.h"
#include "tests/support/sys_faults.h"

namespace ksw::daemon::test {

using namespace servers;
namespace {

using host::sys::Call;
using testing::HasSubstr;

std::string bytesOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool exists(const std::string& path) {
    return std::filesystem::exists(path);
}

/// A store with an agent in it that has been forbidden; closed.
class ADamagedStore : public testing::Test {
protected:
    ADamagedStore() {
        DaemonInside daemon;
        daemon.enterAgent(kRoot, "forbidden", kOwner);
        daemon.damage("VACUUM");
        sound_ = bytesOf(daemon.path());
        write(std::string(5000, 'x'));
    }

    void write(const std::string& bytes, const std::string& ending = "") const {
        folder_.writeFile("kestrelwood.db" + ending, bytes);
    }
    Result<OpenedRegistry> open() const { return openRegistry(path_); }
    std::string refusal() const {
        const Result<OpenedRegistry> opened = open();
        return opened.ok() ? "opened" : std::string(opened.error().localizedDescription());
    }
    std::vector<std::string> folders() const { return *setAsideFolders(path_); }
    /// It was set aside, and a new store without records is there.
    void expectSetAside(const Result<OpenedRegistry>& opened) const {
        ASSERT_TRUE(opened.ok()) << opened.error().description();
        EXPECT_EQ(opened->registry->history(), History::Lost);
        EXPECT_TRUE(opened->registry->records().users().empty());
        EXPECT_EQ(folders().size(), 1U);
    }

    static constexpr Uid kOwner = 4501;
    ksw::test::TempFolder folder_;
    const std::string path_ = folder_.at("kestrelwood.db");
    std::string sound_;
};

TEST_F(ADamagedStore, ThatIsNoDatabaseIsSetAsideAsItIs) {
    write("journal", "-wal");
    write("index", "-shm");
    expectSetAside(open());
    const std::string folder = folders().front();
    EXPECT_THAT(folder, testing::ContainsRegex("/set-aside-[0-9]{8}-[0-9]{6}$"));
    EXPECT_EQ(bytesOf(folder + "/kestrelwood.db"), std::string(5000, 'x'));
    EXPECT_EQ(bytesOf(folder + "/kestrelwood.db-wal"), "journal");
    EXPECT_EQ(bytesOf(folder + "/kestrelwood.db-shm"), "index");
}

TEST_F(ADamagedStore, LiesWhereOnlyItsOwnerComes) {
    open().ok();
    struct stat facts {};
    ASSERT_EQ(stat(folders().front().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0700U);
}

TEST_F(ADamagedStore, IsSpokenOfOnceInTheLog) {
    host::LogCapture log;
    const Result<OpenedRegistry> opened = open();
    ASSERT_TRUE(opened.ok());
    const std::string text = path_ + ": is not a database; it was set aside in " + folders().front() +
                             ", and as long as that folder is there only an administrator can allow what has no"
                             " record";
    EXPECT_EQ(opened->loss, text);
    EXPECT_EQ(log.at(host::LogLevel::Error), std::vector<std::string>{"kestrelwoodd: " + text});
}

TEST_F(ADamagedStore, WithOverwrittenPagesIsSetAside) {
    std::string bytes = sound_;
    ASSERT_GT(bytes.size(), 8192U);
    std::fill(bytes.begin() + 4096, bytes.end(), '\x5a');
    write(bytes);
    expectSetAside(open());
}

TEST_F(ADamagedStore, ThatIsCutShortIsSetAside) {
    for (const std::size_t size : {std::size_t{50}, sound_.size() / 2}) {
        std::filesystem::remove_all(folder_.path());
        write(sound_.substr(0, size));
        expectSetAside(open());
    }
}

TEST_F(ADamagedStore, WithoutItsTablesIsSetAside) {
    write(sound_);
    {
        Result<Database> database = Database::open(path_);
        ASSERT_TRUE(database.ok() && database->execute("DROP TABLE items; PRAGMA journal_mode = DELETE"));
    }
    expectSetAside(open());
}

TEST_F(ADamagedStore, WhoseFirstPageHasLostItsSchemaIsSetAside) {
    write(sound_);
    {
        Result<Database> database = Database::open(path_);
        ASSERT_TRUE(database.ok() && database->execute("PRAGMA user_version = 0; PRAGMA journal_mode = DELETE"));
    }
    expectSetAside(open());
}

TEST_F(ADamagedStore, OfWhichOnlyTheJournalIsThereIsSetAside) {
    for (const bool isEmpty : {false, true}) {
        std::filesystem::remove_all(folder_.path());
        write("a journal with records", "-wal");
        if (isEmpty) {
            write("");
        }
        expectSetAside(open());
        EXPECT_EQ(bytesOf(folders().front() + "/kestrelwood.db-wal"), "a journal with records");
    }
}

TEST_F(ADamagedStore, IsSetAsideBesideAFormerOne) {
    open().ok();
    write("again");
    open().ok();
    ASSERT_EQ(folders().size(), 2U);
    EXPECT_EQ(bytesOf(folders()[0] + "/kestrelwood.db").size() + bytesOf(folders()[1] + "/kestrelwood.db").size(),
              5005U);
}

TEST_F(ADamagedStore, LeavesEverythingWaitingForApprovalUntilItsFolderIsRemoved) {
    DaemonInside daemon;
    daemon.enterAgent(kRoot, "forbidden", kOwner);
    for (const char* ending : {"-wal", "-shm"}) {
        std::filesystem::remove(daemon.path() + ending);
    }
    daemon.folder().writeFile("kestrelwood.db", "damaged");
    daemon.restart();
    const auto ask = [&](Operations::Operation operation, std::string_view label) {
        return daemon.askOf(operation, kRoot, kLegacyAgent, label, kOwner).disposition;
    };
    EXPECT_EQ(ask(&Operations::effectiveDisposition, "forbidden"), KSWDispositionEnabled);
    EXPECT_EQ(ask(&Operations::storedDisposition, "forbidden"), KSWDispositionEnabled);
    EXPECT_EQ(daemon.enterAgent(kRoot, "forbidden", kOwner).item->disposition(), KSWDispositionEnabled);
    daemon.restart();
    EXPECT_EQ(ask(&Operations::effectiveDisposition, "forbidden"), KSWDispositionEnabled);
    EXPECT_EQ(ask(&Operations::effectiveDisposition, "new"), KSWDispositionEnabled);
    daemon.allow(kOwner, "8.forbidden");
    EXPECT_EQ(ask(&Operations::effectiveDisposition, "forbidden"), KSWDispositionEnabled | KSWDispositionAllowed);
    std::filesystem::remove_all(setAsideFolders(daemon.path())->front());
    daemon.restart();
    EXPECT_EQ(ask(&Operations::effectiveDisposition, "new"), KSWDispositionEnabled | KSWDispositionAllowed);
}

TEST_F(ADamagedStore, StaysWhereItIsWhenNoFolderCanBeMade) {
    for (const int error : {EACCES, ENOSPC, EROFS}) {
        ksw::test::SysFaults faults;
        faults.failAll(Call::MakeDirectory, error);
        EXPECT_THAT(refusal(), HasSubstr("mkdir"));
        EXPECT_EQ(bytesOf(path_), std::string(5000, 'x'));
    }
    expectSetAside(open());
}

TEST_F(ADamagedStore, ComesToTheSameEndWhereverACallFailedBefore) {
    for (const Call call :
         {Call::MakeDirectory, Call::FileSync, Call::Rename, Call::Open, Call::Statx, Call::Unlink}) {
        for (unsigned nth = 1;; ++nth) {
            SCOPED_TRACE(testing::Message() << "call " << static_cast<int>(call) << ", time " << nth);
            std::filesystem::remove_all(folder_.path());
            write("damaged");
            write("journal", "-wal");
            {
                ksw::test::SysFaults faults;
                faults.failNth(call, nth, EIO);
                const bool hasOpened = open().ok();
                if (faults.count(call) < nth) {
                    break;
                }
                EXPECT_FALSE(hasOpened);
            }
            expectSetAside(open());
            EXPECT_EQ(bytesOf(folders().front() + "/kestrelwood.db"), "damaged");
            EXPECT_EQ(bytesOf(folders().front() + "/kestrelwood.db-wal"), "journal");
        }
    }
}

TEST_F(ADamagedStore, IsNotOneThatTheDiskCannotGiveNow) {
    write(sound_);
    for (const Call call : {Call::Open, Call::Read}) {
        for (const int error : {EIO, EACCES, ENOSPC}) {
            ksw::test::SysFaults faults;
            faults.failNth(call, call == Call::Open ? 2 : 1, error);
            EXPECT_THAT(refusal(), HasSubstr(call == Call::Open ? "open(" : "read("));
        }
    }
    EXPECT_TRUE(folders().empty());
    EXPECT_EQ(bytesOf(path_), sound_);
    EXPECT_EQ(open()->registry->history(), History::Whole);
}

TEST_F(ADamagedStore, IsNotANewOne) {
    for (const bool isEmpty : {false, true}) {
        std::filesystem::remove_all(folder_.path());
        std::filesystem::create_directory(folder_.path());
        if (isEmpty) {
            write("");
        }
        const Result<OpenedRegistry> opened = open();
        ASSERT_TRUE(opened.ok());
        EXPECT_EQ(opened->registry->history(), History::Whole);
        EXPECT_EQ(opened->loss, std::nullopt);
        EXPECT_FALSE(exists(path_ + ".new"));
    }
}

TEST_F(ADamagedStore, IsNotAnotherProgramsDatabaseNorANewerOne) {
    for (const char* mark : {"PRAGMA application_id = 7", "PRAGMA user_version = 3"}) {
        write(sound_);
        {
            Result<Database> database = Database::open(path_);
            ASSERT_TRUE(database.ok() && database->execute(mark) &&
                        database->execute("PRAGMA journal_mode = DELETE"));
        }
        const std::string before = bytesOf(path_);
        EXPECT_THAT(refusal(), HasSubstr("it is left as it is"));
        EXPECT_EQ(bytesOf(path_), before);
        EXPECT_TRUE(folders().empty());
    }
}

TEST_F(ADamagedStore, LeavesOnlyTheAdministratorToAllow) {
    DaemonInside daemon;
    daemon.folder().makeFolder("set-aside-20260731-000000");
    daemon.restart();
    RecordRequests requests(daemon);
    const Caller owner = anOwner();
    const ItemPointer item = anAgent("added");
    item->setAllowed(true);
    ASSERT_EQ(requests.add(owner, item, owner.uid).code, KSWErrorNone);
    const std::string identifier = *item->identifier();
    const auto isAllowedAfterUpdateBy = [&](const Caller& caller) {
        const ItemPointer copy = copyOf(daemon.record(owner.uid, identifier));
        copy->setAllowed(true);
        EXPECT_EQ(requests.update(caller, copy, owner.uid).code, KSWErrorRecordUpdated);
        return daemon.record(owner.uid, identifier)->isAllowed();
    };
    EXPECT_FALSE(daemon.record(owner.uid, identifier)->isAllowed());
    EXPECT_FALSE(isAllowedAfterUpdateBy(owner));
    EXPECT_TRUE(isAllowedAfterUpdateBy(kRoot));
    EXPECT_TRUE(isAllowedAfterUpdateBy(owner));
}

/// Rows that fill more pages than the database keeps in memory.
std::vector<ItemRow> moreThanIsKeptInMemory() {
    std::vector<ItemRow> rows;
    for (int number = 0; number < 100; ++number) {
        const ItemPointer item = KSWItem::initWithType(KSWItemTypeAgent, "8.agent." + std::to_string(number));
        item->setLightweightRequirement(Data(60'000, 1));
        rows.push_back(*rowOf(4501, *item));
    }
    return rows;
}

/// Writes into the file itself, which somebody has open.
void overwrite(const std::string& path, const std::string& bytes) {
    std::fstream file(path, std::fstream::in | std::fstream::out | std::fstream::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

TEST_F(ADamagedStore, ThatIsDamagedWhileItIsOpenAnswersFromMemoryUntilItIsSetAside) {
    DaemonInside daemon;
    daemon.put(moreThanIsKeptInMemory());
    std::string bytes = bytesOf(daemon.path());
    std::fill(bytes.begin() + 4096, bytes.end(), '\x5a');
    overwrite(daemon.path(), bytes);
    host::LogCapture log;
    EXPECT_EQ(daemon.enterAgent(kRoot, "new", kOwner).code, KSWErrorGeneric);
    EXPECT_THAT(log.at(host::LogLevel::Error), testing::ElementsAre(HasSubstr("malformed")));
    EXPECT_NE(daemon.record(kOwner, "8.agent.1"), nullptr);
    EXPECT_EQ(daemon.registry().history(), History::Whole);
    daemon.restart();
    EXPECT_EQ(daemon.registry().history(), History::Lost);
    EXPECT_EQ(daemon.record(kOwner, "8.agent.1"), nullptr);
}

}  // namespace
}  // namespace ksw::daemon::test
