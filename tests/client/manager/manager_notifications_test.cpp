// How a manager is told of changes: by the system's hub.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "client/protocol/user_data_change.h"
#include "tests/client/manager/daemons.h"
#include "tests/client/manager/list_daemon.h"
#include "tests/platform/ipc/notification_service.h"

namespace ksw::test {
namespace {

constexpr std::string_view kChange = protocol::kUserDataDidChange;

/// A witness that a test can wait for.
class Expected : public Witness {
public:
    void listDidChange(const std::shared_ptr<KSWList>& list) override {
        Witness::listDidChange(list);
        const std::lock_guard lock(mutex_);
        changed_.notify_all();
    }
    /// Blocks until it was told of these items.
    void await(const Names& names) {
        awaitThat([&] {
            const std::vector<Names> all = told();
            return std::ranges::find(all, names) != all.end();
        });
    }
    /// Blocks until it was told so often.
    void awaitCount(std::size_t count) {
        awaitThat([&] { return told().size() >= count; });
    }

private:
    template <class Condition>
    void awaitThat(const Condition& condition) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, kTooLong, condition));
    }

    std::mutex mutex_;
    std::condition_variable changed_;
};

class ANotification : public ListTest {
protected:
    ANotification() {
        hub_.awaitObservers(1);
        list_->addListObserver(expected_);
        daemon_.has({itemNamed("8.a"), itemNamed("8.b")});
    }

    ServedHub hub_;
    std::shared_ptr<KSWList> list_ = manager_->getItemsMatching(8, 501);
    std::shared_ptr<Expected> expected_ = std::make_shared<Expected>();
};

TEST_F(ANotification, RefreshesTheListsOfAManagerAndTellsTheirObservers) {
    hub_->post(protocol::notificationOf({501, 8}));
    expected_->await({"8.a", "8.b"});
    EXPECT_EQ(list_->count(), 2U);
}

/// Stays in its call until it may go.
class Blocker : public KSWListObserver {
public:
    void listDidChange(const std::shared_ptr<KSWList>&) override {
        isIn_ = true;
        isIn_.notify_all();
        mayGo_.wait(false);
    }
    void awaitIn() { isIn_.wait(false); }
    void letGo() {
        mayGo_ = true;
        mayGo_.notify_all();
    }

private:
    std::atomic<bool> isIn_ = false;
    std::atomic<bool> mayGo_ = false;
};

TEST_F(ANotification, LetsTheManagerThatIsBeingToldGoAndTellsItNoMore) {
    const auto blocker = std::make_shared<Blocker>();
    list_->addListObserver(blocker);
    const std::weak_ptr<KSWManager> gone = manager_;
    Told told;
    const auto later =
        ipc::NotificationCenter::of(ipc::Domain::System).observe(std::string(kChange), told.handler());
    hub_->post(protocol::notificationOf({501, 8}));
    blocker->awaitIn();
    const std::size_t before = told.await(0).size();
    manager_ = nullptr;
    EXPECT_FALSE(gone.expired());
    blocker->letGo();
    told.await(before + 1);  // the centre's next handler: the manager's has ended
    EXPECT_TRUE(gone.expired());
    const std::size_t count = expected_->told().size();
    hub_->post(protocol::notificationOf({501, 8}));
    told.await(before + 2);
    EXPECT_EQ(expected_->told().size(), count);
}

/// A hub that takes notifications from uid 0 alone: it is made before there is a host root.
struct HubOfUidZero {
    ipc::NotificationHub hub_{ipc::Domain::System};
};

class AForgedNotification : public HubOfUidZero, public ListTest {
protected:
    AForgedNotification() {
        EXPECT_TRUE(server_.listen(ipc::kNotifyService, ipc::Domain::System, hub_.service()).ok());
        EXPECT_TRUE(server_.start().ok());
        list_->addListObserver(expected_);
    }
    ~AForgedNotification() override { server_.stop(); }

    static bool isRefused() {
        const std::string answer =
            HubClient().post(std::string(kChange), Dictionary{{"uid", 501}, {"number", 666}});
        return answer == std::to_string(KSWErrorPermissionDenied);
    }
    /// The same for another user than uid 0: for uid 0, a child that becomes another.
    bool isRefusedToAnother() {
        if (::geteuid() != 0) {
            return isRefused();
        }
        EXPECT_EQ(::chmod(root_.folder().path().c_str(), 0755), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            const bool isAnother = ::setresgid(65534, 65534, 65534) == 0 && ::setresuid(65534, 65534, 65534) == 0;
            ::_exit(isAnother && isRefused() ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        return status == 0;
    }

    std::shared_ptr<KSWList> list_ = manager_->getItemsMatching(8, 501);
    std::shared_ptr<Expected> expected_ = std::make_shared<Expected>();
    ipc::Server server_;
};

TEST_F(AForgedNotification, ReachesNoObserver) {
    Told told;
    const auto beside =
        ipc::NotificationCenter::of(ipc::Domain::System).observe(std::string(kChange), told.handler());
    EXPECT_TRUE(isRefusedToAnother());
    daemon_.has({itemNamed("8.true")});
    hub_.post(protocol::notificationOf({501, 8}));
    expected_->await({"8.true"});
    EXPECT_FALSE(std::ranges::any_of(told.await(1), [](const Notification& one) { return numberOf(one) == 666; }));
}

/// A list of the real daemon, whose user adds records.
class AListOfTheRealDaemon : public ::testing::Test {
protected:
    AListOfTheRealDaemon() {
        // The process's own manager may have been left with the connection of an earlier test.
        KSWManager::shared().UIDs();
        daemon_.start();
        mark_ = ipc::NotificationCenter::of(ipc::Domain::System)
                    .observe("mark", [this](const Notification& notification) {
                        if (numberOf(notification) >= 0) {
                            marked_ = numberOf(notification);
                            marked_.notify_all();
                        }
                    });
        manager_ = KSWManager::initWithMode(0);
        list_ = manager_->getItemsMatching(8, ::getuid());
        list_->addListObserver(expected_);
    }

    void add(const std::string& identifier) { EXPECT_TRUE(manager_->addItem(itemNamed(identifier), ::getuid())); }
    /// Waits until the centre has told all that the daemon has announced.
    void settle() {
        manager_->UIDs();  // is answered when the connection's former request has been announced
        const std::int64_t mark = ++lastMark_;
        EXPECT_EQ(HubClient().post("mark", Dictionary{{"number", mark}}), "0");
        for (std::int64_t now = marked_; now < mark; now = marked_) {
            marked_.wait(now);
        }
    }
    std::size_t toldCount() { return expected_->told().size(); }

    RealDaemon daemon_;
    std::int64_t lastMark_ = 0;
    std::atomic<std::int64_t> marked_ = 0;
    ipc::NotificationCenter::Observation mark_;
    std::shared_ptr<KSWManager> manager_;
    std::shared_ptr<KSWList> list_;
    std::shared_ptr<Expected> expected_ = std::make_shared<Expected>();
};

TEST_F(AListOfTheRealDaemon, IsRefreshedAndToldOnceWhenTheDaemonIsBackAndStaysSubscribed) {
    add("8.a");
    expected_->await({"8.a"});
    settle();
    const std::size_t before = toldCount();
    list_->setItems({});
    daemon_.stop();
    daemon_.start();
    expected_->awaitCount(before + 1);
    settle();
    EXPECT_EQ(toldCount(), before + 1);
    EXPECT_EQ(names(list_->items()), (Names{"8.a"}));
    add("8.b");
    settle();
    EXPECT_EQ(toldCount(), before + 2);
    EXPECT_EQ(list_->count(), 2U);
}

}  // namespace
}  // namespace ksw::test
