// What a server grants its peers, and what it does to those that take more.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <latch>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/host/sys.h"
#include "platform/ipc/body.h"
#include "platform/ipc/frame.h"
#include "tests/platform/ipc/raw_client.h"
#include "tests/platform/ipc/test_service.h"
#include "tests/support/in_child.h"
#include "tests/support/sanitized.h"

namespace ksw::test {
namespace {

using namespace std::chrono_literals;

ipc::ServerOptions withLimits(void (*change)(ipc::ServerLimits&)) {
    ipc::ServerOptions options;
    change(options.limits);
    return options;
}

Data headerOf(ipc::FrameKind kind, std::size_t length) {
    Data header(ipc::kHeaderSize);
    ipc::writeHeader({kind, static_cast<std::uint32_t>(length), 1}, std::span(header).first<ipc::kHeaderSize>());
    return header;
}

/// A request whose body has exactly this many bytes.
Data requestOfSize(std::size_t size) {
    const std::optional<Data> bytes(Data(size - 64, 0x11));
    Data frame;
    const ipc::ArgumentSource sources[] = {ipc::sourceOf(bytes)};
    EXPECT_TRUE(ipc::encodeRequest(kEchoBytes.selector, sources, frame).ok());
    const std::size_t missing = size + ipc::kHeaderSize - frame.size();
    const std::optional<Data> exact(Data(size - 64 + missing, 0x11));
    const ipc::ArgumentSource again[] = {ipc::sourceOf(exact)};
    EXPECT_TRUE(ipc::encodeRequest(kEchoBytes.selector, again, frame).ok());
    EXPECT_EQ(frame.size(), size + ipc::kHeaderSize);
    return frame;
}

TEST(AServer, ReadsTheLargestRequestOfItsCallerAndNotOneByteMore) {
    const HostRoot root;
    const TestServer server(withLimits([](ipc::ServerLimits& limits) {
        limits.requestBody = 10'000;
        limits.rootRequestBody = 10'000;
    }));
    for (const std::size_t size : {std::size_t{10'000}, std::size_t{10'001}}) {
        RawClient client;
        Data frame = requestOfSize(size);
        ipc::writeHeader({ipc::FrameKind::Request, static_cast<std::uint32_t>(size), 1},
                         std::span(frame).first<ipc::kHeaderSize>());
        client.send(frame);
        EXPECT_EQ(client.next().has_value(), size == 10'000) << size;
    }
}

void expectLargestRequest() {
    const HostRoot root;
    const TestServer server;
    const auto connection = testConnection();
    const std::size_t max = ::geteuid() == 0 ? limits::kRootRequestBodyMax : limits::kRequestBodyMax;
    std::optional<Data> bytes(Data(max - 64, 0x11));
    Data frame;
    const ipc::ArgumentSource sources[] = {ipc::sourceOf(bytes)};
    ASSERT_TRUE(ipc::encodeRequest(kEchoBytes.selector, sources, frame).ok());
    // The string's own bound is reached before root's.
    bytes->resize(std::min(limits::kStringMax, bytes->size() + max + ipc::kHeaderSize - frame.size()));
    const auto last = connection->call(kEchoBytes, bytes);
    EXPECT_TRUE(last.ok()) << last.error().description();
    bytes->push_back(0);
    EXPECT_EQ(connectionErrorOf(connection->call(kEchoBytes, bytes)), ConnectionError::RequestTooLarge);
    EXPECT_TRUE(connection->call(kAdd, 1, 2).ok());
}

TEST(ARequestOfAClient, MayBeAsLargeAsItsServerReadsAndNotOneByteMore) {
    asOrdinaryUser(expectLargestRequest);
    // Sanitizers copy a buffer each time that it grows, which for root's bound takes them many seconds.
    if (!kIsSanitized && ::geteuid() == 0) {
        expectLargestRequest();
    }
}

TEST(AServer, ClosesAConnectionThatSendsNoFrames) {
    const HostRoot root;
    TestServer server;
    RawClient client;
    client.send(Data(64, 0xEE));
    EXPECT_FALSE(client.next().has_value());
    EXPECT_EQ(server.server().counters().dropped, 1U);
}

TEST(AServer, ClosesAConnectionThatSendsReplies) {
    const HostRoot root;
    TestServer server;
    RawClient client;
    client.send(headerOf(ipc::FrameKind::Reply, 0));
    EXPECT_FALSE(client.next().has_value());
    EXPECT_EQ(server.server().counters().dropped, 1U);
}

TEST(AServer, RefusesABodyThatIsNoRequestAndGoesOn) {
    const HostRoot root;
    const TestServer server;
    RawClient client;
    Data frame = headerOf(ipc::FrameKind::Request, 1);
    frame.push_back(0xF6);
    client.send(frame);
    auto answer = client.next();
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->kind, ipc::FrameKind::Refusal);
    EXPECT_EQ(answer->serial, 1U);
    client.request(2, kNothing.selector, {});
    answer = client.next();
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->kind, ipc::FrameKind::Reply);
    EXPECT_EQ(answer->serial, 2U);
}

TEST(AServer, ClosesAFrameThatMakesNoProgress) {
    const HostRoot root;
    TestServer server(withLimits([](ipc::ServerLimits& limits) { limits.stall = 20ms; }));
    RawClient client;
    const Data header = headerOf(ipc::FrameKind::Request, 100);
    client.send(Bytes(header).first(10));
    EXPECT_FALSE(client.next().has_value());
    EXPECT_EQ(server.server().counters().dropped, 1U);
}

TEST(AServer, ClosesAConnectionWhoseReplyIsNotTaken) {
    const HostRoot root;
    TestServer server(withLimits([](ipc::ServerLimits& limits) { limits.stall = 20ms; }));
    RawClient client;
    const std::optional<Data> bytes(Data(900'000, 0x22));
    const ipc::ArgumentSource sources[] = {ipc::sourceOf(bytes)};
    client.request(1, kEchoBytes.selector, sources);
    // Only the end of the connection is waited for: nothing is read meanwhile.
    pollfd waiting{client.fd(), POLLRDHUP, 0};
    EXPECT_EQ(::poll(&waiting, 1, 30'000), 1);
    EXPECT_EQ(server.server().counters().dropped, 1U);
}

TEST(AServer, AnswersForAHandlerThatIsLate) {
    const HostRoot root;
    std::mutex mutex;
    std::list<ipc::Responder<>> kept;
    ipc::Dispatcher dispatcher = testDispatcher();
    dispatcher.on(kNeverAnswered, [&](const ipc::RequestContext&, ipc::Responder<> responder) {
        const std::lock_guard lock(mutex);
        kept.push_back(std::move(responder));
    });
    TestServer server(withLimits([](ipc::ServerLimits& limits) { limits.request = 20ms; }), std::move(dispatcher));
    const auto connection = testConnection();
    const auto reply = connection->call(kNeverAnswered);
    ASSERT_EQ(connectionErrorOf(reply), ConnectionError::Refused);
    EXPECT_EQ(*find<std::int64_t>(reply.error().userInfo(), ipc::kRefusalCodeKey),
              static_cast<std::int64_t>(ipc::Refusal::TooLate));
    {
        const std::lock_guard lock(mutex);
        kept.front().answer();  // is dropped
        kept.clear();
    }
    EXPECT_TRUE(connection->call(kAdd, 1, 2).ok());
    EXPECT_EQ(server.server().counters().refused, 1U);
}

TEST(AServer, StopsReadingAtItsLastRequestInFlightAndGoesOnWhenOneIsAnswered) {
    constexpr int kRequests = 200;
    const HostRoot root;
    std::mutex mutex;
    std::list<ipc::Responder<>> kept;
    std::latch full(static_cast<std::ptrdiff_t>(limits::kRequestsInFlightMax));
    ipc::Dispatcher dispatcher = testDispatcher();
    std::size_t most = 0;
    bool isOpen = false;
    dispatcher.on(kNeverAnswered, [&](const ipc::RequestContext&, ipc::Responder<> responder) {
        const std::lock_guard lock(mutex);
        if (isOpen) {
            responder.answer();
            return;
        }
        kept.push_back(std::move(responder));
        most = std::max(most, kept.size());
        full.count_down();
    });
    const TestServer server({}, std::move(dispatcher));
    RawClient client;
    for (std::uint32_t serial = 0; serial < kRequests; ++serial) {
        client.request(serial, kNeverAnswered.selector, {});
    }
    full.wait();
    {
        const std::lock_guard lock(mutex);
        isOpen = true;
        for (ipc::Responder<>& responder : kept) {
            responder.answer();
        }
    }
    for (int answers = 0; answers < kRequests; ++answers) {
        const auto answer = client.next();
        ASSERT_TRUE(answer.has_value()) << answers;
        EXPECT_EQ(answer->kind, ipc::FrameKind::Reply);
    }
    EXPECT_EQ(most, limits::kRequestsInFlightMax);
    const std::lock_guard lock(mutex);
    kept.clear();
}

TEST(AServer, ClosesAConnectionBeyondItsUsersLast) {
    const HostRoot root;
    TestServer server(withLimits([](ipc::ServerLimits& limits) { limits.connectionsPerUid = 3; }));
    std::list<RawClient> clients(3);
    for (RawClient& client : clients) {
        client.request(1, kNothing.selector, {});
        EXPECT_TRUE(client.next().has_value());
    }
    RawClient beyond;
    EXPECT_FALSE(beyond.next().has_value());
    EXPECT_GE(server.server().counters().quotaHits, 1U);
    EXPECT_EQ(server.server().counters().connections, 3U);
}

TEST(AServerThatIsFull, AcceptsAgainWhenAConnectionEnds) {
    const HostRoot root;
    const TestServer server(withLimits([](ipc::ServerLimits& limits) {
        limits.connections = 2;
        limits.connectionsReservedForRoot = 0;
    }));
    std::list<RawClient> clients(2);
    for (RawClient& client : clients) {
        client.request(1, kNothing.selector, {});
        EXPECT_TRUE(client.next().has_value());
    }
    RawClient waiting;
    waiting.request(1, kNothing.selector, {});
    clients.pop_front();
    EXPECT_TRUE(waiting.next().has_value());
}

TEST(AServer, ClosesDescriptorsThatArePassedToIt) {
    const HostRoot root;
    const TestServer server;
    RawClient client;
    int ends[2]{};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    Data frame;
    ASSERT_TRUE(ipc::encodeRequest(kNothing.selector, {}, frame).ok());
    ipc::writeHeader({ipc::FrameKind::Request, static_cast<std::uint32_t>(frame.size() - ipc::kHeaderSize), 1},
                     std::span(frame).first<ipc::kHeaderSize>());
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
    iovec part{frame.data(), frame.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int passed = writing.get();
    std::memcpy(CMSG_DATA(header), &passed, sizeof passed);
    ASSERT_TRUE(host::sys::sendMessage(client.fd(), message).ok());
    writing.reset();
    EXPECT_TRUE(client.next().has_value());
    char byte = 0;
    EXPECT_EQ(::read(reading.get(), &byte, 1), 0) << "somebody still holds the other end";
}

TEST(AServer, StopsWhileAnswersAreStillOwed) {
    const HostRoot root;
    std::optional<ipc::Responder<>> kept;
    std::latch arrived(1);
    ipc::Dispatcher dispatcher = testDispatcher();
    dispatcher.on(kNeverAnswered, [&](const ipc::RequestContext&, ipc::Responder<> responder) {
        kept.emplace(std::move(responder));
        arrived.count_down();
    });
    auto server = std::make_unique<TestServer>(ipc::ServerOptions{}, std::move(dispatcher));
    const auto connection = testConnection();
    std::optional<ConnectionError> error;
    std::jthread caller([&] { error = connectionErrorOf(connection->call(kNeverAnswered)); });
    arrived.wait();
    server.reset();
    caller.join();
    EXPECT_EQ(error, ConnectionError::Interrupted);
    kept->answer();
}

TEST(AServersPeer, GetsEveryAnswerOfABatchThatIsLargerThanWhatMayWait) {
    const HostRoot root;
    ipc::Dispatcher dispatcher;
    // Short questions with long answers: the questions arrive together, and their answers outgrow what may wait.
    dispatcher.on(kEchoBytes, [](const ipc::RequestContext&, ipc::Responder<std::optional<Data>> responder,
                                 const std::optional<Data>&) { responder.answer(Data(40 * limits::kKiB)); });
    const TestServer server({}, std::move(dispatcher));
    RawClient client;
    const std::optional<Data> nothing;
    const ipc::ArgumentSource argument[] = {ipc::sourceOf(nothing)};
    constexpr std::uint32_t kQuestions = 40;
    Data together;
    for (std::uint32_t serial = 0; serial < kQuestions; ++serial) {
        Data frame;
        ASSERT_TRUE(ipc::encodeRequest(kEchoBytes.selector, argument, frame).ok());
        ipc::writeHeader(
            {ipc::FrameKind::Request, static_cast<std::uint32_t>(frame.size() - ipc::kHeaderSize), serial},
            std::span(frame).first<ipc::kHeaderSize>());
        together.insert(together.end(), frame.begin(), frame.end());
    }
    client.send(together);
    for (std::uint32_t answers = 0; answers < kQuestions; ++answers) {
        ASSERT_TRUE(client.next().has_value());
    }
}

}  // namespace
}  // namespace ksw::test
