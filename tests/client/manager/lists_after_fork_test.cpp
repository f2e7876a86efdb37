// What a child has of its parent's lists, whatever the parent's other threads were at when it was forked.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "client/manager/list_registry.h"
#include "platform/host/fork_guarded.h"
#include "tests/client/manager/list_daemon.h"
#include "tests/support/sanitized.h"

namespace ksw::test {
namespace {

using client::ListRegistry;
using host::ForkGuarded;
using ::testing::ElementsAre;

/// A child that takes longer hangs: the kernel ends it.
constexpr unsigned kSecondsMax = 60;

/// Whether it holds in a child.
template <class Act>
bool inAChild(const Act& act) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(kSecondsMax);
        ::_exit(act() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status == 0;
}

/// Where one thread stays until another lets it go on.
class Stop {
public:
    void stay() {
        isReached_ = true;
        isReached_.notify_all();
        mayGo_.wait(false);
    }
    void awaitReached() { isReached_.wait(false); }
    void letGo() {
        mayGo_ = true;
        mayGo_.notify_all();
    }

private:
    std::atomic<bool> isReached_ = false;
    std::atomic<bool> mayGo_ = false;
};

TEST(WhatALockGuards, BeginsAnewInAChildOfAThreadThatDidNotHoldTheLock) {
    ForkGuarded<std::vector<int>> numbers;
    numbers.lock()->push_back(1);
    Stop stop;
    {
        const std::jthread thread([&] {
            const auto held = numbers.lock();
            stop.stay();
            held->push_back(2);
        });
        stop.awaitReached();
        EXPECT_TRUE(inAChild([&] {
            const bool wasEmpty = numbers.lock()->empty();
            numbers.lock()->push_back(3);
            return wasEmpty && numbers.lock()->size() == 1;
        }));
        stop.letGo();
    }
    EXPECT_THAT(*numbers.lock(), ElementsAre(1, 2));
}

TEST(WhatALockGuards, IsInAChildAsItWasWhenNobodyHeldTheLock) {
    ForkGuarded<std::vector<int>> numbers;
    numbers.lock()->push_back(1);
    EXPECT_TRUE(inAChild([&] { return *numbers.lock() == std::vector<int>{1}; }));
}

TEST(WhatALockGuards, IsOneThreadsAtATime) {
    constexpr int kRounds = 20'000;
    ForkGuarded<int> number;
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&number] {
                for (int round = 0; round < kRounds; ++round) {
                    ++*number.lock();
                }
            });
        }
    }
    EXPECT_EQ(*number.lock(), 4 * kRounds);
}

TEST(ARegistryOfLists, TakesListsInAChildOfAThreadThatWasNotAddingOne) {
    ListRegistry registry;
    const auto list = KSWList::initWithItems({}, 501, 8, nullptr);
    Stop stop;
    const std::jthread thread([&] { registry.add(list, [&stop] { stop.stay(); }); });
    stop.awaitReached();
    EXPECT_TRUE(inAChild([&] {
        registry.add(list, [] {});
        return registry.living() == ListRegistry::Lists{list};
    }));
    stop.letGo();
}

/// A manager and a daemon, and no capture of the log: a child could find its locks held, too.
class AChild : public ::testing::Test {
protected:
    AChild() {
        // The process's own manager may have been left with the connection of an earlier test.
        KSWManager::shared().UIDs();
        daemon_.has({itemNamed("8.a"), itemNamed("8.b")});
        daemon_.start();
    }

    HostRoot root_;
    ListDaemon daemon_;
    std::shared_ptr<KSWManager> manager_ = KSWManager::initWithMode(0);
};

TEST_F(AChild, FetchesRefreshesAndReadsListsWhileItsParentsThreadsAreAtThem) {
    const auto list = manager_->getItemsMatching(8, 501);
    ASSERT_NE(list, nullptr);
    const auto witness = std::make_shared<Witness>();
    std::atomic<bool> isOver = false;
    const auto again = [&isOver](const auto& act) {
        return std::jthread([&isOver, act] {
            while (!isOver) {
                act();
            }
        });
    };
    std::vector<std::jthread> atThem;
    // AddressSanitizer's own allocator stays locked in a child that is forked while another thread allocates.
    if (!kHasAddressSanitizer) {
        atThem.push_back(again([&] { manager_->getItemsMatching(8, 501); }));
        atThem.push_back(again([&] {
            list->setItems({itemNamed("8.c"), itemNamed("8.d")});
            list->addListObserver(witness);
            list->removeListObserver(witness);
            list->refresh();
        }));
    }
    int failures = 0;
    for (int round = 0; round < (kHasAddressSanitizer ? 1 : 20); ++round) {
        failures += inAChild([&] {
            const auto fetched = manager_->getItemsMatching(8, 501);
            list->addListObserver(witness);
            const bool isObserved = list->observers().contains(witness);
            list->removeListObserver(witness);
            return fetched != nullptr && fetched->count() == 2 && isObserved && list->items().size() == 2 &&
                   list->refresh() && list->itemAtIndex(0)->identifier() == "8.a";
        })
                        ? 0
                        : 1;
    }
    isOver = true;
    EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace ksw::test
