// What a hub keeps for its observers, and what it takes from whom.
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <kestrelwood/KSWErrors.h>

#include "platform/base/limits.h"
#include "platform/host/log_capture.h"
#include "tests/platform/ipc/notification_service.h"
#include "tests/platform/ipc/raw_client.h"

namespace ksw::test {
namespace {

std::vector<std::int64_t> numbersOf(HubClient& client, int count) {
    std::vector<std::int64_t> numbers;
    for (int index = 0; index < count; ++index) {
        const Result<Notification> next = client.next();
        EXPECT_TRUE(next.ok()) << next.error().description();
        numbers.push_back(next ? numberOf(*next) : -1);
    }
    return numbers;
}

TEST(AHub, TellsAnObserverWhatWasPostedSinceItObserves) {
    const HostRoot root;
    ServedHub hub;
    HubClient client;
    hub->post(numbered("a", 1));
    ASSERT_TRUE(client.observe("a").ok());
    hub->post(numbered("b", 2));
    hub->post({"a", Dictionary{{"uid", 501}, {"names", Array{Value("x")}}}});
    const Result<Notification> next = client.next();
    ASSERT_TRUE(next.ok()) << next.error().description();
    EXPECT_EQ(*next, (Notification{"a", Dictionary{{"uid", 501}, {"names", Array{Value("x")}}}}));
}

TEST(AHub, AnswersAnObserverThatWaitsWhenSomethingIsPosted) {
    const HostRoot root;
    ServedHub hub;
    HubClient client;
    ASSERT_TRUE(client.observe("a").ok());
    std::optional<Result<Notification>> next;
    std::jthread waiting([&] { next = client.next(); });
    hub->post({"a", std::nullopt});
    waiting.join();
    ASSERT_TRUE(next->ok());
    EXPECT_EQ(**next, (Notification{"a", std::nullopt}));
}

/// An observer of "a" whose request for the next notification the hub holds: a second one is refused.
RawClient waitingObserver() {
    RawClient client(ipc::kNotifyService);
    const std::optional<std::string> name("a");
    const ipc::ArgumentSource argument[] = {ipc::sourceOf(name)};
    client.request(1, ipc::kObserveNotification.selector, argument);
    EXPECT_EQ(client.next()->serial, 1U);
    client.request(2, ipc::kNextNotification.selector, {});
    client.request(3, ipc::kNextNotification.selector, {});
    EXPECT_EQ(client.next()->serial, 3U);
    return client;
}

TEST(AHub, TellsTheProcessThatMadeWhatIsToldAfterAllOthers) {
    const HostRoot root;
    ServedHub hub;
    int ends[2]{};
    ASSERT_EQ(::pipe(ends), 0);
    const UniqueFd reading(ends[0]);
    const UniqueFd writing(ends[1]);
    // The older observer, which would be told first.
    const pid_t child = ::fork();
    if (child == 0) {
        RawClient client = waitingObserver();
        const bool isTold = ::write(writing.get(), "?", 1) == 1 && client.next().has_value();
        ::_exit(isTold && ::write(writing.get(), "!", 1) == 1 ? 0 : 1);
    }
    char byte = 0;
    EXPECT_EQ(::read(reading.get(), &byte, 1), 1);
    RawClient client = waitingObserver();
    hub->post({"a", std::nullopt}, child);
    EXPECT_EQ(::read(reading.get(), &byte, 1), 1);
    pollfd told{client.fd(), POLLIN, 0};
    EXPECT_EQ(::poll(&told, 1, 0), 1);
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(AHub, TellsTheCauseOrTheOthersWhereOnlyTheyAreMeant) {
    const HostRoot root;
    ServedHub hub(ipc::Domain::System, [](const Notification& older, const Notification& newer) {
        return numbered("a", numberOf(older) + numberOf(newer));
    });
    HubClient client;
    ASSERT_TRUE(client.observe("a").ok());
    const pid_t another = ::getppid();
    hub->post(numbered("a", 1), ::getpid(), ipc::Audience::Others);
    hub->post(numbered("a", 2), ::getpid(), ipc::Audience::Cause);
    hub->post(numbered("a", 4), another, ipc::Audience::Others);
    hub->post(numbered("a", 8), another, ipc::Audience::Cause);
    EXPECT_EQ(numbersOf(client, 1), (std::vector<std::int64_t>{6}));
}

TEST(AHub, KeepsTheLatestOfEachNameInTheOrderInWhichTheNamesCame) {
    const HostRoot root;
    ServedHub hub;
    HubClient client;
    for (const char* name : {"a", "b", "c"}) {
        ASSERT_TRUE(client.observe(name).ok());
    }
    for (std::int64_t number = 0; number < 300; number += 3) {
        hub->post(numbered("b", number));
        hub->post(numbered("c", number + 1));
        hub->post(numbered("a", number + 2));
    }
    EXPECT_EQ(numbersOf(client, 3), (std::vector<std::int64_t>{297, 298, 299}));
}

TEST(AHub, MakesOneOfTwoAsItIsTold) {
    const HostRoot root;
    ServedHub hub(ipc::Domain::System, [](const Notification& older, const Notification& newer) {
        return numbered("another name", numberOf(older) + numberOf(newer));
    });
    HubClient client;
    ASSERT_TRUE(client.observe("a").ok());
    for (std::int64_t number = 1; number <= 4; ++number) {
        hub->post(numbered("a", number));
    }
    const Result<Notification> next = client.next();
    ASSERT_TRUE(next.ok());
    EXPECT_EQ(*next, numbered("a", 10));
}

TEST(AHub, KeepsTheNewerWhereTheOneOfTwoIsTooLarge) {
    const HostRoot root;
    ServedHub hub(ipc::Domain::System, [](const Notification& older, const Notification&) {
        return Notification{older.name, Dictionary{{"text", std::string(limits::kNotificationMax, 'x')}}};
    });
    HubClient client;
    ASSERT_TRUE(client.observe("a").ok());
    hub->post(numbered("a", 1));
    hub->post(numbered("a", 2));
    EXPECT_EQ(numbersOf(client, 1), (std::vector<std::int64_t>{2}));
}

TEST(AHub, LetsAnOrdinaryPostThrough) {
    const HostRoot root;
    ServedHub hub;
    HubClient observer;
    HubClient poster;
    ASSERT_TRUE(observer.observe("a").ok());
    EXPECT_EQ(poster.post("a", Dictionary{{"number", 7}}), "0");
    EXPECT_EQ(numbersOf(observer, 1), (std::vector<std::int64_t>{7}));
}

TEST(AHubOfASession, LetsItsUserPost) {
    const HostRoot root;
    ServedHub hub(ipc::Domain::Session);
    HubClient observer(ipc::Domain::Session);
    HubClient poster(ipc::Domain::Session);
    ASSERT_TRUE(observer.observe("a").ok());
    EXPECT_EQ(poster.post("a", Dictionary{{"number", 7}}), "0");
    EXPECT_EQ(numbersOf(observer, 1), (std::vector<std::int64_t>{7}));
}

/// What another user than the hub's owner gets for a post of "a"; `hub` must have been made for uid 0 alone. Run by
/// an ordinary user it asks itself, by uid 0 a child that becomes another.
std::string postOfAnotherUser(const HostRoot& root) {
    if (::geteuid() != 0) {
        return HubClient().post("a", Dictionary{{"number", 666}});
    }
    EXPECT_EQ(::chmod(root.folder().path().c_str(), 0755), 0);
    int ends[2]{};
    EXPECT_EQ(::pipe(ends), 0);
    const UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0) {
            ::_exit(1);
        }
        const std::string answer = HubClient().post("a", Dictionary{{"number", 666}});
        ::_exit(::write(writing.get(), answer.data(), answer.size()) < 0 ? 1 : 0);
    }
    writing.reset();
    char answer[512]{};
    const ssize_t size = ::read(reading.get(), answer, sizeof answer);
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return std::string(answer, size < 0 ? 0 : static_cast<std::size_t>(size));
}

TEST(AHub, RefusesThePostOfAnotherUserAndTellsNobody) {
    ipc::NotificationHub hub(ipc::Domain::System);  // before there is a host root: for uid 0 alone
    const HostRoot root;
    ipc::Server server;
    ASSERT_TRUE(server.listen(ipc::kNotifyService, ipc::Domain::System, hub.service()).ok());
    ASSERT_TRUE(server.start().ok());
    HubClient observer;
    ASSERT_TRUE(observer.observe("a").ok());
    EXPECT_EQ(postOfAnotherUser(root), std::to_string(KSWErrorPermissionDenied));
    hub.post(numbered("a", 1));
    EXPECT_EQ(numbersOf(observer, 1), (std::vector<std::int64_t>{1}));
}

TEST(AHub, TakesTheLongestNameAndNoneThatIsLongerOrEmpty) {
    const HostRoot root;
    ServedHub hub;
    HubClient client;
    const std::string longest(limits::kSelectorMax, 'n');
    EXPECT_TRUE(client.observe(longest).ok());
    EXPECT_EQ(client.post(longest), "0");
    EXPECT_EQ(client.next()->name, longest);
    for (const std::optional<std::string>& name :
         {std::optional(longest + "n"), std::optional<std::string>(""), std::optional<std::string>()}) {
        const auto reply = client.observe(name);
        ASSERT_FALSE(reply.ok());
        const std::string text =
            "a notification's name has 1 to 256 bytes, not " + std::to_string(name.value_or("").size());
        EXPECT_EQ(reply.error().localizedDescription(), text);
        EXPECT_EQ(*find<std::int64_t>(reply.error().userInfo(), ipc::kRefusalCodeKey),
                  static_cast<std::int64_t>(ipc::Refusal::ArgumentsInvalid));
        EXPECT_EQ(client.post(name), text);
    }
}

TEST(AHub, TakesTheLargestNotificationAndNotOneByteMore) {
    const HostRoot root;
    ServedHub hub;
    HubClient client;
    ASSERT_TRUE(client.observe("name0").ok());
    Notification largest{"name0", Dictionary{{"text", std::string(limits::kNotificationMax, 'x')}}};
    std::string& text = *largest.userInfo->at("text").as<std::string>();
    while (!ipc::encodeNotification(largest)) {
        text.pop_back();
    }
    EXPECT_EQ(client.post(largest.name, largest.userInfo), "0");
    EXPECT_EQ(*client.next(), largest);
    text.push_back('x');
    EXPECT_EQ(client.post(largest.name, largest.userInfo), "a notification has at most 65536 bytes, not 65537");
    const host::LogCapture log;
    hub->post(largest);
    EXPECT_EQ(log.at(host::LogLevel::Error),
              std::vector<std::string>{"notification \"name0\" dropped: a notification has at most 65536 bytes, "
                                       "not 65537"});
}

TEST(AHub, TakesAConnectionsLastNameAndNotOneMore) {
    const HostRoot root;
    ServedHub hub;
    HubClient client;
    for (std::size_t index = 0; index < limits::kNotificationNamesMax; ++index) {
        ASSERT_TRUE(client.observe("name" + std::to_string(index)).ok()) << index;
    }
    EXPECT_TRUE(client.observe("name0").ok()) << "known already";
    const auto reply = client.observe("one more");
    ASSERT_FALSE(reply.ok());
    EXPECT_EQ(reply.error().localizedDescription(), "a connection observes at most 64 names");
    EXPECT_EQ(*find<std::int64_t>(reply.error().userInfo(), ipc::kRefusalCodeKey), ipc::kTooManyNamesCode);
    hub->post({"one more", std::nullopt});
    hub->post({"name63", std::nullopt});
    EXPECT_EQ(client.next()->name, "name63");
}

TEST(AHub, MakesOneOfTwoOnceForAllWhoHaveNotTakenTheOlder) {
    const HostRoot root;
    int made = 0;
    ServedHub hub(ipc::Domain::System, [&](const Notification&, const Notification& newer) {
        ++made;
        return newer;
    });
    HubClient one;
    HubClient other;
    ASSERT_TRUE(one.observe("a").ok());
    ASSERT_TRUE(other.observe("a").ok());
    for (const std::int64_t number : {1, 2, 3}) {
        hub->post(numbered("a", number));
    }
    EXPECT_EQ(made, 2);
    EXPECT_EQ(numbersOf(one, 1), (std::vector<std::int64_t>{3}));
    EXPECT_EQ(numbersOf(other, 1), (std::vector<std::int64_t>{3}));
}

TEST(AHub, RefusesASecondRequestForTheNextWhileOneWaits) {
    const HostRoot root;
    ServedHub hub;
    RawClient client(ipc::kNotifyService);
    client.request(1, ipc::kNextNotification.selector, {});
    client.request(2, ipc::kNextNotification.selector, {});
    const auto refusal = client.next();
    ASSERT_TRUE(refusal.has_value());
    EXPECT_EQ(refusal->serial, 2U);
    EXPECT_EQ(refusal->kind, ipc::FrameKind::Refusal);
    const std::optional<std::string> name("a");
    const ipc::ArgumentSource argument[] = {ipc::sourceOf(name)};
    client.request(3, ipc::kObserveNotification.selector, argument);
    ASSERT_EQ(client.next()->serial, 3U);
    hub->post({"a", std::nullopt});
    EXPECT_EQ(client.next()->serial, 1U);
}

TEST(AHub, ForgetsAnObserverWhoseConnectionEnds) {
    const HostRoot root;
    ServedHub hub;
    {
        RawClient waiting(ipc::kNotifyService);
        waiting.request(1, ipc::kNextNotification.selector, {});
        HubClient idle;
        ASSERT_TRUE(idle.observe("a").ok());
        hub.awaitObservers(2);
        hub->post(numbered("a", 1));
    }
    hub.awaitObservers(0);
}

TEST(AHub, OutlivesItsServerWithAnswersStillOwed) {
    const HostRoot root;
    ipc::NotificationHub hub(ipc::Domain::System);
    HubClient client;
    std::jthread waiting;
    {
        ipc::Server server;
        ASSERT_TRUE(server.listen(ipc::kNotifyService, ipc::Domain::System, hub.service()).ok());
        ASSERT_TRUE(server.start().ok());
        ASSERT_TRUE(client.observe("a").ok());
        waiting = std::jthread([&] { EXPECT_FALSE(client.next().ok()); });
        while (server.counters().served + server.counters().refused < 1) {
            std::this_thread::yield();
        }
    }
    EXPECT_EQ(hub.observers(), 0U);
    hub.post(numbered("a", 1));
}

TEST(AnObserverThatNeverReads, DelaysNobodyAndMakesNothingGrow) {
    const HostRoot root;
    ServedHub hub;
    RawClient deaf(ipc::kNotifyService);
    const std::optional<std::string> name("a");
    const ipc::ArgumentSource argument[] = {ipc::sourceOf(name)};
    deaf.request(0, ipc::kObserveNotification.selector, argument);
    HubClient hearing;
    ASSERT_TRUE(hearing.observe("a").ok());
    hub.awaitObservers(2);
    // What the kernel holds for a socket takes a few; the connection holds one or two; the hub holds the latest.
    constexpr std::uint32_t kRequests = 100;
    const std::string text(60 * limits::kKiB, 'x');
    for (std::uint32_t number = 1; number <= 5 * kRequests; ++number) {
        if (number <= kRequests) {
            deaf.request(number, ipc::kNextNotification.selector, {});
        }
        hub->post({"a", Dictionary{{"number", number}, {"text", text}}});
        const Result<Notification> next = hearing.next();
        ASSERT_TRUE(next.ok()) << next.error().description();
        ASSERT_EQ(numberOf(*next), number);
    }
    // It reads at last. One of its requests waits in the end, and the others beside it are refused.
    hub->post({"a", std::nullopt});
    std::size_t large = 0;
    ASSERT_TRUE(deaf.next().has_value());
    for (std::uint32_t answers = 1; answers < kRequests; ++answers) {
        const auto answer = deaf.next();
        ASSERT_TRUE(answer.has_value()) << answers;
        large += answer->length > text.size() ? 1 : 0;
    }
    EXPECT_LT(large, 20U);
    EXPECT_EQ(hub.server().counters().quotaHits, 0U);
}

}  // namespace
}  // namespace ksw::test
