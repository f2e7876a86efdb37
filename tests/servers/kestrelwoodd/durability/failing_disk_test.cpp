// A disk that fails or is full: errors are answered, reads go on, and the store recovers by itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>

#include "servers/common/set_aside.h"
#include "servers/kestrelwoodd/open_registry.h"
#include "tests/servers/kestrelwoodd/durability/faulty_disk.h"
#include "tests/servers/kestrelwoodd/durability/script.h"
#include "tests/support/environment.h"
#include "tests/support/sanitized.h"
#include "tests/support/temp_folder.h"

namespace ksw::daemon::test {

using namespace servers;
namespace {

struct Failure {
    const char* name;
    unsigned accesses;
    int code;
    bool isForGood;
    bool isAnswered = true;  ///< A change is answered an error, and not only the journal stays where it is.
};

class AFailingDisk : public testing::Test {
protected:
    void reopen() {
        registry_.reset();
        Result<OpenedRegistry> opened = openRegistry(path_);
        ASSERT_TRUE(opened.ok()) << opened.error().description();
        ASSERT_EQ(opened->registry->history(), History::Whole);
        registry_ = std::move(opened->registry);
    }
    void startAnew() {
        registry_.reset();
        std::filesystem::remove_all(folder_.path());
        std::filesystem::create_directory(folder_.path());
        reopen();
    }
    static void SetUpTestSuite() { silenceLog(); }

    const ksw::test::ScopedVariable place_{"TMPDIR", placeForManyStores()};
    const ksw::test::TempFolder folder_;
    const std::string path_ = folder_.at("kestrelwood.db");
    FaultyDisk disk_;
    std::unique_ptr<Registry> registry_;
};

class AChangeOnAFailingDisk : public AFailingDisk, public testing::WithParamInterface<Failure> {
protected:
    /// Performs the steps while the disk fails; each that is answered an error leaves everything as it was.
    void performWhileFailing() {
        for (const Step& step : steps_) {
            const std::string before = snapshot(*registry_);
            if (perform(*registry_, step) == -1) {
                ++errors_;
                ASSERT_EQ(snapshot(*registry_), before);
            }
            if (step.version % 3 == 2) {
                // It may fail, and is tried again by itself.
                static_cast<void>(registry_->checkpoint().ok());
            }
        }
    }

    const std::vector<Step> steps_ = script(7);
    unsigned errors_ = 0;
};

TEST_P(AChangeOnAFailingDisk, IsAnsweredAnErrorAndTheNextOneSucceedsAndAllAcknowledgedIsThereAfterwards) {
    for (unsigned nth = 1;; nth += ksw::test::sized(1U, 7U)) {
        SCOPED_TRACE(testing::Message() << "fails at access " << nth);
        ASSERT_NO_FATAL_FAILURE(startAnew());
        disk_.failNth(nth, GetParam().accesses, GetParam().code, GetParam().isForGood);
        ASSERT_NO_FATAL_FAILURE(performWhileFailing());
        const bool hasFailed = disk_.count() >= nth;
        disk_.heal();
        ASSERT_EQ(registry_->enter(4502, KSWItem::initWithType(KSWItemTypeAgent, "8.next")).code, 0);
        const std::string acknowledged = snapshot(*registry_);
        ASSERT_NO_FATAL_FAILURE(reopen());
        ASSERT_EQ(snapshot(*registry_), acknowledged);
        if (!hasFailed) {
            EXPECT_EQ(errors_ > 0, GetParam().isAnswered);
            break;
        }
    }
}

std::string nameOf(const testing::TestParamInfo<Failure>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(ThatIs, AChangeOnAFailingDisk,
                         testing::Values(Failure{"FullOnce", kWrite | kTruncate, SQLITE_FULL, false},
                                         Failure{"FullForAWhile", kWrite | kTruncate, SQLITE_FULL, true},
                                         Failure{"BadWrite", kWrite, SQLITE_IOERR_WRITE, false},
                                         Failure{"BadForAWhile", kChanging, SQLITE_IOERR_WRITE, true},
                                         Failure{"BadSynchronisation", kSync, SQLITE_IOERR_FSYNC, false},
                                         Failure{"BadSynchronisationForAWhile", kSync, SQLITE_IOERR_FSYNC, true},
                                         Failure{"BadTruncation", kTruncate, SQLITE_IOERR_TRUNCATE, false, false}),
                         nameOf);

TEST_F(AFailingDisk, ThatTakesEverythingButTheSynchronisationBringsBackNoChangeThatFailed) {
    ASSERT_NO_FATAL_FAILURE(reopen());
    const std::string before = snapshot(*registry_);
    disk_.failNth(1, kSync, SQLITE_IOERR_FSYNC, true);
    ASSERT_EQ(perform(*registry_, {4501, "8.agent.1", false, 1}), -1);
    // The daemon is killed now: whoever comes next reads the journal as it stands.
    const ksw::test::TempFolder another;
    for (const char* ending : {"", "-wal"}) {
        std::filesystem::copy_file(path_ + ending, another.at("kestrelwood.db") + ending);
    }
    disk_.heal();
    const Result<OpenedRegistry> opened = openRegistry(another.at("kestrelwood.db"));
    ASSERT_TRUE(opened.ok());
    EXPECT_EQ(snapshot(*opened->registry), before);
}

TEST_F(AFailingDisk, ThatCannotBeReadAtTheStartIsNoDamage) {
    ASSERT_NO_FATAL_FAILURE(reopen());
    for (const Step& step : script(10)) {
        perform(*registry_, step);
    }
    const std::string acknowledged = snapshot(*registry_);
    for (const auto& [accesses, code] : {std::pair{kRead, SQLITE_IOERR_READ}, std::pair{kOpen, SQLITE_CANTOPEN},
                                         std::pair{kSharedMemory, SQLITE_IOERR_SHMMAP}}) {
        for (unsigned nth = 1;; ++nth) {
            SCOPED_TRACE(testing::Message() << "access " << nth << " of kind " << accesses);
            registry_.reset();
            disk_.failNth(nth, accesses, code);
            const Result<OpenedRegistry> opened = openRegistry(path_);
            const bool hasFailed = disk_.count() >= nth;
            disk_.heal();
            // A page that could be read the second time is as good as one that was read at once.
            EXPECT_TRUE(!opened.ok() || opened->registry->history() == History::Whole);
            ASSERT_TRUE(setAsideFolders(path_)->empty());
            if (!hasFailed) {
                break;
            }
            ASSERT_NO_FATAL_FAILURE(reopen());
            ASSERT_EQ(snapshot(*registry_), acknowledged);
        }
    }
}

TEST_F(AFailingDisk, ThatTakesNoNewStoreLeavesNothingThatCountsAsOne) {
    for (const int code : {SQLITE_IOERR_WRITE, SQLITE_FULL}) {
        for (unsigned nth = 1;; ++nth) {
            SCOPED_TRACE(testing::Message() << "fails at access " << nth);
            std::filesystem::remove_all(folder_.path());
            std::filesystem::create_directory(folder_.path());
            disk_.failNth(nth, kChanging, code);
            const bool isOpen = openRegistry(path_).ok();
            const bool hasFailed = disk_.count() >= nth;
            disk_.heal();
            ASSERT_TRUE(hasFailed || isOpen);
            ASSERT_NO_FATAL_FAILURE(reopen());
            registry_.reset();
            if (!hasFailed) {
                break;
            }
        }
    }
}

TEST_F(AFailingDisk, OnWhichTheJournalCannotBeMovedStillTakesChanges) {
    ASSERT_NO_FATAL_FAILURE(reopen());
    disk_.failNthTo("kestrelwood.db", 1, kWrite, SQLITE_IOERR_WRITE, true);
    for (const Step& step : script(10)) {
        EXPECT_NE(perform(*registry_, step), -1);
        EXPECT_FALSE(registry_->checkpoint().ok() && !step.removes);
    }
    disk_.heal();
    EXPECT_TRUE(registry_->checkpoint().ok());
    const std::string acknowledged = snapshot(*registry_);
    ASSERT_NO_FATAL_FAILURE(reopen());
    EXPECT_EQ(snapshot(*registry_), acknowledged);
}

}  // namespace
}  // namespace ksw::daemon::test
