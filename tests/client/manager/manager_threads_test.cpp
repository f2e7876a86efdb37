// Many threads on one manager, a daemon that is killed under them, and a fork.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "tests/client/manager/daemons.h"

namespace ksw::test {
namespace {

constexpr std::int64_t kLegacyAgent = static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeLegacyBit);
constexpr std::size_t kThreads = 64;

std::optional<URL> job() {
    return URL::fileURL("/jobs/job.plist");
}

std::optional<Dictionary> labelled(const std::string& label) {
    return Dictionary{{std::string(KSWConfigLabel), label},
                      {std::string(KSWConfigExecutablePath), "/usr/bin/true"}};
}

TEST(AManagerOfManyThreads, MatchesEveryReplyToItsRequest) {
    RealDaemon daemon;
    daemon.start();
    const auto manager = KSWManager::initWithMode(0);
    std::atomic<unsigned> mismatches = 0;
    std::vector<std::jthread> threads;
    for (std::size_t index = 0; index < kThreads; ++index) {
        threads.emplace_back([&, index] {
            const std::string label = "com.example.job-" + std::to_string(index);
            for (int round = 0; round < 5; ++round) {
                std::shared_ptr<KSWItem> item;
                const std::int64_t code =
                    manager->registerItem(&item, std::nullopt, kLegacyAgent, job(), labelled(label), ::getuid());
                const std::int64_t expected = round == 0 ? KSWErrorNone : KSWErrorRecordExists;
                if (code != expected || item == nullptr || item->identifier() != "8." + label) {
                    ++mismatches;
                }
            }
        });
    }
    threads.clear();
    EXPECT_EQ(mismatches, 0U);
    daemon.stop();
}

TEST(AManagerOfManyThreads, EndsEveryRequestOnceWhenItsDaemonIsKilled) {
    const daemon::test::DaemonHost host;
    auto process = host.startReady();
    ASSERT_NE(process, nullptr);
    const auto manager = KSWManager::initWithMode(0);
    std::latch answered(kThreads);
    std::atomic<unsigned> ended = 0;
    std::vector<std::jthread> threads;
    for (std::size_t index = 0; index < kThreads; ++index) {
        threads.emplace_back([&] {
            bool wasAnswered = false;
            // Until the daemon is gone; a request that never ended would hang the test.
            while (
                manager->canLaunchItemWithAppURL(std::nullopt, kLegacyAgent, job(), labelled("com.example.job"))) {
                if (!wasAnswered) {
                    wasAnswered = true;
                    answered.count_down();
                }
            }
            ++ended;
        });
    }
    answered.wait();
    process.reset();
    threads.clear();
    EXPECT_EQ(ended, kThreads);
}

TEST(AForkedChild, AsksOverAConnectionOfItsOwn) {
    RealDaemon daemon;
    daemon.start();
    const auto manager = KSWManager::initWithMode(0);
    const auto mayLaunch = [&] {
        return manager->canLaunchItemWithAppURL(std::nullopt, kLegacyAgent, job(), labelled("com.example.job"));
    };
    ASSERT_TRUE(mayLaunch());
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(mayLaunch() && mayLaunch() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(mayLaunch());
    daemon.stop();
}

}  // namespace
}  // namespace ksw::test
