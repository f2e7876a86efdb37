// Many threads on the same lists, while notifications come in.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <new>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "client/manager/list_registry.h"
#include "client/manager/refresh_turns.h"
#include "tests/client/manager/list_daemon.h"

namespace ksw::test {
namespace {

using client::RefreshOutcome;
using client::RefreshTurns;

constexpr int kRounds = 50;

class ListsOfManyThreads : public ListTest {
protected:
    ListsOfManyThreads() { daemon_.has({itemNamed("8.a"), itemNamed("8.b")}); }

    /// Runs each of these many times, all at once.
    static void together(const std::vector<std::function<void()>>& parts) {
        std::vector<std::jthread> threads;
        for (const auto& part : parts) {
            threads.emplace_back([&part] {
                for (int round = 0; round < kRounds; ++round) {
                    part();
                }
            });
        }
    }
};

TEST_F(ListsOfManyThreads, AreFetchedRefreshedObservedDroppedAndChangedAtOnce) {
    const auto list = manager_->getItemsMatching(8, 501);
    const auto witness = std::make_shared<Witness>();
    const auto lasting = std::make_shared<Witness>();
    list->addListObserver(lasting);
    const auto first = itemNamed("8.first");
    const auto second = itemNamed("8.second");
    std::atomic<int> wrong = 0;
    const auto expect = [&wrong](bool holds) { wrong += holds ? 0 : 1; };
    together({
        [&] { expect(manager_->getItemsMatching(8, 501) != nullptr); },
        [&] { expect(manager_->getItemsMatching(8, 501)->count() == 2); },
        [&] { expect(list->refresh()); },
        [&] { expect(list->refresh()); },
        [&] { list->addListObserver(witness); },
        [&] { list->removeListObserver(witness); },
        [&] { expect(list->updateItem(first)); },
        [&] { expect(list->addItem(second)); },
        [&] { expect(list->items().size() == 2 && list->itemAtIndex(1)->identifier() == "8.b"); },
        [&] { expect(list->containers().empty() && !list->description().empty()); },
        [&] { list->setUid(list->uid()); },
        [&] {
            manager_->handleUserDataDidChangeNotification({std::string(KSWUserDataDidChangeNotification), {}});
        },
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(first->generation(), kRounds);
    EXPECT_EQ(lasting->told().size(), static_cast<std::size_t>(kRounds));
}

TEST(TheTurnsOfAList, RunOneAtATimeAndAnswerWithWhatWasAskedLater) {
    RefreshTurns turns;
    std::atomic<int> running = 0;
    std::atomic<std::int64_t> asked = 0;
    std::atomic<int> wrong = 0;
    constexpr std::size_t kThreads = 8;
    {
        std::vector<std::jthread> threads;
        for (std::size_t index = 0; index < kThreads; ++index) {
            threads.emplace_back([&] {
                for (int round = 0; round < kRounds; ++round) {
                    const std::int64_t before = asked;
                    const RefreshOutcome outcome = turns.run([&] {
                        wrong += running.fetch_add(1) == 0 ? 0 : 1;
                        RefreshOutcome answer{true, Error("Ask", ++asked)};
                        std::this_thread::yield();
                        --running;
                        return answer;
                    });
                    wrong += outcome.hasList && outcome.error.value().code() > before ? 0 : 1;
                }
            });
        }
    }
    EXPECT_EQ(wrong, 0);
}

/// Turns, the first of which runs until it is released.
class TurnsBehindOneThatRuns : public ::testing::Test {
protected:
    TurnsBehindOneThatRuns() { isRunning_.wait(false); }
    ~TurnsBehindOneThatRuns() override { release(); }

    RefreshOutcome ask() { return {true, Error("Ask", ++asked_)}; }
    /// Waits until so many threads wait for the one that asks.
    void awaitWaiting(std::size_t count) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (turns_.waiting() != count && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        EXPECT_EQ(turns_.waiting(), count);
    }
    void release() {
        mayEnd_ = true;
        mayEnd_.notify_all();
    }

    RefreshTurns turns_;
    std::atomic<std::int64_t> asked_ = 0;
    std::atomic<bool> isRunning_ = false;
    std::atomic<bool> mayEnd_ = false;
    std::jthread first_{[this] {
        turns_.run([this] {
            isRunning_ = true;
            isRunning_.notify_all();
            mayEnd_.wait(false);
            return ask();
        });
    }};
};

TEST_F(TurnsBehindOneThatRuns, AreOneForAllWhoCome) {
    constexpr std::size_t kThreads = 8;
    Seen<std::int64_t> answers;
    {
        std::vector<std::jthread> threads;
        for (std::size_t index = 0; index < kThreads; ++index) {
            threads.emplace_back([&] { answers.add(turns_.run([this] { return ask(); }).error.value().code()); });
        }
        awaitWaiting(kThreads);
        release();
    }
    EXPECT_EQ(asked_, 2);
    EXPECT_EQ(answers.all(), std::vector<std::int64_t>(kThreads, 2));
}

TEST_F(TurnsBehindOneThatRuns, AreAnErrorForWhoSharesOneThatThrows) {
    std::atomic<int> thrown = 0;
    Seen<RefreshOutcome> shared;
    {
        std::vector<std::jthread> threads;
        for (int index = 0; index < 2; ++index) {
            threads.emplace_back([&] {
                try {
                    shared.add(turns_.run([]() -> RefreshOutcome { throw std::bad_alloc(); }));
                } catch (const std::bad_alloc&) {
                    ++thrown;
                }
            });
        }
        awaitWaiting(2);
        release();
    }
    EXPECT_EQ(thrown, 1);
    EXPECT_FALSE(shared.only().hasList);
    EXPECT_EQ(shared.only().error, Error(kPosixErrorDomain, ENOMEM, "refresh: out of memory"));
    EXPECT_TRUE(turns_.run([this] { return ask(); }).hasList);
}

TEST(TheTurnsOfAList, GoOnAfterOneThatThrew) {
    RefreshTurns turns;
    EXPECT_THROW(turns.run([]() -> RefreshOutcome { throw std::bad_alloc(); }), std::bad_alloc);
    EXPECT_TRUE(turns.run([] { return RefreshOutcome{true, std::nullopt}; }).hasList);
}

TEST(TheTurnsOfAList, DoNotWaitInAChildForAThreadOfTheParent) {
    RefreshTurns turns;
    std::atomic<bool> isRunning = false;
    std::atomic<bool> mayEnd = false;
    const auto answer = [] { return RefreshOutcome{true, std::nullopt}; };
    const std::jthread thread([&] {
        turns.run([&] {
            isRunning = true;
            isRunning.notify_all();
            mayEnd.wait(false);
            return answer();
        });
    });
    isRunning.wait(false);
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(turns.run(answer).hasList && turns.run(answer).hasList ? 0 : 1);
    }
    mayEnd = true;
    mayEnd.notify_all();
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(ARegistryOfLists, KnowsThoseThatLiveInTheirOrder) {
    client::ListRegistry registry;
    std::vector<std::shared_ptr<KSWList>> kept;
    int logged = 0;
    for (Uid uid = 0; uid < 1'000; ++uid) {
        const auto list = KSWList::initWithItems({}, uid, 8, nullptr);
        registry.add(list, [&logged] { ++logged; });
        if (uid % 100 == 7) {
            kept.push_back(list);
        }
    }
    EXPECT_EQ(logged, 1'000);
    EXPECT_EQ(registry.living(), kept);
    kept.erase(kept.begin());
    EXPECT_EQ(registry.living(), kept);
    kept.clear();
    EXPECT_TRUE(registry.living().empty());
}

}  // namespace
}  // namespace ksw::test
