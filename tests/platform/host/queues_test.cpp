// The main queue, and the queue on which reads run together and changes alone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <kestrelwood/main_queue.h>

#include "platform/host/concurrent_queue.h"

namespace ksw::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

bool isReadable(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    return ::poll(&waiting, 1, 0) == 1;
}

TEST(TheMainQueue, RunsBlocksInTheirOrderOnTheThreadThatRunsIt) {
    std::vector<int> ran;
    std::thread::id where;
    std::thread giver([&] {
        for (int number = 0; number < 100; ++number) {
            MainQueue::async([&ran, number] { ran.push_back(number); });
        }
        MainQueue::async([&where] {
            where = std::this_thread::get_id();
            MainQueue::stop();
        });
    });
    MainQueue::run();
    giver.join();
    EXPECT_EQ(ran.size(), 100U);
    EXPECT_TRUE(std::is_sorted(ran.begin(), ran.end()));
    EXPECT_EQ(where, std::this_thread::get_id());
}

TEST(TheMainQueue, HasADescriptorThatIsReadableWhileBlocksWait) {
    MainQueue::async([] {});
    const int fd = MainQueue::descriptor();
    ASSERT_GE(fd, 0);
    EXPECT_EQ(MainQueue::descriptor(), fd);
    EXPECT_TRUE(isReadable(fd));
    MainQueue::async(nullptr);
    EXPECT_EQ(MainQueue::runWaiting(), 2U);
    EXPECT_FALSE(isReadable(fd));
    EXPECT_EQ(MainQueue::runWaiting(), 0U);
    MainQueue::async([] {});
    EXPECT_TRUE(isReadable(fd));
    MainQueue::runWaiting();
}

TEST(TheMainQueue, LeavesWhatComesWhileItRunsForTheNextTime) {
    std::vector<std::string> ran;
    MainQueue::async([&ran] {
        ran.emplace_back("first");
        MainQueue::async([&ran] { ran.emplace_back("second"); });
        EXPECT_EQ(MainQueue::runWaiting(), 0U);  // a block waits for no other
    });
    EXPECT_EQ(MainQueue::runWaiting(), 1U);
    EXPECT_THAT(ran, ElementsAre("first"));
    EXPECT_TRUE(isReadable(MainQueue::descriptor()));
    EXPECT_EQ(MainQueue::runWaiting(), 1U);
    EXPECT_THAT(ran, ElementsAre("first", "second"));
}

TEST(TheMainQueue, StopsAfterTheBlockThatRunsAndKeepsTheOthers) {
    int ran = 0;
    MainQueue::async([&ran] {
        ++ran;
        MainQueue::stop();
    });
    MainQueue::async([&ran] { ++ran; });
    MainQueue::run();
    EXPECT_EQ(ran, 1);
    MainQueue::stop();
    MainQueue::run();  // told to end before it began
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(MainQueue::runWaiting(), 1U);
}

TEST(TheMainQueue, GivesBackWhatABlockOwnsWhenItHasRun) {
    auto owned = std::make_shared<int>(1);
    const std::weak_ptr<int> gone = owned;
    MainQueue::async([owned = std::move(owned)] { EXPECT_EQ(*owned, 1); });
    MainQueue::runWaiting();
    EXPECT_TRUE(gone.expired());
}

TEST(TheMainQueue, OfAForkedChildIsItsOwnAndEmpty) {
    const int fd = MainQueue::descriptor();
    MainQueue::async([] {});
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isEmpty = MainQueue::runWaiting() == 0;
        MainQueue::async([] {});
        const bool isOwn = MainQueue::descriptor() != fd && isReadable(MainQueue::descriptor());
        ::_exit(isEmpty && isOwn && MainQueue::runWaiting() == 1 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(MainQueue::runWaiting(), 1U);
}

TEST(AConcurrentQueue, RunsReadsTogether) {
    ConcurrentQueue queue("test");
    EXPECT_EQ(queue.name(), "test");
    std::latch together(2);
    std::thread other([&] { queue.sync([&] { together.arrive_and_wait(); }); });
    queue.sync([&] { together.arrive_and_wait(); });
    other.join();
    EXPECT_EQ(queue.sync([] { return 7; }), 7);
}

TEST(AConcurrentQueue, RunsAChangeAtOnceWhenNobodyReads) {
    ConcurrentQueue queue("test");
    std::thread::id where;
    queue.barrierAsync([&] { where = std::this_thread::get_id(); });
    EXPECT_EQ(where, std::this_thread::get_id());
}

TEST(AConcurrentQueue, RunsAChangeAfterTheReadsBeforeItAndBeforeThoseAfterIt) {
    ConcurrentQueue queue("test");
    std::latch isReading(1);
    std::latch mayGo(1);
    int value = 0;
    std::thread::id changer;
    std::thread reader([&] {
        queue.sync([&] {
            isReading.count_down();
            mayGo.wait();
            EXPECT_EQ(value, 0);
        });
    });
    isReading.wait();
    queue.barrierAsync([&] {
        value = 1;
        changer = std::this_thread::get_id();
    });
    queue.barrierAsync([&] { value *= 10; });
    const std::thread::id first = reader.get_id();
    std::thread later([&] { EXPECT_EQ(queue.sync([&] { return value; }), 10); });
    mayGo.count_down();
    reader.join();
    later.join();
    EXPECT_EQ(changer, first);
}

TEST(AConcurrentQueue, RunsAChangeThatIsGivenInARead) {
    ConcurrentQueue queue("test");
    std::vector<std::string> ran;
    queue.sync([&] {
        queue.barrierAsync([&] {
            ran.emplace_back("change");
            queue.barrierAsync([&] { ran.emplace_back("another"); });
            ran.emplace_back("changed");
        });
        EXPECT_THAT(ran, IsEmpty());
    });
    EXPECT_THAT(ran, ElementsAre("change", "changed", "another"));
}

TEST(AConcurrentQueue, LosesNoChangeAndShowsNoneHalf) {
    constexpr int kChanges = 2'000;
    ConcurrentQueue queue("test");
    int left = 0;
    int right = 0;
    std::vector<std::thread> threads;
    for (int writer = 0; writer < 2; ++writer) {
        threads.emplace_back([&] {
            for (int change = 0; change < kChanges; ++change) {
                queue.barrierAsync([&] {
                    ++left;
                    ++right;
                });
            }
        });
    }
    for (int reader = 0; reader < 2; ++reader) {
        threads.emplace_back([&] {
            for (int read = 0; read < kChanges; ++read) {
                EXPECT_TRUE(queue.sync([&] { return left == right; }));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(queue.sync([&] { return left; }), 2 * kChanges);
}

}  // namespace
}  // namespace ksw::host
