// Who is served next when several wait.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>

#include "platform/ipc/server_core.h"
#include "tests/platform/ipc/test_service.h"

namespace ksw::test {
namespace {

using namespace std::chrono_literals;

/// Takes so long that one such request is a whole turn.
void workForATurn() {
    const auto end = ipc::coarseNow() + 5ms;
    while (ipc::coarseNow() < end) {
    }
}

TEST(AConnectionWithManyRequests, LetsAnotherHaveItsTurnBetweenThem) {
    constexpr int kRequests = 50;
    const HostRoot root;
    std::latch hasBegun(1);
    std::promise<void> otherHasAsked;
    const std::shared_future<void> mayGoOn = otherHasAsked.get_future().share();
    std::atomic<int> served = 0;
    ipc::Dispatcher dispatcher = testDispatcher();
    dispatcher.on(
        kAdd, [&](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder, std::int64_t, std::int64_t) {
            if (served++ == 0) {
                hasBegun.count_down();
                mayGoOn.wait();
            }
            workForATurn();
            responder.answer(0);
        });
    int servedBefore = 0;
    std::latch isServed(kRequests + 1);
    dispatcher.on(kNothing, [&](const ipc::RequestContext&, ipc::Responder<> responder) {
        servedBefore = served;
        responder.answer();
    });
    ipc::ServerOptions options;
    options.workers = 1;
    const TestServer server(options, std::move(dispatcher));
    const auto many = testConnection();
    const auto other = testConnection();
    for (int request = 0; request < kRequests; ++request) {
        many->callAsync(
            kAdd, [&](const auto&) { isServed.count_down(); }, 1, 2);
    }
    hasBegun.wait();
    other->callAsync(kNothing, [&](const auto&) { isServed.count_down(); });
    otherHasAsked.set_value();
    isServed.wait();
    EXPECT_LT(servedBefore, 10);
}

}  // namespace
}  // namespace ksw::test
