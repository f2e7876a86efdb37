// How a process observes notifications: what its handlers are told, when, and for how long.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <future>
#include <latch>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/base/limits.h"
#include "platform/host/log_capture.h"
#include "tests/platform/ipc/notification_service.h"

namespace ksw::test {
namespace {

using ipc::NotificationCenter;

TEST(ACenter, TellsAnObserverNameAndUserInformation) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    const auto observation = observeKnown(center, "a", told.handler());
    hub->post({"a", Dictionary{{"uid", 501}, {"type", 4}}});
    EXPECT_EQ(told.await(1).at(0), (Notification{"a", Dictionary{{"uid", 501}, {"type", 4}}}));
}

TEST(ACenter, TellsAllWhoObserveANameAndNobodyElse) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told one;
    Told other;
    Told neither;
    const auto first = observeKnown(center, "a", one.handler());
    const auto second = center.observe("a", other.handler());
    const auto third = observeKnown(center, "b", neither.handler());
    hub->post(numbered("a", 1));
    EXPECT_EQ(one.await(1).size(), 1U);
    EXPECT_EQ(other.await(1).size(), 1U);
    hub->post(numbered("b", 2));
    EXPECT_EQ(neither.await(1), std::vector<Notification>{numbered("b", 2)});
}

TEST(TwoCenters, AreBothTold) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter one(ipc::Domain::System);
    NotificationCenter other(ipc::Domain::System);
    Told toldOne;
    Told toldOther;
    const auto first = observeKnown(one, "a", toldOne.handler());
    const auto second = observeKnown(other, "a", toldOther.handler());
    hub->post(numbered("a", 1));
    EXPECT_EQ(toldOne.await(1), std::vector<Notification>{numbered("a", 1)});
    EXPECT_EQ(toldOther.await(1), std::vector<Notification>{numbered("a", 1)});
}

TEST(ACenterOfASession, ObservesTheSessionsHub) {
    const HostRoot root;
    ServedHub system;
    ServedHub hub(ipc::Domain::Session);
    NotificationCenter center(ipc::Domain::Session);
    Told told;
    const auto observation = observeKnown(center, "a", told.handler());
    system->post(numbered("a", 1));
    hub->post(numbered("a", 2));
    EXPECT_EQ(told.await(1).at(0), numbered("a", 2));
}

TEST(AnObservation, IsOverWhenItIsDestroyed) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told ended;
    Told told;
    { const auto observation = observeKnown(center, "a", ended.handler()); }
    const auto observation = center.observe("a", told.handler());
    hub->post(numbered("a", 1));
    told.await(1);
    EXPECT_TRUE(ended.await(0).empty());
}

TEST(AnObservation, MayBeDestroyedByItsHandler) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    std::optional<NotificationCenter::Observation> observation;
    observation = observeKnown(center, "a", [&](const Notification& notification) {
        observation.reset();
        told.add(notification);
    });
    Told other;
    const auto later = center.observe("a", other.handler());
    hub->post(numbered("a", 1));
    other.await(1);
    hub->post(numbered("a", 2));
    other.await(2);
    EXPECT_EQ(told.await(1).size(), 1U);
}

TEST(AnObservationThatIsDestroyed, WaitsForItsHandlerThatRuns) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    std::latch entered(1);
    std::latch go(1);
    std::atomic<bool> isThrough{false};
    std::optional<NotificationCenter::Observation> observation(observeKnown(center, "a", [&](const Notification&) {
        entered.count_down();
        go.wait();
        isThrough = true;
    }));
    hub->post(numbered("a", 1));
    entered.wait();
    const std::jthread other([&] { go.count_down(); });
    observation.reset();
    EXPECT_TRUE(isThrough);
}

TEST(AnObservationThatIsDestroyed, FreesItsHandler) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    auto captured = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = captured;
    {
        const auto observation = center.observe("a", [captured = std::move(captured)](const Notification&) {});
    }
    EXPECT_TRUE(watched.expired());
}

TEST(AnObservation, MayBeginInAHandler) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    NotificationCenter::Observation second;
    const auto first = observeKnown(center, "a", [&](const Notification& notification) {
        second = center.observe("b", told.handler());
        told.add(notification);
    });
    hub->post(numbered("a", 1));
    EXPECT_EQ(told.await(2), (std::vector<Notification>{numbered("a", 1), {"b", std::nullopt}}));
    hub->post(numbered("b", 2));
    EXPECT_EQ(told.await(3).at(2), numbered("b", 2));
}

TEST(AnObservation, OutlivesItsCenter) {
    const HostRoot root;
    ServedHub hub;
    Told told;
    NotificationCenter::Observation observation;
    {
        NotificationCenter center(ipc::Domain::System);
        observation = observeKnown(center, "a", told.handler());
    }
    hub->post(numbered("a", 1));
    EXPECT_TRUE(told.await(0).empty());
}

TEST(ACenter, MayBeDestroyedByAHandler) {
    const HostRoot root;
    ServedHub hub;
    auto center = std::make_unique<NotificationCenter>(ipc::Domain::System);
    Told told;
    const auto observation = observeKnown(*center, "a", [&](const Notification& notification) {
        center.reset();
        told.add(notification);
    });
    hub->post(numbered("a", 1));
    told.await(1);
    hub.awaitObservers(0);
}

TEST(ACenterThatWasStoppedForAWhile, TellsTheLatestOfEachNameInTheirOrder) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    std::latch entered(1);
    std::latch go(1);
    const auto first = observeKnown(center, "first", [&](const Notification&) {
        entered.count_down();
        go.wait();
    });
    const auto a = observeKnown(center, "a", told.handler());
    const auto b = observeKnown(center, "b", told.handler());
    hub->post({"first", std::nullopt});
    entered.wait();
    for (std::int64_t number = 0; number < 200; number += 2) {
        hub->post(numbered("b", number));
        hub->post(numbered("a", number + 1));
    }
    go.count_down();
    told.await(2);
    hub->post(numbered("a", 1000));
    EXPECT_EQ(told.await(3),
              (std::vector<Notification>{numbered("b", 198), numbered("a", 199), numbered("a", 1000)}));
}

TEST(ACenterThatIsSuspended, KeepsOneOfEachAndTellsItOnGoingOn) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    const auto summing =
        observeKnown(center, "a", told.handler(), [](const Notification& older, const Notification& newer) {
            return numbered("a", numberOf(older) + numberOf(newer));
        });
    const auto latest = center.observe("a", told.handler());
    const auto last = observeKnown(center, "b", told.handler());
    std::uint64_t served = hub.server().counters().served;
    center.setSuspended(true);
    for (std::int64_t number = 1; number <= 3; ++number) {
        hub->post(numbered("a", number));
        hub.awaitServed(++served);
    }
    hub->post(numbered("b", 4));
    hub.awaitServed(++served);  // has been asked for, so the others are there
    EXPECT_TRUE(told.await(0).empty());
    center.setSuspended(false);
    EXPECT_EQ(told.await(3), (std::vector<Notification>{numbered("a", 6), numbered("a", 3), numbered("b", 4)}));
    hub->post(numbered("a", 5));
    EXPECT_EQ(told.await(5).at(4), numbered("a", 5));
}

TEST(AName, ThatIsNoNotificationsIsTheCallersBug) {
    NotificationCenter center(ipc::Domain::System);
    const auto nothing = [](const Notification&) {};
    EXPECT_THROW((void)center.observe("", nothing), std::invalid_argument);
    EXPECT_THROW((void)center.observe(std::string(limits::kSelectorMax + 1, 'n'), nothing), std::invalid_argument);
}

TEST(ANameThatTheHubTakesNoMore, IsALineInTheLog) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    std::vector<NotificationCenter::Observation> observations;
    const host::LogCapture log;
    for (std::size_t index = 0; index <= limits::kNotificationNamesMax; ++index) {
        observations.push_back(center.observe("name" + std::to_string(index), told.handler()));
    }
    EXPECT_EQ(told.await(64).size(), 64U) << "as the hub learns each";
    hub.awaitRefused(1);
    hub->post({"name64", std::nullopt});
    hub->post(numbered("name63", 1));
    EXPECT_EQ(told.await(65).at(64), numbered("name63", 1));
    EXPECT_EQ(log.at(host::LogLevel::Error),
              std::vector<std::string>{"notification \"name64\" is not observed: a connection observes at most 64 "
                                       "names"});
}

TEST(AHandlerWithoutMemory, IsToldLaterThatItMayHaveMissedSomething) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    const auto other = observeKnown(center, "b", [](const Notification&) {});
    const auto observation = observeKnown(center, "a", [&](const Notification& notification) {
        if (numberOf(notification) == 1) {
            throw std::bad_alloc();
        }
        told.add(notification);
    });
    hub->post(numbered("a", 1));
    hub->post(numbered("b", 2));
    EXPECT_EQ(told.await(1), (std::vector<Notification>{{"a", std::nullopt}}));
    hub->post(numbered("a", 3));
    EXPECT_EQ(told.await(2).at(1), numbered("a", 3));
}

/// The signals that the calling thread blocks, as the kernel has them: bit 0 is signal 1.
std::uint64_t blockedSignals() {
    std::ifstream status("/proc/thread-self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("SigBlk:")) {
            return std::stoull(line.substr(7), nullptr, 16);
        }
    }
    return 0;
}

TEST(TheLibrarysThreads, LeaveTheProgramsSignalsToItsOwn) {
    const HostRoot root;
    ServedHub hub;
    const std::uint64_t former = blockedSignals();
    std::uint64_t all = 0x7fffffff;
    // Two cannot be blocked, and the others a thread raises itself.
    for (const int never : {SIGKILL, SIGSTOP, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
        all &= ~(std::uint64_t{1} << static_cast<unsigned>(never - 1));
    }
    NotificationCenter center(ipc::Domain::System);
    std::promise<std::uint64_t> centers;
    const auto observation =
        observeKnown(center, "a", [&](const Notification&) { centers.set_value(blockedSignals()); });
    hub->post(numbered("a", 1));
    EXPECT_EQ(centers.get_future().get() & all, all);
    std::promise<std::uint64_t> queues;
    HubClient client;
    client.connection().callAsync(
        ipc::kObserveNotification, [&](const auto&) { queues.set_value(blockedSignals()); }, "a");
    EXPECT_EQ(queues.get_future().get() & all, all);
    EXPECT_EQ(blockedSignals(), former) << "who starts them keeps its own";
}

TEST(AForkedChild, ObservesByItselfAndNothingOfItsParents) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told told;
    auto observation = observeKnown(center, "a", told.handler());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        observation = {};
        Told childs;
        const auto own = observeKnown(center, "a", childs.handler());
        const bool isPosted = HubClient().post("a", Dictionary{{"number", 1}}) == "0";
        const bool isTold = childs.await(1).at(0) == numbered("a", 1);
        ::_exit(isPosted && isTold && told.await(0).empty() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(told.await(1).at(0), numbered("a", 1));
}

}  // namespace
}  // namespace ksw::test
