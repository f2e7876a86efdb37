// How a manager is told of changes: by the system's hub.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "client/protocol/user_data_change.h"
#include "tests/client/manager/list_daemon.h"
#include "tests/platform/ipc/notification_service.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;

/// A witness that a test can wait for.
class Expected : public Witness {
public:
    void listDidChange(const std::shared_ptr<KSWList>& list) override {
        Witness::listDidChange(list);
        ++count_;
        count_.notify_all();
    }
    /// Blocks until it was told so often.
    void await(unsigned count) {
        for (unsigned now = count_; now < count; now = count_) {
            count_.wait(now);
        }
    }

private:
    std::atomic<unsigned> count_ = 0;
};

class ANotification : public ListTest {
protected:
    ANotification() {
        hub_.awaitObservers(1);
        list_->addListObserver(expected_);
        daemon_.has({itemNamed("8.a"), itemNamed("8.b")});
    }

    /// Waits until the log has the line so often.
    void awaitLine(const std::string& line, std::size_t count) {
        const auto end = std::chrono::steady_clock::now() + kTooLong;
        while (log_.count(line) < count && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        EXPECT_GE(log_.count(line), count) << line;
    }

    const std::string line_ = "-[KSWManager handleUserDataDidChangeNotification:]: uid=501, type=0x8, list count=";
    ServedHub hub_;
    std::shared_ptr<KSWList> list_ = manager_->getItemsMatching(8, 501);
    std::shared_ptr<Expected> expected_ = std::make_shared<Expected>();
};

TEST_F(ANotification, RefreshesTheListsOfAManagerAndTellsTheirObservers) {
    hub_->post(protocol::notificationOf({501, 8}));
    expected_->await(1);
    EXPECT_THAT(expected_->told().back(), ElementsAre("8.a", "8.b"));
    EXPECT_EQ(list_->count(), 2U);
}

TEST_F(ANotification, ReachesAManagerOfEitherMode) {
    const auto roster = KSWManager::initWithMode(1);
    log_.clear();
    hub_->post(protocol::notificationOf({501, 8}));
    awaitLine(line_ + "1", 1);
    awaitLine(line_ + "0", 2);  // the process's own manager and the roster's
}

}  // namespace
}  // namespace ksw::test
