// Answers that may wait for ever, and what a service keeps for a connection.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <thread>

#include "tests/platform/ipc/notification_service.h"
#include "tests/platform/ipc/raw_client.h"
#include "tests/platform/ipc/test_service.h"
#include "tests/support/sys_faults.h"

namespace ksw::test {
namespace {

using namespace std::chrono_literals;

TEST(AnAnswerThatMayWaitForEver, IsNotLateWhenOthersAre) {
    const HostRoot root;
    ipc::NotificationHub hub(ipc::Domain::System);
    ipc::ServerOptions options;
    options.limits.request = 20ms;
    options.limits.longRequest = 20ms;
    options.limits.launchQuestion = 20ms;
    options.limits.stall = 20ms;
    ipc::Dispatcher dispatcher = hub.service();
    std::optional<ipc::Responder<>> kept;
    dispatcher.on(kNeverAnswered, [&](const ipc::RequestContext&, ipc::Responder<> responder) {
        kept.emplace(std::move(responder));
    });
    ipc::Server server(options);
    ASSERT_TRUE(server.listen(ipc::kNotifyService, ipc::Domain::System, std::move(dispatcher)).ok());
    ASSERT_TRUE(server.start().ok());
    HubClient client;
    ASSERT_TRUE(client.observe("a").ok());
    std::optional<Result<Notification>> next;
    std::jthread waiting([&] { next = client.next(); });
    const auto late = client.connection().call(kNeverAnswered);
    ASSERT_FALSE(late.ok());
    EXPECT_EQ(late.error().localizedDescription(), "the server took too long");
    hub.post(numbered("a", 1));
    waiting.join();
    ASSERT_TRUE(next->ok()) << next->error().description();
    EXPECT_EQ(numberOf(**next), 1);
}

TEST(AServerThatOwesOnlyAnswersThatMayWait, ArmsNoTimer) {
    const HostRoot root;
    const SysFaults calls;
    ServedHub hub;
    RawClient client(ipc::kNotifyService);
    client.request(1, ipc::kNextNotification.selector, {});
    hub.awaitObservers(1);
    EXPECT_EQ(calls.count(host::sys::Call::TimerFdSet), 0U);
}

TEST(WhatAServiceKeepsForAConnection, IsMadeOnceAndFreedWhenTheConnectionEnds) {
    struct Kept {
        std::int64_t sum = 0;
        std::vector<ipc::Responder<>> waiting;  // which keep the connection's peer
    };
    const HostRoot root;
    std::vector<std::weak_ptr<Kept>> made;
    const auto keptOf = [&](const ipc::RequestContext& context) -> Kept& {
        return context.keep<Kept>([&] {
            auto kept = std::make_shared<Kept>();
            made.push_back(kept);
            return kept;
        });
    };
    ipc::Dispatcher dispatcher;
    dispatcher.on(
        kAdd, [&](const ipc::RequestContext& context, ipc::Responder<std::int64_t> responder, std::int64_t number,
                  std::int64_t) { responder.answer(keptOf(context).sum += number); });
    dispatcher.on(kNeverAnswered, [&](const ipc::RequestContext& context, ipc::Responder<> responder) {
        keptOf(context).waiting.push_back(std::move(responder));
    });
    const TestServer server({}, std::move(dispatcher));
    {
        const auto connection = testConnection();
        EXPECT_EQ(std::get<0>(*connection->call(kAdd, 3, 0)), 3);
        EXPECT_EQ(std::get<0>(*connection->call(kAdd, 4, 0)), 7);
        EXPECT_EQ(std::get<0>(*testConnection()->call(kAdd, 1, 0)), 1) << "another connection's own";
        connection->callAsync(kNeverAnswered, [](const auto&) {});
        EXPECT_EQ(std::get<0>(*connection->call(kAdd, 0, 0)), 7);
        ASSERT_EQ(made.size(), 2U);
        EXPECT_FALSE(made[0].expired());
    }
    const auto end = std::chrono::steady_clock::now() + kTooLong;
    while (!(made[0].expired() && made[1].expired()) && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(made[0].expired());
    EXPECT_TRUE(made[1].expired());
}

TEST(AConnectionThatIsEnded, FailsWhatIsInFlightAndDialsNoMore) {
    const HostRoot root;
    ServedHub hub;
    HubClient client;
    std::optional<Result<Notification>> next;
    std::jthread waiting([&] { next = client.next(); });
    hub.awaitObservers(1);
    client.connection().end();
    waiting.join();
    EXPECT_EQ(connectionErrorOf(*next), ConnectionError::Invalidated);
    EXPECT_EQ(connectionErrorOf(client.next()), ConnectionError::Invalidated);
}

TEST(AConnectionThatIsEndedBeforeItHasDialled, NeverDials) {
    const HostRoot root;
    ServedHub hub;
    HubClient client;
    client.connection().end();
    EXPECT_EQ(connectionErrorOf(client.next()), ConnectionError::Invalidated);
    EXPECT_EQ(hub.server().counters().connections, 0U);
}

}  // namespace
}  // namespace ksw::test
