// The daemon is killed at random moments while clients change records: what it acknowledged is there afterwards.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "servers/kestrelwoodd/open_registry.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/servers/kestrelwoodd/durability/changing_client.h"
#include "tests/servers/kestrelwoodd/durability/script.h"
#include "tests/support/sanitized.h"

namespace ksw::daemon::test {
namespace {

constexpr unsigned kKills = ksw::test::sized(300U, 12U);
constexpr unsigned kClients = 4;
/// A kill comes after so many acknowledgements at most.
constexpr unsigned kAcknowledgementsMax = 40;
constexpr unsigned kSeed = 20260731;

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

class ADaemonThatIsKilled : public testing::Test {
protected:
    ADaemonThatIsKilled() {
        silenceLog();
        for (unsigned number = 0; number < kClients; ++number) {
            clients_.push_back(std::make_unique<ChangingClient>(kSeed, number));
        }
    }

    /// Kills the daemon when so many changes have been acknowledged and others are on their way.
    void killUnderLoad(Process& daemon, unsigned acknowledgements) {
        Counter counter;
        std::vector<std::thread> threads;
        threads.reserve(clients_.size());
        for (const auto& client : clients_) {
            threads.emplace_back([&] { client->change([&] { counter.add(); }); });
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
    std::vector<std::unique_ptr<ChangingClient>> clients_;
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
