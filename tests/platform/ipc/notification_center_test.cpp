// How a process observes notifications: what its handlers are told, when, and for how long.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <latch>
#include <optional>
#include <stdexcept>
#include <thread>

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
    const auto observation = center.observe("a", told.handler());
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
    const auto first = center.observe("a", one.handler());
    const auto second = center.observe("a", other.handler());
    const auto third = center.observe("b", neither.handler());
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
    const auto first = one.observe("a", toldOne.handler());
    const auto second = other.observe("a", toldOther.handler());
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
    const auto observation = center.observe("a", told.handler());
    system->post(numbered("a", 1));
    hub->post(numbered("a", 2));
    EXPECT_EQ(told.await(1).at(0), numbered("a", 2));
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

TEST(AnObservation, IsOverWhenItIsDestroyed) {
    const HostRoot root;
    ServedHub hub;
    NotificationCenter center(ipc::Domain::System);
    Told ended;
    Told told;
    { const auto observation = center.observe("a", ended.handler()); }
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
    observation = center.observe("a", [&](const Notification& notification) {
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

}  // namespace
}  // namespace ksw::test
