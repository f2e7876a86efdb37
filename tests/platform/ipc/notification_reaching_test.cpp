// How a process finds its hub: at first, after it was gone, and where the kernel does not help.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/base/unique_fd.h"
#include "platform/host/host_root.h"
#include "platform/host/log_capture.h"
#include "platform/host/sys.h"
#include "tests/platform/ipc/notification_service.h"
#include "tests/support/scripted_server.h"
#include "tests/support/sys_faults.h"

namespace ksw::test {
namespace {

using ipc::NotificationCenter;
using namespace std::chrono_literals;

/// What is told when something may have been missed.
std::vector<Notification> missed() {
    return {{"a", std::nullopt}};
}

/// Counts what other threads do.
class Counter {
public:
    void add() {
        ++count_;
        count_.notify_all();
    }
    void await(int count) {
        for (int now = count_; now < count; now = count_) {
            count_.wait(now);
        }
    }

private:
    std::atomic<int> count_{0};
};

/// An observation of "a" whose hub has gone.
class ACenterWhoseHubIsGone : public testing::Test {
protected:
    ACenterWhoseHubIsGone() { hub_.reset(); }

    /// Serves a hub again; what is told then, and that the center goes on.
    void expectFound() {
        hub_.emplace();
        EXPECT_EQ(told_.await(1), missed());
        (*hub_)->post(numbered("a", 1));
        EXPECT_EQ(told_.await(2).at(1), numbered("a", 1));
    }

    const HostRoot root_;
    Told told_;
    std::optional<ServedHub> hub_{std::in_place};
    NotificationCenter center_{ipc::Domain::System};
    NotificationCenter::Observation observation_ = center_.observe("a", told_.handler());
};

TEST_F(ACenterWhoseHubIsGone, FindsItInARunFolderThatWasMadeAgain) {
    std::filesystem::remove_all(host::systemRunFolder());
    expectFound();
}

TEST_F(ACenterWhoseHubIsGone, FindsItWhereTheFoldersAboveWereMadeAgain) {
    std::filesystem::remove_all(root_.folder().at("run"));
    expectFound();
}

TEST_F(ACenterWhoseHubIsGone, FindsItInANewRunFolderWhileTheOldOneIsHeldOpen) {
    const UniqueFd held(::open(host::systemRunFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(held);
    std::filesystem::remove_all(host::systemRunFolder());
    expectFound();
}

TEST_F(ACenterWhoseHubIsGone, FindsItAgainAndAgain) {
    for (std::size_t round = 0; round < 5; ++round) {
        hub_.emplace();
        const auto told = told_.await(round + 1);
        EXPECT_EQ(told.back(), missed().front());
        hub_.reset();
    }
}

TEST_F(ACenterWhoseHubIsGone, TellsNothingWhenNobodyObservedMeanwhile) {
    // Returns when the center has looked for the hub in vain.
    { const auto other = center_.observe("b", told_.handler()); }
    observation_ = {};
    observation_ = center_.observe("a", told_.handler());
    hub_.emplace();
    hub_->awaitObservers(1);
    (*hub_)->post(numbered("a", 1));
    EXPECT_EQ(told_.await(1).at(0), numbered("a", 1));
}

TEST_F(ACenterWhoseHubIsGone, HasFoundANewOneWhenAnotherNameIsObserved) {
    hub_.emplace();
    Told other;
    const auto second = center_.observe("b", other.handler());
    (*hub_)->post(numbered("b", 1));
    // Whether "b" was observed in time to be told that something may have been missed is open.
    const bool isInTime = other.await(1).front() == Notification{"b", std::nullopt};
    EXPECT_EQ(other.await(isInTime ? 2 : 1).back(), numbered("b", 1));
    EXPECT_EQ(told_.await(1), missed());
}

TEST(ACenterWhoseNewHubIsSilent, EndsAtOnce) {
    const HostRoot root;
    std::optional<ServedHub> hub(std::in_place);
    auto center = std::make_unique<NotificationCenter>(ipc::Domain::System);
    const auto observation = center->observe("a", [](const Notification&) {});
    hub.reset();
    Counter asked;
    const ScriptedServer silent(ipc::kNotifyService, [&](ScriptedConnection& connection) {
        while (connection.next()) {
            asked.add();
        }
    });
    asked.await(1);
    center.reset();
}

TEST(ACenterBelowAHubsPlace, WaitsFromTheNearestFolderThatExists) {
    const HostRoot root;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    const auto observation = center.observe("a", told.handler());
    root.folder().makeFolder("run");
    root.folder().makeFolder("run/other");
    ServedHub hub;
    hub.awaitObservers(1);
    hub->post(numbered("a", 1));
    EXPECT_EQ(told.await(1).at(0), numbered("a", 1));
}

TEST(ACenterWithoutAHub, ObservesAtOnceAndTellsNothingUntilOneComes) {
    const HostRoot root;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    const auto observation = center.observe("a", told.handler());
    ServedHub hub;
    hub.awaitObservers(1);
    hub->post(numbered("a", 1));
    EXPECT_EQ(told.await(1).at(0), numbered("a", 1)) << "the first hub is no reason to tell anything";
}

TEST(ACenterWhoseHubIsRestarted, TellsOnceThatSomethingMayHaveBeenMissedAndGoesOn) {
    const HostRoot root;
    std::optional<ServedHub> hub;
    hub.emplace();
    NotificationCenter center(ipc::Domain::System);
    Told told;
    const auto one = center.observe("a", told.handler());
    const auto other = center.observe("b", told.handler());
    hub.reset();
    hub.emplace();
    const std::vector<Notification> missed = told.await(2);
    EXPECT_EQ(missed, (std::vector<Notification>{{"a", std::nullopt}, {"b", std::nullopt}}));
    (*hub)->post(numbered("b", 1));
    EXPECT_EQ(told.await(3).at(2), numbered("b", 1));
}

TEST(ACenterThatMayNotWatchFolders, FindsItsHubByTheClock) {
    for (const host::sys::Call call : {host::sys::Call::InotifyInit, host::sys::Call::InotifyAddWatch}) {
        const HostRoot root;
        SysFaults faults;
        faults.failAll(call, call == host::sys::Call::InotifyInit ? EMFILE : ENOSPC);
        std::optional<ServedHub> hub(std::in_place);
        NotificationCenter center(ipc::Domain::System);
        Told told;
        const auto observation = center.observe("a", told.handler());
        hub.reset();
        hub.emplace();
        EXPECT_EQ(told.await(1), missed());
    }
}

TEST(ACenterWhoseHubBindsBeforeItListens, LooksAgain) {
    const HostRoot root;
    root.folder().makeFolder("run/kestrelwood");
    const std::string path = host::systemServicePath(ipc::kNotifyService);
    Result<UniqueFd> socket = host::sys::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK);
    ASSERT_TRUE(socket.ok());
    ASSERT_TRUE(host::sys::bindUnix(socket->get(), path).ok());
    NotificationCenter center(ipc::Domain::System);
    const auto observation = center.observe("a", [](const Notification&) {});
    ASSERT_TRUE(host::sys::listen(socket->get(), 1).ok());
    pollfd arrival{socket->get(), POLLIN, 0};
    EXPECT_EQ(::poll(&arrival, 1, 60'000), 1);
}

TEST(ACenterThatIsTurnedAway, LooksAgainAtGrowingDistances) {
    const HostRoot root;
    const auto start = std::chrono::steady_clock::now();
    Counter turnedAway;
    const ScriptedServer hub(ipc::kNotifyService, [&](ScriptedConnection&) { turnedAway.add(); });
    NotificationCenter center(ipc::Domain::System);
    const auto observation = center.observe("a", [](const Notification&) {});
    turnedAway.await(4);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);  // at once, at once, 100 ms, 200 ms
}

TEST(ACenterWhoseHubKnowsNoNotifications, ComplainsOnceAndLooksAgainAtGrowingDistances) {
    const HostRoot root;
    const host::LogCapture log;
    Counter left;
    const ScriptedServer hub(ipc::kNotifyService, [&](ScriptedConnection& connection) {
        while (const auto request = connection.next()) {
            connection.refuse(request->serial, 1, "no such method");
        }
        left.add();
    });
    {
        NotificationCenter center(ipc::Domain::System);
        const auto observation = center.observe("a", [](const Notification&) {});
        left.await(3);
    }
    EXPECT_EQ(log.count("notifications: no such method"), 1U);
}

}  // namespace
}  // namespace ksw::test
