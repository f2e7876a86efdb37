// Who takes all that a server gives to one user does not take it from another.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "client/protocol/user_data_change.h"
#include "platform/base/limits.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/dialer.h"
#include "platform/ipc/notifications.h"
#include "platform/ipc/stream.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/servers/load/hog.h"
#include "tests/servers/load/load.h"

namespace ksw::test {
namespace {

using namespace std::chrono_literals;
namespace methods = protocol::manager;

constexpr std::int64_t kJob = static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeLegacyBit);
/// What a scheduler may add on a machine that is busy with other things: below it no idle figure is believed.
constexpr Nanoseconds kFloor = 2ms;

/// A request of a neighbour's; whether it was answered as it should be.
using Request = bool (*)(ipc::Connection&);

bool ask(ipc::Connection& connection) {
    const auto reply = connection.call(methods::kEffectiveDispositionOfURL, std::nullopt, kJob, jobURLOf(1),
                                       configurationOf(1), ::getuid());
    return reply && std::get<2>(*reply) == 0;
}

bool change(ipc::Connection& connection) {
    const auto entered = connection.call(methods::kRegisterItemOfURL, std::nullopt, kJob, jobURLOf(2),
                                         configurationOf(2), ::getuid());
    const auto removed =
        connection.call(methods::kUnregisterItemOfURL, std::nullopt, kJob, jobURLOf(2), ::getuid());
    return entered && std::get<0>(*entered) != nullptr && removed && std::get<0>(*removed) == 0;
}

/// The 99th percentile of a neighbour's requests over a connection of its own; absent when one failed.
std::optional<Nanoseconds> p99Of(Request request, int count) {
    Child neighbour(anotherUser(), [request, count](Line& line) {
        ipc::Connection connection(kManagerService, ipc::managementDaemonOptions(), GetManagerServiceInterface());
        bool isGood = true;
        line.send(timesOf(count, [&] { isGood = request(connection) && isGood; }));
        return isGood ? 0 : 1;
    });
    const std::vector<Nanoseconds> times = neighbour.line().receive();
    if (neighbour.end() != 0 || times.empty()) {
        return std::nullopt;
    }
    return percentile(times, 0.99);
}

/// All of one user's connections when root runs the test, since then the neighbour is another user; else a few.
Greed greed() {
    if (::geteuid() != 0) {
        return {1, 1, 1};
    }
    constexpr std::size_t kStarted = limits::kBytesPerUidMax / limits::kRequestBodyMax + 8;
    constexpr std::size_t kSilent = 64;
    return {kStarted, kSilent, limits::kConnectionsPerUidMax - kSilent};
}

/// Takes all it can get until its parent has seen enough.
int hogAll(const Greed& greed, Line& line) {
    Hog hog(greed);
    const std::size_t opened = greed.started + greed.silent + greed.busy;
    const bool isAtEveryQuota = opened > limits::kConnectionsPerUidMax;
    if (isAtEveryQuota && !(hog.isAtItsLastConnection() && hog.reachesItsLastByte())) {
        return 1;
    }
    hog.goOn(line);
    return 0;
}

void expectUnslowed(Request request, int count) {
    const daemon::test::DaemonHost host;
    const auto process = host.startReady();
    ASSERT_NE(process, nullptr);
    const auto idle = p99Of(request, count);
    ASSERT_TRUE(idle.has_value());
    Child hog(anyUser(), [greed = greed()](Line& line) { return hogAll(greed, line); });
    ASSERT_TRUE(hog.line().wait()) << hog.end();
    const auto busy = p99Of(request, count);
    ASSERT_TRUE(busy.has_value());
    EXPECT_EQ(hog.end(), 0);
    EXPECT_LE(*busy, 10 * std::max(*idle, kFloor)) << "idle " << idle->count() << " ns";
    testing::Test::RecordProperty("idle_p99_us", static_cast<int>(*idle / 1us));
    testing::Test::RecordProperty("busy_p99_us", static_cast<int>(*busy / 1us));
}

TEST(AnObserverThatNeverReads, DelaysNoChange) {
    const daemon::test::DaemonHost host;
    const auto process = host.startReady();
    ASSERT_NE(process, nullptr);
    const auto idle = p99Of(change, sized(300, 100));
    ASSERT_TRUE(idle.has_value());
    Result<UniqueFd> deaf = ipc::dial(*ipc::servicePlace(ipc::kNotifyService, ipc::Domain::System, std::nullopt));
    ASSERT_TRUE(deaf.ok());
    ipc::Stream stream(std::move(*deaf));
    ASSERT_TRUE(stream.sendAll(frameOf(ipc::kObserveNotification, std::string(protocol::kUserDataDidChange))).ok());
    ASSERT_TRUE(stream.sendAll(frameOf(ipc::kNextNotification)).ok());
    const auto observed = p99Of(change, sized(300, 100));
    ASSERT_TRUE(observed.has_value());
    EXPECT_LE(*observed, 10 * std::max(*idle, kFloor)) << "idle " << idle->count() << " ns";
}

TEST(ANeighbourOfAHog, IsAnsweredAsSoonAsBefore) {
    expectUnslowed(ask, sized(2'000, 500));
}

TEST(ANeighbourOfAHog, ChangesItsItemsAsSoonAsBefore) {
    expectUnslowed(change, sized(300, 100));
}

}  // namespace
}  // namespace ksw::test
