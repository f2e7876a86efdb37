// A process that changes records dies at each of its accesses to the disk in turn; what it had acknowledged is
// there.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "platform/base/unique_fd.h"
#include "platform/host/sys_call.h"
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

constexpr std::size_t kSteps = 40;
/// Steps between two times that the journal is moved into the file.
constexpr std::size_t kStepsToCheckpoint = 9;
/// From one moment of death to the next that is tried.
constexpr unsigned kStride = ksw::test::sized(1U, 23U);

/// How a child process ended, and how many bytes it wrote to its pipe.
struct ChildsEnd {
    bool wasKilled = false;
    int status = -1;
    std::size_t acknowledged = 0;
};

/// Runs the function in a process of its own, with a pipe to write to; it must not return.
ChildsEnd runInChild(const std::function<void(int)>& function) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const UniqueFd output(ends[0]);
    UniqueFd input(ends[1]);
    const pid_t pid = fork();
    if (pid == 0) {
        function(input.get());
        _exit(3);
    }
    input = UniqueFd();
    ChildsEnd end;
    char byte = 0;
    while (read(output.get(), &byte, 1) == 1) {
        ++end.acknowledged;
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    end.wasKilled = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    end.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return end;
}

void acknowledge(int pipe) {
    if (write(pipe, ".", 1) != 1) {
        _exit(4);
    }
}

/// A child of the test: opens the store, performs the steps, closes the store.
void performAll(FaultyDisk& disk, const std::string& path, const std::vector<Step>& steps, unsigned nth,
                Death death, int pipe) {
    disk.dieAtNth(nth, death, nth);
    Result<OpenedRegistry> opened = openRegistry(path);
    if (!opened) {
        _exit(2);
    }
    for (std::size_t number = 0; number < steps.size(); ++number) {
        const std::int64_t code = perform(*opened->registry, steps[number]);
        if (code == -1) {
            _exit(1);
        }
        acknowledge(pipe);
        if (number % kStepsToCheckpoint == kStepsToCheckpoint - 1 && !opened->registry->checkpoint().ok()) {
            _exit(1);
        }
    }
    opened->registry.reset();
    _exit(0);
}

class AProcessThatDies : public testing::TestWithParam<Death> {
protected:
    /// The records are as after `acknowledged` steps or one more, and can be changed further.
    void expectIntact(std::size_t acknowledged) {
        if (std::filesystem::exists(path_)) {
            ASSERT_EQ(quickCheck(path_), "ok");
        }
        const Result<OpenedRegistry> opened = openRegistry(path_);
        ASSERT_TRUE(opened.ok()) << opened.error().description();
        ASSERT_EQ(opened->registry->history(), History::Whole);
        const std::string found = snapshot(*opened->registry);
        const std::size_t next = std::min(acknowledged + 1, steps_.size());
        ASSERT_THAT(found, testing::AnyOf(snapshots_[acknowledged], snapshots_[next]));
        ASSERT_EQ(opened->registry->enter(4501, KSWItem::initWithType(KSWItemTypeAgent, "8.next")).code, 0);
    }

    static void SetUpTestSuite() { silenceLog(); }

    const ksw::test::ScopedVariable place_{"TMPDIR", placeForManyStores()};
    const std::vector<Step> steps_ = script(kSteps);
    const std::vector<std::string> snapshots_ = snapshotsOf(steps_);
    const ksw::test::TempFolder folder_;
    const std::string path_ = folder_.at("kestrelwood.db");
};

TEST_P(AProcessThatDies, AtAnyAccessToTheDiskLosesAndHalvesNothingThatItAcknowledged) {
    unsigned nth = 1;
    for (;; nth += kStride) {
        SCOPED_TRACE(testing::Message() << "dies at access " << nth);
        std::filesystem::remove_all(folder_.path());
        std::filesystem::create_directory(folder_.path());
        const ChildsEnd end = runInChild([&](int pipe) {
            FaultyDisk disk;
            performAll(disk, path_, steps_, nth, GetParam(), pipe);
        });
        if (!end.wasKilled) {
            ASSERT_EQ(end.status, 0);
            ASSERT_EQ(end.acknowledged, steps_.size());
            break;
        }
        ASSERT_NO_FATAL_FAILURE(expectIntact(end.acknowledged));
    }
    EXPECT_GT(nth, 10 * kSteps);
    RecordProperty("accesses", static_cast<int>(nth));
}

/// A child of the test: opens the store, removes all that is in it, closes it.
void eraseAll(FaultyDisk& disk, const std::string& path, unsigned nth, Death death, int pipe) {
    disk.dieAtNth(nth, death, nth);
    Result<OpenedRegistry> opened = openRegistry(path);
    if (!opened || opened->registry->erase().code != 0) {
        _exit(1);
    }
    acknowledge(pipe);
    opened->registry.reset();
    _exit(0);
}

TEST_P(AProcessThatDies, WhileItErasesEverythingLeavesAllOrNothing) {
    const ksw::test::TempFolder whole;
    {
        const Result<OpenedRegistry> opened = openRegistry(whole.at("kestrelwood.db"));
        ASSERT_TRUE(opened.ok());
        for (const Step& step : steps_) {
            ASSERT_NE(perform(*opened->registry, step), -1);
        }
        const auto payload = std::make_shared<const Dictionary>(Dictionary{{"Key", Value(1)}});
        ASSERT_EQ(opened->registry->setPayload("x", payload, true).code, 0);
    }
    bool hasLeftAll = false;
    bool hasLeftNothing = false;
    for (unsigned nth = 1;; ++nth) {
        SCOPED_TRACE(testing::Message() << "dies at access " << nth);
        std::filesystem::remove_all(folder_.path());
        std::filesystem::copy(whole.path(), folder_.path());
        const ChildsEnd end = runInChild([&](int pipe) {
            FaultyDisk disk;
            eraseAll(disk, path_, nth, GetParam(), pipe);
        });
        ASSERT_TRUE(end.wasKilled || end.status == 0);
        ASSERT_EQ(quickCheck(path_), "ok");
        const Result<OpenedRegistry> opened = openRegistry(path_);
        ASSERT_TRUE(opened.ok()) << opened.error().description();
        const bool isErased = snapshot(*opened->registry) == snapshots_.front();
        if (!isErased) {
            ASSERT_EQ(snapshot(*opened->registry), snapshots_.back());
        }
        ASSERT_EQ(opened->registry->managed()->payloads().empty(), isErased);
        ASSERT_TRUE(isErased || end.acknowledged == 0);
        hasLeftAll |= !isErased;
        hasLeftNothing |= isErased;
        if (!end.wasKilled) {
            break;
        }
    }
    EXPECT_TRUE(hasLeftAll && hasLeftNothing);
}

std::string nameOf(const testing::TestParamInfo<Death>& info) {
    switch (info.param) {
        case Death::Killed:
            return "Killed";
        case Death::LosingAll:
            return "LosingAll";
        case Death::LosingTheEnd:
            return "LosingTheEnd";
        case Death::LosingHereAndThere:
            return "LosingHereAndThere";
    }
    return "";
}

INSTANTIATE_TEST_SUITE_P(BeingKilledOrLosingPower, AProcessThatDies,
                         testing::Values(Death::Killed, Death::LosingAll, Death::LosingTheEnd,
                                         Death::LosingHereAndThere),
                         nameOf);

/// The process dies at the nth system call that it makes through the library.
class DyingHook final : public host::sys::Hook {
public:
    explicit DyingHook(unsigned nth) : left_(nth) {}
    host::sys::Outcome before(host::sys::Call) noexcept override {
        if (--left_ == 0) {
            kill(getpid(), SIGKILL);
        }
        return {};
    }

private:
    unsigned left_;
};

TEST(ADamagedStore, IsSetAsideWhereverAFormerStartDied) {
    silenceLog();
    const ksw::test::ScopedVariable place("TMPDIR", placeForManyStores());
    for (unsigned nth = 1;; ++nth) {
        SCOPED_TRACE(testing::Message() << "dies at call " << nth);
        const ksw::test::TempFolder folder;
        const std::string path = folder.writeFile("kestrelwood.db", "damaged");
        folder.writeFile("kestrelwood.db-wal", "journal");
        folder.writeFile("kestrelwood.db-shm", "index");
        const ChildsEnd end = runInChild([&](int) {
            DyingHook hook(nth);
            host::sys::hook = &hook;
            _exit(openRegistry(path).ok() ? 0 : 1);
        });
        const Result<OpenedRegistry> opened = openRegistry(path);
        ASSERT_TRUE(opened.ok()) << opened.error().description();
        EXPECT_EQ(opened->registry->history(), History::Lost);
        EXPECT_TRUE(opened->registry->records().users().empty());
        const std::vector<std::string> folders = *setAsideFolders(path);
        ASSERT_EQ(folders.size(), 1U);
        EXPECT_EQ(std::filesystem::file_size(folders.front() + "/kestrelwood.db"), 7U);
        EXPECT_EQ(std::filesystem::file_size(folders.front() + "/kestrelwood.db-wal"), 7U);
        if (!end.wasKilled) {
            EXPECT_EQ(end.status, 0);
            EXPECT_GT(nth, 10U);
            break;
        }
    }
}

/// A synchronisation fails, the disk goes on as if nothing were, and later the power goes.
TEST(AFailedSynchronisation, IsNotTakenForDoneLater) {
    silenceLog();
    const ksw::test::ScopedVariable place("TMPDIR", placeForManyStores());
    const std::vector<Step> steps = script(12);
    for (unsigned nth = 1;; nth += ksw::test::sized(1U, 5U)) {
        SCOPED_TRACE(testing::Message() << "synchronisation " << nth << " fails");
        const ksw::test::TempFolder folder;
        const std::string path = folder.at("kestrelwood.db");
        const ChildsEnd end = runInChild([&](int pipe) {
            FaultyDisk disk;
            const Result<OpenedRegistry> opened = openRegistry(path);
            disk.failNth(nth, kSync, kSynchronisationFailed);
            for (std::size_t number = 0; number < steps.size(); ++number) {
                while (perform(*opened->registry, steps[number]) == -1) {
                }
                acknowledge(pipe);
                if (number % 5 == 4) {
                    static_cast<void>(opened->registry->checkpoint().ok());
                }
            }
            if (disk.count() < nth) {
                _exit(0);
            }
            disk.die(Death::LosingAll, nth);
        });
        ASSERT_EQ(end.acknowledged, steps.size());
        const Result<OpenedRegistry> opened = openRegistry(path);
        ASSERT_TRUE(opened.ok()) << opened.error().description();
        EXPECT_EQ(opened->registry->history(), History::Whole);
        EXPECT_EQ(snapshot(*opened->registry), snapshotsOf(steps).back());
        if (!end.wasKilled) {
            EXPECT_EQ(end.status, 0);
            EXPECT_GT(nth, 12U);
            break;
        }
    }
}

}  // namespace
}  // namespace ksw::daemon::test
