// A hub that has no memory for a notification still tells that something has happened.
#include <gtest/gtest.h>

#include "tests/platform/ipc/notification_service.h"
#include "tests/support/failing_allocation.h"

namespace ksw::test {
namespace {

TEST(AHubWithoutMemory, StillTellsThatSomethingHasHappened) {
    const HostRoot root;
    ServedHub hub(ipc::Domain::System, [](const Notification& older, const Notification& newer) {
        return numbered("a", numberOf(older) + numberOf(newer));
    });
    HubClient client;
    ASSERT_TRUE(client.observe("a").ok());
    const Notification second = numbered("a", 2);
    bool hasFailed = true;
    for (std::size_t number = 0; hasFailed; ++number) {
        hub->post(numbered("a", 1));
        {
            const FailingAllocation failing(number);
            hub->post(second);
            hasFailed = failing.hasHappened();
        }
        const Result<Notification> next = client.next();
        ASSERT_TRUE(next.ok());
        EXPECT_TRUE(!next->userInfo || numberOf(*next) == 3) << number << ": " << numberOf(*next);
    }
}

}  // namespace
}  // namespace ksw::test
