// Lists that are held while the daemon's records change, and what becomes of them when things go wrong meanwhile.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <fstream>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <mutex>
#include <thread>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "client/protocol/user_data_change.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/notification_center.h"
#include "platform/ipc/notifications.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/servers/load/load.h"

namespace ksw::test {
namespace {

constexpr std::chrono::seconds kPatience(60);

/// Counts how often a list's observer is told, and lets others wait for what the list shows then.
class Watcher final : public KSWListObserver {
public:
    void listDidChange(const std::shared_ptr<KSWList>&) override {
        const std::lock_guard lock(mutex_);
        ++told_;
        changed_.notify_all();
    }
    int told() const {
        const std::lock_guard lock(mutex_);
        return told_;
    }
    /// Waits until it has been told so often.
    bool waitForTold(int times) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return told_ >= times; });
    }
    /// Asks after each time that it was told, and before; false when the answer stays no.
    bool waitUntil(const std::function<bool()>& isSo) {
        for (int seen = told(); !isSo(); seen = told()) {
            std::unique_lock lock(mutex_);
            if (!changed_.wait_for(lock, kPatience, [&] { return told_ > seen; })) {
                lock.unlock();
                return isSo();
            }
        }
        return true;
    }

private:
    mutable std::mutex mutex_;  // guards both below
    std::condition_variable changed_;
    int told_ = 0;
};

/// A list of all jobs of the caller, held by a manager of its own, with an observer.
struct HeldList {
    HeldList() {
        if (list != nullptr) {
            list->addListObserver(watcher);
        }
    }
    std::optional<std::int64_t> generationOf(int job) const {
        for (const auto& item : list->items()) {
            if (item->identifier() == identifierOf(job)) {
                return item->generation();
            }
        }
        return std::nullopt;
    }

    std::shared_ptr<KSWManager> manager = KSWManager::initWithMode(0);
    std::shared_ptr<Watcher> watcher = std::make_shared<Watcher>();
    std::shared_ptr<KSWList> list = manager->getItemsMatching(KSWItemTypeAgent, ::getuid());
};

/// Waits until the hub knows that this process observes changes. Whoever observed before it did is told once,
/// because something may have been missed; whoever does from now on is not.
ipc::NotificationCenter::Observation awaitHub() {
    auto known = std::make_shared<std::promise<void>>();
    auto once = std::make_shared<std::once_flag>();
    auto observation = ipc::NotificationCenter::of(ipc::Domain::System)
                           .observe(std::string(protocol::kUserDataDidChange), [known, once](const Notification&) {
                               std::call_once(*once, [&known] { known->set_value(); });
                           });
    EXPECT_EQ(known->get_future().wait_for(kPatience), std::future_status::ready);
    return observation;
}

/// One who changes jobs, over a connection of its own.
class Changer {
public:
    /// Of the jobs from `first` on.
    Changer(int first, int count) {
        for (int job = first; job < first + count; ++job) {
            items_.push_back(manager_->getItemWithIdentifier(identifierOf(job), ::getuid()));
        }
    }
    bool changeOne(std::size_t index) {
        items_[index]->setHidden(!items_[index]->isHidden());
        return manager_->updateItem(items_[index], ::getuid());
    }
    bool changeAll() {
        for (const auto& item : items_) {
            item->setHidden(!item->isHidden());
        }
        return manager_->updateItems(items_, ::getuid());
    }

private:
    const std::shared_ptr<KSWManager> manager_ = KSWManager::initWithMode(0);
    std::vector<std::shared_ptr<KSWItem>> items_;
};

struct Entry {
    std::optional<std::string> identifier;
    KSWDisposition disposition;
    std::int64_t generation;
    auto operator<=>(const Entry&) const = default;
};

std::vector<Entry> contentOf(const KSWList& list) {
    std::vector<Entry> entries;
    for (const auto& item : list.items()) {
        entries.push_back({item->identifier(), item->disposition(), item->generation()});
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

/// Where files are in memory, if there is such a place: a storm is about more than a disk's patience.
std::optional<std::string> quickFolder() {
    const bool isThere = ::access("/dev/shm", W_OK | X_OK) == 0;
    const char* usual = ::secure_getenv("TMPDIR");
    return isThere ? std::optional<std::string>("/dev/shm")
                   : (usual == nullptr ? std::nullopt : std::optional<std::string>(usual));
}

/// A daemon with records of so many jobs of the caller.
class StormyDaemon {
public:
    explicit StormyDaemon(int jobs) : folder_("TMPDIR", quickFolder()) {
        recordJobs(::getuid(), jobs);
        start();
    }
    void start() {
        process_ = host_.startReady();
        ASSERT_NE(process_, nullptr);
    }
    void kill() { process_.reset(); }
    std::size_t kibibytesResident() const {
        std::ifstream status("/proc/" + std::to_string(process_->pid()) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("VmRSS:")) {
                return std::stoul(line.substr(6));
            }
        }
        return 0;
    }

private:
    const ScopedVariable folder_;
    const daemon::test::DaemonHost host_;
    std::unique_ptr<daemon::test::Process> process_;
};

TEST(AStormOfTenThousandChanges, EndsWithEveryListEqualToTheStore) {
    constexpr int kChangers = 4;
    constexpr int kJobs = 250;  // of each
    constexpr int kSets = sized(2, 1);
    constexpr int kSingles = sized(2'000, 150);
    const StormyDaemon daemon(kChangers * kJobs);
    const HeldList held;
    const HeldList another;
    ASSERT_NE(held.list, nullptr);
    ASSERT_NE(another.list, nullptr);
    std::atomic<int> failures = 0;
    {
        std::vector<std::jthread> threads;
        for (int number = 0; number < kChangers; ++number) {
            threads.emplace_back([&, number] {
                Changer changer(number * kJobs, kJobs);
                for (int set = 0; set < kSets; ++set) {
                    failures += changer.changeAll() ? 0 : 1;
                    for (int single = 0; single < kSingles / kSets; ++single) {
                        failures += changer.changeOne(static_cast<std::size_t>(single % kJobs)) ? 0 : 1;
                    }
                }
            });
        }
    }
    EXPECT_EQ(failures, 0);
    const auto store = KSWManager::initWithMode(0)->getItemsMatching(KSWItemTypeAgent, ::getuid());
    ASSERT_NE(store, nullptr);
    const std::vector<Entry> content = contentOf(*store);
    EXPECT_EQ(content.size(), static_cast<std::size_t>(kChangers * kJobs));
    for (const HeldList* list : {&held, &another}) {
        EXPECT_TRUE(list->watcher->waitUntil([&] { return contentOf(*list->list) == content; }));
        EXPECT_GE(list->watcher->told(), 1);
        EXPECT_LE(list->watcher->told(), kChangers * (kSingles + kSets) / 4);
    }
}

TEST(AListWhoseDaemonIsKilled, IsToldOnceAndStaysSubscribed) {
    StormyDaemon daemon(8);
    const auto observation = awaitHub();
    const HeldList held;
    ASSERT_NE(held.list, nullptr);
    const std::int64_t before = *held.generationOf(3);
    daemon.kill();
    daemon.start();
    ASSERT_TRUE(held.watcher->waitForTold(1));
    Changer changer(0, 8);
    for (int change = 1; change <= 2; ++change) {
        ASSERT_TRUE(changer.changeOne(3));
        ASSERT_TRUE(held.watcher->waitUntil([&] { return held.generationOf(3) == before + change; }));
        EXPECT_TRUE(held.watcher->waitForTold(1 + change));
    }
    EXPECT_EQ(held.watcher->told(), 3);
}

TEST(AStoppedProcess, IsToldWhenItGoesOnAndSeesTheLatest) {
    constexpr int kChanges = sized(1'000, 200);
    constexpr std::size_t kGrowth = sized(4, 64) * std::size_t{1024};
    const StormyDaemon daemon(8);
    Changer changer(0, 8);
    Child child(::getuid(), [](Line& line) {
        const HeldList held;
        if (held.list == nullptr) {
            return 1;
        }
        const std::int64_t last = *held.generationOf(3) + kChanges;
        line.tell();
        const bool isLatest = held.watcher->waitUntil([&] { return held.generationOf(3) == last; });
        return isLatest && held.watcher->told() >= 1 ? 0 : 2;
    });
    ASSERT_TRUE(child.line().wait());
    child.signal(SIGSTOP);
    int status = 0;
    ASSERT_EQ(::waitpid(child.pid(), &status, WUNTRACED), child.pid());
    ASSERT_TRUE(WIFSTOPPED(status));
    std::size_t early = 0;
    for (int change = 0; change < kChanges; ++change) {
        ASSERT_TRUE(changer.changeOne(3));
        early = change == kChanges / 10 ? daemon.kibibytesResident() : early;
    }
    EXPECT_LE(daemon.kibibytesResident(), early + kGrowth);
    child.signal(SIGCONT);
    EXPECT_EQ(child.end(), 0);
}

TEST(AForgedNotification, OfAnotherUserReachesNoHandler) {
    constexpr Uid kForgedUser = 77'777;
    const StormyDaemon daemon(8);
    std::atomic<int> foreign = 0;
    std::latch isTold(1);
    std::once_flag once;
    const auto observation = ipc::NotificationCenter::of(ipc::Domain::System)
                                 .observe(std::string(protocol::kUserDataDidChange), [&](const Notification& told) {
                                     const std::optional<std::int64_t> uid = protocol::saidUid(told);
                                     foreign += uid && *uid != ::getuid() ? 1 : 0;
                                     if (uid) {
                                         std::call_once(once, [&] { isTold.count_down(); });
                                     }
                                 });
    // The owner of a host root may do there what uid 0 may: then it is no forgery.
    const bool isForged = ::geteuid() == 0;
    Child forger(anotherUser(), [isForged](Line&) {
        ipc::Connection connection(ipc::kNotifyService, ipc::managementDaemonOptions(),
                                   ipc::makeInterface("Notifications", ipc::kPostNotification));
        const Notification notification = protocol::notificationOf({kForgedUser, KSWItemTypeAll});
        const auto reply = connection.call(ipc::kPostNotification, notification.name, notification.userInfo);
        return reply && std::get<0>(*reply) == (isForged ? KSWErrorPermissionDenied : KSWErrorNone) ? 0 : 1;
    });
    EXPECT_EQ(forger.end(), 0);
    // They come in their order, so a forged one would be told before this one.
    ASSERT_TRUE(Changer(0, 8).changeOne(3));
    isTold.wait();
    EXPECT_EQ(foreign > 0, !isForged);
}

}  // namespace
}  // namespace ksw::test
