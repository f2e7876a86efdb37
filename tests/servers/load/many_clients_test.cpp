// A thousand clients at once, and sixty-four threads on one: every reply comes to the request that asked for it.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <latch>
#include <memory>
#include <thread>

#include <kestrelwood/KSWManager.h>

#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "platform/ipc/server.h"
#include "platform/ipc/service.h"
#include "servers/kestrelwoodd/services.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/servers/load/load.h"
#include "tests/support/host_root.h"

namespace ksw::test {
namespace {

using protocol::manager::kEffectiveDispositionOfURL;

constexpr std::int64_t kJob = static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeLegacyBit);
// A prime, so that requests which are under way together ask about different jobs.
constexpr int kJobs = sized(1'021, 251);

int jobOf(std::size_t client, std::size_t request) {
    return static_cast<int>((client * 37 + request) % static_cast<std::size_t>(kJobs));
}

/// How often each request was answered, and how many of the answers were another job's.
class Ledger {
public:
    explicit Ledger(std::size_t requests) : answers_(requests) {}

    void enter(std::size_t request, bool isOfItsJob) {
        ++answers_[request];
        strangers_ += isOfItsJob ? 0 : 1;
    }
    std::size_t strangers() const { return strangers_; }
    /// Requests that were not answered exactly once.
    std::size_t lostOrDoubled() const {
        std::size_t count = 0;
        for (const std::atomic<std::uint8_t>& answers : answers_) {
            count += answers == 1 ? 0 : 1;
        }
        return count;
    }

private:
    std::vector<std::atomic<std::uint8_t>> answers_;
    std::atomic<std::size_t> strangers_{0};
};

/// A manager with a connection of its own, and the requests that it makes.
class Client {
public:
    Client(std::size_t number, std::size_t requests, Ledger& ledger)
        : number_(number), requests_(requests), ledger_(ledger) {}

    /// Makes the next `count` requests: all but the last without waiting, the last one waits for its answer.
    void ask(std::size_t count, std::latch& answered) {
        for (std::size_t index = 1; index < count; ++index) {
            askAsync(answered);
        }
        askAndWait(answered);
    }

private:
    void askAsync(std::latch& answered) {
        const std::size_t place = number_ * requests_ + next_;
        const int job = jobOf(number_, next_++);
        ipc::connectionOf(manager_->connection())
            ->callAsync(
                kEffectiveDispositionOfURL,
                [this, place, job, &answered](const auto& reply) {
                    ledger_.enter(place, reply && std::get<1>(*reply) == constraintOf(job));
                    answered.count_down();
                },
                std::nullopt, kJob, jobURLOf(job), configurationOf(job), ::getuid());
    }
    void askAndWait(std::latch& answered) {
        const std::size_t place = number_ * requests_ + next_;
        const int job = jobOf(number_, next_++);
        const auto item =
            manager_->fetchItemWithAppURL(std::nullopt, kJob, jobURLOf(job), configurationOf(job), ::getuid());
        ledger_.enter(place, item != nullptr && item->identifier() == identifierOf(job));
        answered.count_down();
    }

    const std::shared_ptr<KSWManager> manager_ = KSWManager::initWithMode(0);
    const std::size_t number_;
    const std::size_t requests_;
    Ledger& ledger_;
    std::size_t next_ = 0;
};

/// The daemon's services with the daemon's records, for more connections of one user than the daemon takes.
class RoomyDaemon {
public:
    RoomyDaemon() : server_(options()) {
        inside_.put(rowsOfJobs(::getuid(), kJobs));
        EXPECT_TRUE(
            server_
                .listen(kManagerService, ipc::Domain::System,
                        daemon::managerService(inside_.operations(), inside_.housekeeping(),
                                               [](const protocol::UserDataChange&, pid_t, ipc::Audience) {}))
                .ok());
        EXPECT_TRUE(server_.start().ok());
    }
    ipc::ServerCounters counters() const { return server_.counters(); }

private:
    static ipc::ServerOptions options() {
        ipc::ServerOptions options;
        options.limits.connectionsPerUid = limits::kConnectionsMax;
        return options;
    }

    HostRoot root_;
    daemon::test::DaemonInside inside_;
    ipc::Server server_;
};

TEST(AThousandClients, WithAThousandRequestsEachHaveEveryReplyMatched) {
    constexpr std::size_t kRequests = sized(1'000, 50);
    constexpr std::size_t kAtOnce = 25;
    constexpr std::size_t kDrivers = 8;
    constexpr std::size_t kOtherFiles = 100;
    // Both ends of each connection are this process's.
    const std::size_t files = allowOpenFiles(2 * sized(1'000, 400) + kOtherFiles);
    const std::size_t clients = std::min<std::size_t>(sized(1'000, 400), (files - kOtherFiles) / 2);
    const RoomyDaemon daemon;
    Ledger ledger(clients * kRequests);
    std::latch answered(static_cast<std::ptrdiff_t>(clients * kRequests));
    std::latch connected(kDrivers);
    std::vector<std::unique_ptr<Client>> all;
    for (std::size_t number = 0; number < clients; ++number) {
        all.push_back(std::make_unique<Client>(number, kRequests, ledger));
    }
    std::atomic<std::uint64_t> connections = 0;
    std::vector<std::jthread> drivers;
    for (std::size_t driver = 0; driver < kDrivers; ++driver) {
        drivers.emplace_back([&, driver] {
            for (std::size_t asked = 0; asked < kRequests; asked += kAtOnce) {
                for (std::size_t number = driver; number < clients; number += kDrivers) {
                    all[number]->ask(kAtOnce, answered);
                }
                if (asked == 0) {
                    connected.arrive_and_wait();
                    connections = daemon.counters().connections;
                }
            }
        });
    }
    drivers.clear();
    answered.wait();
    EXPECT_EQ(connections, clients);
    EXPECT_EQ(ledger.strangers(), 0U);
    EXPECT_EQ(ledger.lostOrDoubled(), 0U);
    EXPECT_EQ(daemon.counters().served, clients * kRequests);
    EXPECT_EQ(daemon.counters().refused + daemon.counters().dropped + daemon.counters().quotaHits, 0U);
}

TEST(SixtyFourThreads, OnOneManagerGetEveryReplyOfTheirOwn) {
    constexpr std::size_t kThreads = 64;
    constexpr std::size_t kRequests = sized(1'000, 60);
    const daemon::test::DaemonHost host;
    recordJobs(::getuid(), kJobs);
    const auto process = host.startReady();
    ASSERT_NE(process, nullptr);
    const auto manager = KSWManager::initWithMode(0);
    Ledger ledger(kThreads * kRequests);
    std::latch ready(kThreads);
    std::vector<std::jthread> threads;
    for (std::size_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            ready.arrive_and_wait();
            for (std::size_t request = 0; request < kRequests; ++request) {
                const int job = jobOf(thread, request);
                KSWDisposition disposition = 0;
                std::optional<Data> constraint;
                const bool isAnswered = manager->getEffectiveDisposition(
                    &disposition, &constraint, std::nullopt, kJob, jobURLOf(job), configurationOf(job), ::getuid());
                ledger.enter(thread * kRequests + request, isAnswered && constraint == constraintOf(job));
            }
        });
    }
    threads.clear();
    EXPECT_EQ(ledger.strangers(), 0U);
    EXPECT_EQ(ledger.lostOrDoubled(), 0U);
    const auto status = manager->connection()->serverStatus();
    ASSERT_TRUE(status.has_value());
    // The manager's observing of announcements is served too.
    EXPECT_GE(*find<std::int64_t>(*status, "served"), static_cast<std::int64_t>(kThreads * kRequests));
    EXPECT_EQ(*find<std::int64_t>(*status, "dropped"), 0);
}

}  // namespace
}  // namespace ksw::test
