// The daemon is killed at random moments while clients change records: what it acknowledged is there afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <map>
#include <random>
#include <thread>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "servers/kestrelwoodd/open_registry.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/servers/kestrelwoodd/durability/script.h"

namespace ksw::daemon::test {
namespace {

constexpr unsigned kKills = kIsSlow ? 12 : 300;
constexpr unsigned kClients = 4;
constexpr unsigned kItemsPerClient = 6;
/// A kill comes after so many acknowledgements at most.
constexpr unsigned kAcknowledgementsMax = 40;
constexpr unsigned kSeed = 20260731;

/// What a client knows of one of its items: the version that was acknowledged last, 0 when there is no record.
/// While a request has no answer either may hold.
struct Known {
    int acknowledged = 0;
    std::optional<int> inDoubt;
};

/// Counts acknowledgements; lets one thread wait for a number of them.
class Counter {
public:
    void add() {
        ++count_;
        count_.notify_all();
    }
    void waitFor(unsigned wanted) const {
        for (unsigned seen = count_.load(); seen < wanted; seen = count_.load()) {
            count_.wait(seen);
        }
    }

private:
    std::atomic<unsigned> count_{0};
};

Dictionary versioned(const std::string& label, int version) {
    return {{std::string(KSWConfigLabel), Value(label)},
            {std::string(KSWConfigExecutablePath), Value("/opt/version-" + std::to_string(version))}};
}

/// Changes its own items, one request after the other. One thread at a time.
class Client {
public:
    explicit Client(unsigned number) : random_(kSeed + number) {
        for (unsigned item = 0; item < kItemsPerClient; ++item) {
            items_["client." + std::to_string(number) + ".item." + std::to_string(item)];
        }
    }

    /// Until a request fails.
    void changeRecords(Counter& acknowledgements) {
        while (changeOne()) {
            acknowledgements.add();
        }
    }

    /// Compares with the records as they lie on the disk, and takes them for acknowledged.
    void compare(const RecordIndex& records) {
        for (auto& [label, known] : items_) {
            SCOPED_TRACE(label);
            const Found found = records.find(geteuid(), "8." + label);
            EXPECT_FALSE(found.isDamaged);
            const int version = versionOf(found.item);
            EXPECT_TRUE(version == known.acknowledged || version == known.inDoubt)
                << version << " instead of " << known.acknowledged;
            if (found.item != nullptr) {
                expectWhole(*found.item);
            }
            known = Known{version, std::nullopt};
        }
    }

    /// Compares with what the daemon answers.
    void compareAnswers() {
        for (const auto& [label, known] : items_) {
            const ItemPointer item =
                manager_->fetchItemWithAppURL(kNoURL, kLegacyAgent, jobURL(label), versioned(label, 1), geteuid());
            EXPECT_EQ(versionOf(item), known.acknowledged) << label;
        }
    }

private:
    static int versionOf(const ItemPointer& item) {
        const std::string path = item == nullptr ? "" : item->executablePath().value_or("");
        return path.empty() ? 0 : std::stoi(path.substr(path.rfind('-') + 1));
    }

    /// Every change of facts raised the generation by one, and the parent is there.
    void expectWhole(const KSWItem& item) {
        ASSERT_NE(item.container(), nullptr);
        EXPECT_TRUE(item.container()->isUnknownDeveloperRecord());
        EXPECT_EQ(item.disposition(), KSWDispositionEnabled | KSWDispositionAllowed);
    }

    /// False when there was no answer.
    bool changeOne() {
        auto place = items_.begin();
        std::advance(place, random_() % kItemsPerClient);
        auto& [label, known] = *place;
        const bool removes = known.acknowledged != 0 && random_() % 3 == 0;
        known.inDoubt = removes ? 0 : ++version_;
        const std::int64_t code =
            removes ? manager_->unregisterItemWithBundleURL(kNoURL, kLegacyAgent, jobURL(label), geteuid())
                    : manager_->registerItem(nullptr, kNoURL, kLegacyAgent, jobURL(label),
                                             versioned(label, version_), geteuid());
        if (code == KSWErrorGeneric) {
            return false;
        }
        EXPECT_EQ(code, removes || known.acknowledged == 0 ? KSWErrorNone : KSWErrorRecordUpdated) << label;
        known = Known{*known.inDoubt, std::nullopt};
        return true;
    }

    std::mt19937 random_;
    int version_ = 0;
    std::map<std::string, Known> items_;
    std::shared_ptr<KSWManager> manager_ = KSWManager::initWithMode(0);
};

class ADaemonThatIsKilled : public testing::Test {
protected:
    ADaemonThatIsKilled() {
        silenceLog();
        for (unsigned number = 0; number < kClients; ++number) {
            clients_.push_back(std::make_unique<Client>(number));
        }
    }

    /// Kills the daemon when so many changes have been acknowledged and others are on their way.
    void killUnderLoad(Process& daemon, unsigned acknowledgements) {
        Counter counter;
        std::vector<std::thread> threads;
        threads.reserve(clients_.size());
        for (const auto& client : clients_) {
            threads.emplace_back([&] { client->changeRecords(counter); });
        }
        counter.waitFor(acknowledgements);
        daemon.signal(SIGKILL);
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(daemon.wait().status, 128 + SIGKILL);
    }

    /// Looks at a copy of what is on the disk.
    void compareWithTheDisk() {
        const ksw::test::TempFolder copy;
        for (const char* ending : {"", "-wal"}) {
            std::filesystem::copy_file(host_.databasePath() + ending, copy.at("kestrelwood.db") + ending);
        }
        ASSERT_EQ(quickCheck(copy.at("kestrelwood.db")), "ok");
        const Result<OpenedRegistry> opened = openRegistry(copy.at("kestrelwood.db"));
        ASSERT_TRUE(opened.ok()) << opened.error().description();
        ASSERT_EQ(opened->loss, std::nullopt);
        for (const auto& client : clients_) {
            client->compare(opened->registry->records());
        }
    }

    const ksw::test::ScopedVariable place_{"TMPDIR", placeForManyStores()};
    DaemonHost host_;
    std::vector<std::unique_ptr<Client>> clients_;
};

TEST_F(ADaemonThatIsKilled, UnderLoadHundredsOfTimesLosesAndHalvesNothingThatItAcknowledged) {
    std::mt19937 random(kSeed);
    for (unsigned kill = 1; kill <= kKills && !HasFailure(); ++kill) {
        const auto acknowledgements = static_cast<unsigned>(random() % kAcknowledgementsMax);
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", kill " << kill << " after " << acknowledgements);
        const std::unique_ptr<Process> daemon = host_.startReady();
        ASSERT_NE(daemon, nullptr);
        for (const auto& client : clients_) {
            client->compareAnswers();
        }
        killUnderLoad(*daemon, acknowledgements);
        ASSERT_NO_FATAL_FAILURE(compareWithTheDisk());
    }
}

}  // namespace
}  // namespace ksw::daemon::test
