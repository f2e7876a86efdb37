// How a process finds its hub: at first, after it was gone, and where the kernel does not help.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
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
    NotificationCenter::Observation observation_ = observeKnown(center_, "a", told_.handler());
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

TEST_F(ACenterWhoseHubIsGone, TellsAlsoWhoObservesOnlySinceThen) {
    observation_ = {};
    observation_ = center_.observe("a", told_.handler());
    expectFound();
}

TEST_F(ACenterWhoseHubIsGone, TellsTheNewOneAnotherName) {
    hub_.emplace();
    Told other;
    const auto second = center_.observe("b", other.handler());
    EXPECT_EQ(other.await(1), (std::vector<Notification>{{"b", std::nullopt}}));
    (*hub_)->post(numbered("b", 1));
    EXPECT_EQ(other.await(2).at(1), numbered("b", 1));
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

TEST(ACenterWhoseHubIsSilent, LetsNobodyWaitWhoObservesOrEnds) {
    const HostRoot root;
    Counter asked;
    const ScriptedServer silent(ipc::kNotifyService, [&](ScriptedConnection& connection) {
        while (connection.next()) {
            asked.add();
        }
    });
    NotificationCenter center(ipc::Domain::System);
    const auto first = center.observe("a", [](const Notification&) {});
    asked.await(1);
    const auto second = center.observe("b", [](const Notification&) {});
    {
        const auto third = center.observe("a", [](const Notification&) {});
    }
}

/// A hub whose first connection goes wrong: it does with the request to observe "b" what the test says. All others
/// are answered; the next notification never comes.
class AHubThatGoesWrong {
public:
    using Wrong = std::function<void(ScriptedConnection&, std::uint32_t serial)>;
    explicit AHubThatGoesWrong(Wrong wrong) : wrong_(std::move(wrong)) {}

private:
    void serve(ScriptedConnection& connection) {
        const bool isFirst = !wasReached_.exchange(true);
        int observed = 0;
        while (const auto request = connection.next()) {
            if (request->selector != ipc::kObserveNotification.selector) {
                continue;
            }
            if (isFirst && ++observed == 2) {
                wrong_(connection, request->serial);
            } else {
                connection.reply(request->serial);
            }
        }
    }

    const Wrong wrong_;
    std::atomic<bool> wasReached_{false};
    ScriptedServer server_{ipc::kNotifyService, [this](ScriptedConnection& connection) { serve(connection); }};
};

void expectAnotherSession(AHubThatGoesWrong::Wrong wrong) {
    const HostRoot root;
    const AHubThatGoesWrong hub(std::move(wrong));
    NotificationCenter center(ipc::Domain::System);
    Told a;
    Told b;
    const auto first = center.observe("a", a.handler());
    a.await(1);
    const auto second = center.observe("b", b.handler());
    EXPECT_EQ(b.await(1), (std::vector<Notification>{{"b", std::nullopt}}));
    EXPECT_EQ(a.await(2).at(1), (Notification{"a", std::nullopt})) << "it may have missed something";
}

TEST(ACenterWhoseHubAnswersNonsense, BeginsAnotherSession) {
    expectAnotherSession(
        [](ScriptedConnection& connection, std::uint32_t serial) { connection.reply(serial, std::int64_t{7}); });
}

TEST(ACenterWhoseHubRefusesForNow, BeginsAnotherSession) {
    for (const ipc::Refusal refusal :
         {ipc::Refusal::NotAnswered, ipc::Refusal::TooLate, ipc::Refusal::Overloaded}) {
        expectAnotherSession([&](ScriptedConnection& connection, std::uint32_t serial) {
            connection.refuse(serial, static_cast<std::int64_t>(refusal), "not now");
        });
    }
}

TEST(ACenterBelowAHubsPlace, WaitsFromTheNearestFolderThatExists) {
    const HostRoot root;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    const auto observation = center.observe("a", told.handler());
    root.folder().makeFolder("run");
    root.folder().makeFolder("run/other");
    ServedHub hub;
    EXPECT_EQ(told.await(1), missed());
    hub->post(numbered("a", 1));
    EXPECT_EQ(told.await(2).at(1), numbered("a", 1));
}

TEST(ACenterWithoutAHub, ObservesAtOnceAndTellsThatSomethingMayHaveBeenMissedWhenOneComes) {
    const HostRoot root;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    const auto observation = center.observe("a", told.handler());
    ServedHub hub;
    EXPECT_EQ(told.await(1), missed()) << "something may have changed before the hub came";
    hub->post(numbered("a", 1));
    EXPECT_EQ(told.await(2).at(1), numbered("a", 1));
}

TEST(ACenterWhoseHubIsRestarted, TellsOnceThatSomethingMayHaveBeenMissedAndGoesOn) {
    const HostRoot root;
    std::optional<ServedHub> hub;
    hub.emplace();
    NotificationCenter center(ipc::Domain::System);
    Told told;
    const auto one = observeKnown(center, "a", told.handler());
    const auto other = observeKnown(center, "b", told.handler());
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
        const auto observation = observeKnown(center, "a", told.handler());
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
