// How a manager is told of changes: by the system's hub.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

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

}  // namespace
}  // namespace ksw::test
