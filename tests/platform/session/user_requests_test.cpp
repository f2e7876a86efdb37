// Requests to services that may never answer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "platform/base/limits.h"
#include "platform/session/user_requests.h"

namespace ksw::session {
namespace {

using std::chrono_literals::operator""ms;

constexpr std::chrono::milliseconds kLong = std::chrono::minutes(1);
constexpr Uid kUser = 501;
constexpr std::string_view kTooLate = "a service of user 501 has not answered in time";

/// Says that the thread of a request that holds it has done all that it had to do.
class End {
public:
    End() = default;
    End(const End&) = delete;
    End& operator=(const End&) = delete;
    ~End() { promise_.set_value(); }
    std::future<void> future() { return promise_.get_future(); }

private:
    std::promise<void> promise_;
};

/// A service that answers when it is told to.
class Frozen {
public:
    ~Frozen() { thaw(); }
    UserRequests::Request request(std::shared_ptr<End> end = nullptr) const {
        return [thawed = thawed_, end = std::move(end)] {
            thawed.wait();
            return Status();
        };
    }
    void thaw() {
        if (!isThawed_) {
            isThawed_ = true;
            promise_.set_value();
        }
    }

private:
    std::promise<void> promise_;
    std::shared_future<void> thawed_ = promise_.get_future().share();
    bool isThawed_ = false;
};

std::string textOf(const Status& status) {
    return status ? "" : std::string(status.error().localizedDescription());
}
Status answered() {
    return {};
}

TEST(ARequestToAUsersService, EndsAsTheServiceEndsIt) {
    UserRequests requests(kLong);
    EXPECT_TRUE(requests.run(kUser, answered));
    const Error error(ConnectionError::Refused, "no");
    const Status status = requests.run(kUser, [&] { return Status(error); });
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error(), error);
}

TEST(ARequestToAUsersService, RunsOnAThreadOfItsOwn) {
    UserRequests requests(kLong);
    std::thread::id ran;
    EXPECT_TRUE(requests.run(kUser, [&] {
        ran = std::this_thread::get_id();
        return Status();
    }));
    EXPECT_NE(ran, std::this_thread::get_id());
}

TEST(ARequestToAUsersService, KeepsItsCallerNoLongerThanTheBound) {
    UserRequests requests(20ms);
    const Frozen frozen;
    const Status status = requests.run(kUser, frozen.request());
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error(), Error(ConnectionError::Interrupted, kTooLate));
}

TEST(ARequestToAUsersService, IsNotMadeWhileAnEarlierOneIsLate) {
    UserRequests requests(20ms);
    const Frozen frozen;
    EXPECT_EQ(textOf(requests.run(kUser, frozen.request())), kTooLate);
    bool wasMade = false;
    const Status status = requests.run(kUser, [&] {
        wasMade = true;
        return Status();
    });
    EXPECT_EQ(textOf(status), kTooLate);
    EXPECT_FALSE(wasMade);
}

TEST(ARequestToAUsersService, DoesNotWaitForAnotherUsers) {
    UserRequests requests(20ms);
    const Frozen frozen;
    EXPECT_EQ(textOf(requests.run(kUser, frozen.request())), kTooLate);
    EXPECT_TRUE(requests.run(502, answered));
}

TEST(ARequestToAUsersService, IsMadeAgainWhenTheServiceHasAnsweredAfterAll) {
    UserRequests requests(20ms);
    auto end = std::make_shared<End>();
    const auto ended = end->future();
    {
        Frozen frozen;
        EXPECT_EQ(textOf(requests.run(kUser, frozen.request(std::move(end)))), kTooLate);
    }
    ended.wait();
    EXPECT_TRUE(requests.run(kUser, answered));
}

TEST(ARequestToAUsersService, WaitsForAnEarlierOneThatIsStillInTime) {
    UserRequests requests(kLong);
    std::atomic<int> running{0};
    std::atomic<int> most{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 8; ++i) {
        callers.emplace_back([&] {
            EXPECT_TRUE(requests.run(kUser, [&] {
                most = std::max(most.load(), ++running);
                --running;
                return Status();
            }));
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(most, 1);
}

TEST(ARequestToAUsersService, OutlivesWhatItWasMadeWith) {
    const auto frozen = std::make_unique<Frozen>();
    auto end = std::make_shared<End>();
    const auto ended = end->future();
    {
        UserRequests requests(1ms);
        EXPECT_EQ(textOf(requests.run(kUser, frozen->request(std::move(end)))), kTooLate);
    }
    frozen->thaw();
    ended.wait();
}

TEST(ARequestToAUsersService, IsGivenFiveSeconds) {
    EXPECT_EQ(limits::kUserServiceSeconds, 5);
}

}  // namespace
}  // namespace ksw::session
