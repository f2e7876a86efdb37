#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>

#include "platform/base/checked.h"
#include "platform/base/guarded.h"
#include "platform/base/limits.h"
#include "platform/base/never_destroyed.h"
#include "platform/base/result.h"
#include "platform/base/unique_fd.h"

namespace ksw {
namespace {

constexpr auto kSizeMax = std::numeric_limits<std::size_t>::max();

TEST(CheckedArithmetic, GivesTheLastNumberThatFitsAndNothingBeyond) {
    EXPECT_EQ(checkedAdd<std::size_t>(kSizeMax - 1, 1), kSizeMax);
    EXPECT_EQ(checkedAdd<std::size_t>(kSizeMax, 1), std::nullopt);
    EXPECT_EQ(checkedAdd<int>(std::numeric_limits<int>::min(), -1), std::nullopt);
    EXPECT_EQ(checkedMultiply<std::size_t>(kSizeMax / 2, 2), kSizeMax - 1);
    EXPECT_EQ(checkedMultiply<std::size_t>(kSizeMax / 2 + 1, 2), std::nullopt);
}

TEST(ACheckedCast, GivesNothingForANumberThatTheTypeDoesNotHold) {
    EXPECT_EQ(checkedCast<std::uint8_t>(255), std::uint8_t{255});
    EXPECT_EQ(checkedCast<std::uint8_t>(256), std::nullopt);
    EXPECT_EQ(checkedCast<std::uint32_t>(-1), std::nullopt);
    EXPECT_EQ(checkedCast<std::int64_t>(std::numeric_limits<std::uint64_t>::max()), std::nullopt);
}

TEST(Limits, LeaveRoomForOneAnother) {
    EXPECT_LE(limits::kRequestBodyMax, limits::kRootRequestBodyMax);
    EXPECT_LE(limits::kRootRequestBodyMax, limits::kFrameBodyMax);
    EXPECT_LE(limits::kFieldMax, limits::kStringMax);
    EXPECT_LE(limits::kListItemsMax, limits::kObjectsMax);
    EXPECT_LT(limits::kConnectionsReservedForRoot, limits::kConnectionsPerUidMax);
    EXPECT_LT(limits::kConnectionsPerUidMax, limits::kConnectionsMax);
    EXPECT_LT(limits::kLaunchQuestionSeconds, limits::kRequestSeconds);
}

int freshDescriptor() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}
bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

TEST(AUniqueFd, ClosesItsDescriptorOnce) {
    const int fd = freshDescriptor();
    { const UniqueFd owner(fd); }
    EXPECT_FALSE(isOpen(fd));
}

TEST(AUniqueFd, HandsItsDescriptorOverWhenMoved) {
    const int fd = freshDescriptor();
    UniqueFd first(fd);
    UniqueFd second(std::move(first));
    EXPECT_EQ(second.get(), fd);
    UniqueFd third;
    third = std::move(second);
    EXPECT_TRUE(isOpen(fd));
    third.reset();
    EXPECT_FALSE(isOpen(fd));
}

TEST(AUniqueFd, ReleasesWithoutClosing) {
    UniqueFd owner(freshDescriptor());
    const int fd = owner.release();
    EXPECT_FALSE(owner);
    EXPECT_TRUE(isOpen(fd));
    ::close(fd);
}

TEST(AGuardedValue, IsChangedByOneThreadAtATime) {
    Guarded<int> counter(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 1'000; ++n) {
                ++*counter.lock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(*counter.lock(), 4'000);
}

struct Witness {
    explicit Witness(bool& destroyed) : destroyed_(destroyed) {}
    ~Witness() { destroyed_ = true; }
    bool& destroyed_;
};

TEST(ANeverDestroyedObject, IsNotDestroyedWithItsHolder) {
    bool destroyed = false;
    {
        NeverDestroyed<Witness> holder(destroyed);
        EXPECT_FALSE(holder->destroyed_);
    }
    EXPECT_FALSE(destroyed);
}

TEST(AResult, HoldsAValueOrTheReasonWhyThereIsNone) {
    const Result<std::string> value(std::string("a"));
    EXPECT_TRUE(value.ok());
    EXPECT_EQ(*value, "a");
    const Result<std::string> none(Error("D", 7));
    EXPECT_FALSE(none);
    EXPECT_EQ(none.error().code(), 7);
}

TEST(AResult, GivesItsValueAway) {
    Result<std::unique_ptr<int>> result(std::make_unique<int>(5));
    const std::unique_ptr<int> taken = *std::move(result);
    EXPECT_EQ(*taken, 5);
}

TEST(AStatus, IsSuccessUnlessItHasAnError) {
    EXPECT_TRUE(Status().ok());
    const Status failed(Error("D", 8));
    EXPECT_FALSE(failed);
    EXPECT_EQ(failed.error().code(), 8);
}

}  // namespace
}  // namespace ksw
