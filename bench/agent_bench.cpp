// agent_bench.cpp: requests to the per-user agent beside the same bytes to and fro over a bare socket: one that
// blocks, and many that do not, in flight at once; and the time from the announcement of a change to the call of a
// controller's delegate beside two raw round trips. Client and peers share one CPU. With --strict it ends with 1
// when a ratio is over its target.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

#include <kestrelwood/KSWAgentConnection.h>
#include <kestrelwood/KSWLoginItemController.h>
#include <kestrelwood/main_queue.h>

#include "bench/support/child_process.h"
#include "bench/support/peer.h"
#include "bench/support/question.h"
#include "bench/support/raw_sockets.h"
#include "bench/support/rounds.h"
#include "client/protocol/agent_service.h"
#include "client/protocol/services.h"
#include "platform/archive/cbor_reader.h"
#include "platform/ipc/body.h"
#include "platform/ipc/notification_hub.h"
#include "platform/ipc/server.h"

namespace {

namespace methods = ksw::protocol::agent;

using ksw::Data;
using ksw::bench::RawSocket;
using ksw::bench::Sizes;
using MaybeError = std::optional<ksw::Error>;
using LoginItemList = std::vector<std::shared_ptr<KSWLoginItem>>;

constexpr int kRounds = 9;
constexpr int kRequestsPerRound = 5'000;
constexpr int kInFlight = 64;
constexpr int kAnnouncements = 2'001;
constexpr double kBlockingTarget = 1.25;
constexpr double kInFlightTarget = 1.0;
constexpr double kAnnouncementTarget = 2.0;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
}

std::shared_ptr<KSWLoginItem> someItem() {
    return KSWLoginItem::initWithURL(ksw::URL::fileURL("/usr/bin/env"));
}

template <class... A>
std::size_t requestSize(std::string_view selector, const A&... arguments) {
    Data frame;
    const ksw::ipc::ArgumentSource sources[] = {ksw::ipc::sourceOf(arguments)..., {}};
    if (!ksw::ipc::encodeRequest(selector, {sources, sizeof...(A)}, frame)) {
        fail("a request cannot be written");
    }
    return frame.size();
}

template <class... R>
std::size_t encodeReply(Data& frame, const R&... arguments) {
    const ksw::ipc::ArgumentSource sources[] = {ksw::ipc::sourceOf(arguments)..., {}};
    if (!ksw::ipc::encodeReply({sources, sizeof...(R)}, frame)) {
        fail("a reply cannot be written");
    }
    return frame.size();
}

/// Answers a login item that is added, and the opening of the settings, with no error.
void answer(const ksw::ipc::Frame& frame, Data& buffer) {
    ksw::archive::DecodeBudget budget(frame.body.size());
    ksw::archive::Reader reader(frame.body, budget);
    std::size_t count = 0;
    std::string_view selector;
    if (!reader.enterArray(count) || !reader.text(selector)) {
        std::exit(2);
    }
    std::shared_ptr<KSWLoginItem> item;
    const ksw::ipc::ArgumentPlace places[] = {ksw::ipc::placeOf(item)};
    const std::size_t arguments = selector == methods::kAddLoginItem.selector ? 1 : 0;
    if (!ksw::ipc::decodeArguments(reader, {places, arguments}, {})) {
        std::exit(2);
    }
    encodeReply(buffer, MaybeError());
    ksw::ipc::writeHeader({ksw::ipc::FrameKind::Reply,
                           static_cast<std::uint32_t>(buffer.size() - ksw::ipc::kHeaderSize), frame.header.serial},
                          std::span(buffer).first<ksw::ipc::kHeaderSize>());
}

bool report(const char* what, double nanoseconds, double floor, const char* floorName, double target) {
    std::printf("%s: %.0f ns, %s: %.0f ns, ratio %.2f (target: at most %.2f)\n", what, nanoseconds, floorName,
                floor, nanoseconds / floor, target);
    return nanoseconds / floor <= target;
}

template <class Body>
std::function<void()> repeated(int times, Body body) {
    return [times, body] {
        for (int time = 0; time < times; ++time) {
            body();
        }
    };
}

bool measureBlocking() {
    KSWAgentConnection& agent = KSWAgentConnection::sharedInstance();
    const auto item = someItem();
    Data reply;
    RawSocket raw({requestSize(methods::kAddLoginItem.selector, item), encodeReply(reply, MaybeError())});
    const auto add = [&] {
        agent.addLoginItem(item, [](const MaybeError& error) {
            if (error) {
                fail("the item was not added");
            }
        });
    };
    const auto middles = ksw::bench::middleRounds(
        kRounds, {repeated(kRequestsPerRound, [&] { raw.exchange(); }), repeated(kRequestsPerRound, add)});
    return report("a request that blocks", middles[1] / kRequestsPerRound, middles[0] / kRequestsPerRound,
                  "bare socket", kBlockingTarget);
}

bool measureInFlight() {
    KSWAgentConnection& agent = KSWAgentConnection::sharedInstance();
    Data reply;
    RawSocket raw({requestSize(methods::kOpenLoginItems.selector), encodeReply(reply, MaybeError())});
    const auto manyAtOnce = [&] {
        std::atomic<int> left = kInFlight;
        for (int request = 0; request < kInFlight; ++request) {
            agent.openLoginItemsWithReply([&left](const MaybeError& error) {
                if (error) {
                    fail("the request was not answered");
                }
                if (left.fetch_sub(1) == 1) {
                    left.notify_one();
                }
            });
        }
        for (int now = left; now != 0; now = left) {
            left.wait(now);
        }
    };
    constexpr int kBatches = kRequestsPerRound / kInFlight;
    const auto middles = ksw::bench::middleRounds(
        kRounds, {repeated(kBatches * kInFlight, [&] { raw.exchange(); }), repeated(kBatches, manyAtOnce)});
    return report("one of 64 requests in flight", middles[1] / (kBatches * kInFlight),
                  middles[0] / (kBatches * kInFlight), "bare socket", kInFlightTarget);
}

std::int64_t now() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

/// When the change was announced, as the agent writes it and the client reads it.
std::atomic<std::int64_t>& sharedMoment() {
    void* page = ::mmap(nullptr, sizeof(std::atomic<std::int64_t>), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        fail("mmap");
    }
    return *new (page) std::atomic<std::int64_t>(0);
}

/// An agent with one login item, and the hub of its session: announces a change for each byte that it reads.
void announce(const ksw::bench::Readiness& readiness, int orders, std::atomic<std::int64_t>& moment) {
    using ksw::ipc::Domain;
    ksw::ipc::NotificationHub hub(Domain::Session);
    ksw::ipc::Server hubServer({.workers = 1});
    ksw::ipc::Server server;
    ksw::ipc::Dispatcher dispatcher;
    const LoginItemList items{someItem()};
    dispatcher.on(methods::kGetLoginItems, [&items](const ksw::ipc::RequestContext&,
                                                    ksw::ipc::Responder<methods::LoginItems, MaybeError> responder,
                                                    std::uint64_t) { responder.answer(items, {}); });
    if (!hubServer.listen(ksw::ipc::kNotifyService, Domain::Session, hub.service()) || !hubServer.start() ||
        !server.listen(ksw::kAgentService, Domain::Session, std::move(dispatcher)) || !server.start()) {
        fail("the agent cannot serve");
    }
    readiness.say();
    for (char order = 0; ::read(orders, &order, 1) == 1;) {
        moment = now();
        hub.post({std::string(kKSWBackgroundItemsChangeNotification), std::nullopt});
    }
}

/// Ends the run of the main queue when it is told.
struct Teller : KSWLoginItemControllerDelegate {
    void loginItemControllerDidChangeItems(const std::shared_ptr<KSWLoginItemController>&) override {
        toldAt = now();
        ksw::MainQueue::stop();
    }
    std::int64_t toldAt = 0;
};

bool measureAnnouncements() {
    Data reply;
    const MaybeError none;
    const methods::LoginItems items = LoginItemList{someItem()};
    const Sizes sizes{requestSize(methods::kGetLoginItems.selector, KSWItemTypeAll),
                      encodeReply(reply, items, none)};
    std::atomic<std::int64_t>& moment = sharedMoment();
    int orders[2];
    if (::pipe(orders) != 0) {
        fail("pipe");
    }
    RawSocket raw(sizes);
    ksw::bench::Readiness readiness;
    const ksw::bench::ChildProcess agent([&] { announce(readiness, orders[0], moment); });
    readiness.await();
    const auto teller = std::make_shared<Teller>();
    const auto controller = KSWLoginItemController::initWithTypeMask(KSWItemTypeAll, teller);
    ksw::MainQueue::run();  // what was fetched first
    ksw::MainQueue::run();  // and when the hub knew the controller
    std::vector<double> calls;
    std::vector<double> floors;
    for (int announcement = 0; announcement < kAnnouncements; ++announcement) {
        if (::write(orders[1], "!", 1) != 1) {
            fail("write");
        }
        ksw::MainQueue::run();
        calls.push_back(static_cast<double>(teller->toldAt - moment));
        const std::int64_t begin = now();
        raw.exchange();
        raw.exchange();
        floors.push_back(static_cast<double>(now() - begin));
    }
    const auto middle = [](std::vector<double>& times) {
        std::nth_element(times.begin(), times.begin() + kAnnouncements / 2, times.end());
        return times[kAnnouncements / 2];
    };
    return report("from a notification to the delegate's call", middle(calls), middle(floors), "two round trips",
                  kAnnouncementTarget);
}

/// Measures in a child: the process's one connection to the agent is for the other peer.
bool measuredInAChild(bool (*measure)()) {
    const pid_t child = ::fork();
    if (child == 0) {
        const bool holds = measure();
        std::fflush(stdout);
        ::_exit(holds ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) > 1) {
        fail("the child could not measure");
    }
    return WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int count, char** words) {
    ksw::bench::stayOnOneCpu();
    const ksw::bench::BenchRoot root;
    bool holds = measuredInAChild(measureAnnouncements);
    const auto peer = ksw::bench::peerThat(ksw::kAgentService, ksw::ipc::Domain::Session, answer);
    holds = measureBlocking() && holds;
    holds = measureInFlight() && holds;
    return ksw::bench::exitStatus(holds, count, words);
}
